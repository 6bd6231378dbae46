// SPDX-License-Identifier: Apache-2.0
//
// bench_sftp_download PORT USER REMOTE LOCAL, password on standard input: fetches a file from
// 127.0.0.1 as the IPMI channel does, or all files of a folder where REMOTE and LOCAL end with "/".
// Prints the process's peak memory in KiB.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <list>
#include <string>
#include <system_error>

#include "Uri.h"
#include "bench/PeakMemory.h"
#include "file_client.h"

namespace {

using NoOption = curlcpp::option_traits<void*, static_cast<CURLoption>(0)>;

std::error_code FetchFolder(Uri folder, const std::string& target) {
    std::list<std::string> names;
    if (const std::error_code error = file_client::ls_directory(folder, names)) return error;
    const std::string path = folder.path();
    for (const std::string& name : names) {
        folder.set_path(Uri::join_path(path, name));
        const std::error_code error =
            file_client::download(folder, target + name, NoOption(nullptr));
        if (error) return error;
    }
    return std::error_code();
}

}  // namespace

int main(int count, char** words) {
    if (count != 5) return 2;
    std::string password;
    std::getline(std::cin, password);
    const auto port = static_cast<std::uint16_t>(std::atoi(words[1]));
    const std::string remote = words[3];
    const Uri uri("sftp", "127.0.0.1", port, words[2], password, remote);
    const std::error_code error = remote.back() == '/'
                                      ? FetchFolder(uri, words[4])
                                      : file_client::download(uri, words[4], NoOption(nullptr));
    if (error) {
        std::fprintf(stderr, "%d %s\n", error.value(), error.message().c_str());
        return 1;
    }
    std::cout << PeakKibibytes() << '\n';
    return 0;
}
