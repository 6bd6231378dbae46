// SPDX-License-Identifier: Apache-2.0
//
// bench_sftp_download PORT USER REMOTE-FILE LOCAL-FILE, password on standard input: fetches one
// file from 127.0.0.1 as the IPMI channel does, and prints the process's peak memory in KiB.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>

#include "Uri.h"
#include "file_client.h"

namespace {

using NoOption = curlcpp::option_traits<void*, static_cast<CURLoption>(0)>;

// Of this program alone. What getrusage(2) tells includes the program that started it.
std::string PeakKibibytes() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == "VmHWM:" && status >> word) return word;
    }
    return "0";
}

}  // namespace

int main(int count, char** words) {
    if (count != 5) return 2;
    std::string password;
    std::getline(std::cin, password);
    const auto port = static_cast<std::uint16_t>(std::atoi(words[1]));
    const Uri file("sftp", "127.0.0.1", port, words[2], password, words[3]);
    if (const std::error_code error = file_client::download(file, words[4], NoOption(nullptr))) {
        std::fprintf(stderr, "%d %s\n", error.value(), error.message().c_str());
        return 1;
    }
    std::cout << PeakKibibytes() << '\n';
    return 0;
}
