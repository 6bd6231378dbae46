// SPDX-License-Identifier: Apache-2.0
//
// bench_ipmi_gathering HOST PORT USER CIPHER-SUITE POLLS, password on standard input: what a
// gathering says over IPMI, without the time between polls: connects, starts it, polls, asks for
// the account. Prints "done SECONDS" or "STEP failed SECONDS"; the log says why.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "IpmiClient.h"

namespace {

bool Ask(IpmiClient& client, std::uint8_t command) {
    std::vector<std::uint8_t> response;
    std::uint8_t code = 0xFF;
    return client.send({command, {0x01}, 0x3A}, response, code) == 0 && code == 0;
}

// Empty: it went through.
std::string FailedStep(IpmiClient& client, int polls) {
    if (client.connect() != 0) return "connect";
    if (!Ask(client, 0x49)) return "start";
    for (int n = 1; n <= polls; ++n) {
        if (!Ask(client, 0x4D)) return "poll " + std::to_string(n);
    }
    return Ask(client, 0x79) ? "" : "account";
}

}  // namespace

int main(int count, char** words) {
    if (count != 6) return 2;
    std::string password;
    std::getline(std::cin, password);
    IpmiClient client(words[1], words[3], password, words[2],
                      static_cast<std::uint16_t>(std::atoi(words[4])));
    const auto start = std::chrono::steady_clock::now();
    const std::string failed = FailedStep(client, std::atoi(words[5]));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::printf("%s %.1f\n", failed.empty() ? "done" : (failed + " failed").c_str(), taken.count());
    return failed.empty() ? 0 : 1;
}
