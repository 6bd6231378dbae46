// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPLISTING_H
#define VARNEX_PLATFORM_SRC_SFTPLISTING_H

#include <list>
#include <string>

#include "SftpSession.h"

// Throws SftpFailure.
void ListFolder(SftpSession& session, const std::string& path, SftpPatience& patience,
                std::list<std::string>& names);

#endif
