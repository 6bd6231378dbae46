// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_TRANSFERERROR_H
#define VARNEX_PLATFORM_SRC_TRANSFERERROR_H

#include <string>
#include <system_error>

#include "Transfer.h"

// The errors of file_client, category "varnex.transfer": libcurl's number, or kHttpStatus plus the
// status of an answer that is not the file.
//
// An error code holds a number alone. The text that came with it (libcurl's, masked) is kept per
// thread: message() gives it on the thread on which the transfer failed until that thread's next
// failure, and the number's general text everywhere else.
constexpr int kHttpStatus = 1000;

std::error_code TransferError(int number, const std::string& text);

// What was to be downloaded is a folder: number 79, which on the thread on which the transfer
// failed compares equal to std::errc::is_a_directory.
std::error_code FolderError(const std::string& path);

// A watcher wanted it: number 42, std::errc::operation_canceled.
std::error_code StoppedError();

// With libcurl's own text, in which a proxy's address may hold credentials.
std::error_code LibcurlError(int number, const std::string& text);

// `text` without what stands between a blank, quote or slash and the last "@".
std::string WithoutUserInfo(std::string text);

#endif
