// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPFAILURE_H
#define VARNEX_PLATFORM_SRC_SFTPFAILURE_H

#include <string>

// Why an SFTP exchange ended. Thrown inside of file_client's SFTP side alone, and caught at its
// edge.
struct SftpFailure {
    int number;  // libcurl's
    std::string text;
    bool lost = false;    // the session is good for nothing more
    bool folder = false;  // where a file was wanted
};

#endif
