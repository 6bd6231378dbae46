// SPDX-License-Identifier: Apache-2.0
//
// What the thread sanitizer is to see: 16 hosts' worth of runs in one process.
#include <future>
#include <string>
#include <vector>

#include "IpmiRun.h"

using testing::Each;
using testing::ElementsAre;

namespace {

constexpr int kObjects = 16;

TEST_F(IpmiRun, SixteenObjectsInSixteenThreadsDoNotDisturbEachOther) {
    std::vector<std::unique_ptr<EmulatedBmc>> bmcs;
    std::vector<std::string> outputs;
    for (int n = 1; n <= kObjects; ++n) {
        bmcs.push_back(
            StartBmc("{files: {/download/ffdc/kem_dump/: null}}", "127.0.0." + std::to_string(n)));
        outputs.push_back(OutputPath());
    }

    std::vector<std::future<Outcome>> runs;
    for (std::size_t n = 0; n < kObjects; ++n) {
        const std::uint16_t suite = n % 2 == 0 ? 17 : 3;
        runs.push_back(std::async(std::launch::async, [&, n, suite] {
            return Run(OverLan(*bmcs[n], suite), outputs[n], 2);
        }));
    }

    for (std::size_t n = 0; n < kObjects; ++n) {
        const Outcome run = runs[n].get();
        EXPECT_EQ(run.result, 0) << n;
        EXPECT_EQ(run.path, outputs[n] + "KEMFFDC20260131235958");
        EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmcs[n], "/download/ffdc/")) << n;
        EXPECT_THAT(SessionsOf(*bmcs[n]),
                    ElementsAre("admin " + std::to_string(n % 2 == 0 ? 17 : 3)));
    }
    EXPECT_THAT(Complaints(), Each("1 src/module/kvs/ffdc/ffdcipmi_impl: remote ffdc size = 3"));
}

TEST_F(IpmiRun, ObjectsThatShareTheHostsOwnDeviceDoNotDisturbEachOther) {
    const auto bmc = StartBmc();
    PutInto(*bmc);
    constexpr int kSharing = 4;
    std::vector<std::string> outputs;
    for (int n = 0; n < kSharing; ++n) outputs.push_back(OutputPath());

    std::vector<std::future<Outcome>> runs;
    for (int n = 0; n < kSharing; ++n) {
        runs.push_back(std::async(std::launch::async, [&, n] {
            return Run(OverLan(*bmc), outputs[static_cast<std::size_t>(n)], n % 2 == 0 ? 3 : 5);
        }));
    }

    for (int n = 0; n < kSharing; ++n) {
        const Outcome run = runs[static_cast<std::size_t>(n)].get();
        EXPECT_EQ(run.result, 0) << n;
        EXPECT_TRUE(FilesIn(run.path) ==
                    FilesOf(*bmc, "/download/ffdc/kem_dump/", n % 2 == 0 ? ".tzz" : ""));
    }
}

}  // namespace
