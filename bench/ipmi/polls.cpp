// SPDX-License-Identifier: Apache-2.0
//
// bench_ipmi_polls HOST PORT USER CIPHER-SUITE POLLS ROUNDS, password on standard input: polls over
// one session with IpmiClient and, in turn, with FreeIPMI alone. Prints a line per round: seconds
// of ours and of the bare loop, then the processor's seconds of both.
#include <freeipmi/freeipmi.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "IpmiClient.h"

namespace {

struct Spent {
    double wall = 0;
    double processor = 0;
};

double ProcessorTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

template <typename Poll>
Spent Measure(int polls, Poll poll) {
    const auto start = std::chrono::steady_clock::now();
    const double processor = ProcessorTime();
    for (int n = 0; n < polls; ++n) {
        if (poll()) continue;
        std::fprintf(stderr, "poll %d failed\n", n);
        std::exit(1);
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), ProcessorTime() - processor};
}

struct Bmc {
    std::string host, port, user, password;
    int suite;
};

Spent Ours(const Bmc& bmc, int polls) {
    IpmiClient client(bmc.host, bmc.user, bmc.password, bmc.port,
                      static_cast<std::uint16_t>(bmc.suite));
    if (client.connect() != 0) std::exit(1);
    return Measure(polls, [&client] {
        const IPMICOMMAND command{0x4D, {0x01}, 0x3A};
        std::vector<std::uint8_t> response;
        std::uint8_t code = 0xFF;
        return client.send(command, response, code) == 0 && code == 0 && response.size() == 1;
    });
}

struct End {
    void operator()(ipmi_ctx* context) const {
        ipmi_ctx_close(context);
        ipmi_ctx_destroy(context);
    }
};

Spent Bare(const Bmc& bmc, int polls) {
    const std::unique_ptr<ipmi_ctx, End> context(ipmi_ctx_create());
    const std::string endpoint = bmc.host + ":" + bmc.port;
    if (!context ||
        ipmi_ctx_open_outofband_2_0(
            context.get(), endpoint.c_str(), bmc.user.c_str(), bmc.password.c_str(), nullptr, 0,
            IPMI_PRIVILEGE_LEVEL_ADMIN, static_cast<std::uint8_t>(bmc.suite), 8000, 2000,
            IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE, IPMI_FLAGS_DEFAULT) < 0) {
        std::fprintf(stderr, "%s\n", context ? ipmi_ctx_errormsg(context.get()) : "out of memory");
        std::exit(1);
    }
    return Measure(polls, [&context] {
        const std::uint8_t request[] = {0x4D, 0x01};
        std::uint8_t answer[1024];
        return ipmi_cmd_raw(context.get(), 0, 0x3A, request, sizeof request, answer,
                            sizeof answer) == 3 &&
               answer[1] == 0;
    });
}

}  // namespace

int main(int count, char** words) {
    if (count != 7) return 2;
    Bmc bmc{words[1], words[2], words[3], {}, std::atoi(words[4])};
    std::getline(std::cin, bmc.password);
    const int polls = std::atoi(words[5]);
    for (int round = 0; round < std::atoi(words[6]); ++round) {
        // Whoever comes first in a round pays for it, up to a tenth: so they take turns.
        const bool oursFirst = round % 2 == 0;
        Spent ours = oursFirst ? Ours(bmc, polls) : Spent{};
        const Spent bare = Bare(bmc, polls);
        if (!oursFirst) ours = Ours(bmc, polls);
        std::printf("%.6f %.6f %.6f %.6f\n", ours.wall, bare.wall, ours.processor, bare.processor);
    }
    return 0;
}
