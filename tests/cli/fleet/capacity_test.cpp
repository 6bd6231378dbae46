// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Capacity.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

using Kemffdc::Fleet::Capacity;
using Kemffdc::Fleet::CapacityFault;
using Kemffdc::Fleet::MeasureCapacity;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(Capacity, AnOrdinaryMachineHasEnoughForTheDefaults) {
    const Capacity ordinary{524288, 60000, 4 * kGiB};

    EXPECT_EQ(CapacityFault(ordinary, 10000, 256, 8), "");
}

TEST(Capacity, TooFewOpenFilesAreToldWithWhatWouldDo) {
    EXPECT_EQ(CapacityFault({1024, Capacity::kUnlimited, Capacity::kUnlimited}, 2000, 400, 8),
              "408 BMCs at once would take 1696 open files, and there are 1024. Use --gathering "
              "232, or raise the limit (ulimit -n).");
    EXPECT_EQ(CapacityFault({1024, Capacity::kUnlimited, Capacity::kUnlimited}, 2000, 232, 8), "");
    EXPECT_NE(CapacityFault({1024, Capacity::kUnlimited, Capacity::kUnlimited}, 2000, 233, 8), "");
}

TEST(Capacity, NoMoreWorkersCountThanThereAreHosts) {
    EXPECT_EQ(CapacityFault({1024, Capacity::kUnlimited, Capacity::kUnlimited}, 240, 400, 8), "");
}

TEST(Capacity, TooFewProcessesAreTold) {
    EXPECT_EQ(CapacityFault({Capacity::kUnlimited, 700, Capacity::kUnlimited}, 400, 256, 8),
              "264 BMCs at once would take 1848 processes and threads, and there are 700. Use "
              "--gathering 92, or raise the limit (ulimit -u, or pids.max of the control group).");
}

TEST(Capacity, TooLittleMemoryIsTold) {
    EXPECT_EQ(CapacityFault({Capacity::kUnlimited, Capacity::kUnlimited, kGiB}, 400, 256, 8),
              "264 BMCs at once would take 2.1 GiB of memory, and there are 1.0 GiB. Use "
              "--gathering 112.");
    EXPECT_EQ(CapacityFault({Capacity::kUnlimited, Capacity::kUnlimited, 1 << 20}, 400, 256, 8),
              "264 BMCs at once would take 2.1 GiB of memory, and there are 1.0 MiB. Use a "
              "smaller --gathering and --transfers.");
}

TEST(Capacity, ThisMachineHasSomeOfEach) {
    const Capacity here = MeasureCapacity();

    EXPECT_GT(here.files, 10U);
    EXPECT_GT(here.processes, 10U);
    EXPECT_GT(here.memory, std::uint64_t{1} << 20);
    EXPECT_LT(here.memory, std::uint64_t{1} << 50);
}

TEST(Capacity, TheLimitOfOpenFilesIsRaised) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);

    EXPECT_EQ(MeasureCapacity().files, limit.rlim_max);

    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, limit.rlim_max);
}

}  // namespace
