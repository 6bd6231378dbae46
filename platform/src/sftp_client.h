// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTP_CLIENT_H
#define VARNEX_PLATFORM_SRC_SFTP_CLIENT_H

#include <cstdint>
#include <functional>
#include <list>
#include <string>

#include "Uri.h"

// Folders and files of an SFTP server. Blocks; throws SftpFailure. One login serves what follows
// within two seconds with the same account.
namespace sftp_client {

void List(const Uri& uri, std::list<std::string>& names);

// `take` gets the bytes in order, `goOn` is asked at least once a second with the size that the
// server told (0: none); false from either ends it.
void Download(const Uri& uri, const std::function<bool(const char*, std::size_t)>& take,
              const std::function<bool(std::uint64_t expected)>& goOn);

}  // namespace sftp_client

#endif
