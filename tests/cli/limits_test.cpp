// SPDX-License-Identifier: Apache-2.0
#include "cli/Limits.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

#include "support/TempFolder.h"

namespace {

using Kemffdc::Limits;
using testing::HasSubstr;

constexpr std::uint64_t kNone = 0;

TEST(LimitsTest, WithoutLimitsNothingIsStopped) {
    Limits limits(kNone, kNone);
    EXPECT_TRUE(limits.Progress({"/a", 1ULL << 50, 1ULL << 60}));
    EXPECT_TRUE(limits.Reached().Ok());
}

TEST(LimitsTest, WhatIsAnnouncedCountsAtOnce) {
    Limits limits(1000, kNone);
    EXPECT_TRUE(limits.Progress({"/a", 0, 1000}));
    EXPECT_FALSE(limits.Progress({"/b", 0, 1001}));
    EXPECT_EQ(limits.Reached().code, 7);
    EXPECT_THAT(limits.Reached().reason,
                HasSubstr("larger than --max-size allows (1000 B in all)"));
}

TEST(LimitsTest, FilesOfARunCountTogetherAndTheirProgressOnce) {
    Limits limits(1000, kNone);
    for (const std::uint64_t bytes : {100U, 300U, 500U}) {
        EXPECT_TRUE(limits.Progress({"/a", bytes, 0})) << bytes;
    }
    limits.Ended("/a", std::make_error_code(std::errc::io_error));
    EXPECT_TRUE(limits.Progress({"/b", 500, 0}));
    EXPECT_FALSE(limits.Progress({"/b", 501, 0}));
}

TEST(LimitsTest, AFileFetchedTwiceCountsTwice) {
    Limits limits(1000, kNone);
    EXPECT_TRUE(limits.Progress({"/a", 600, 0}));
    limits.Ended("/a", std::make_error_code(std::errc::io_error));
    EXPECT_FALSE(limits.Progress({"/a", 600, 0}));
}

TEST(LimitsTest, AfterALimitEveryDownloadIsStopped) {
    Limits limits(1000, kNone);
    EXPECT_FALSE(limits.Progress({"/a", 1001, 0}));
    EXPECT_FALSE(limits.Progress({"/b", 0, 0}));
}

TEST(LimitsTest, BytesThatNoProgressToldCountAtTheEnd) {
    const TempFolder folder;
    std::ofstream(folder / "a") << std::string(1001, 'a');
    Limits limits(1000, kNone);
    limits.Ended(folder / "a", {});
    EXPECT_EQ(limits.Reached().code, 7);
}

TEST(LimitsTest, TheDiskIsLookedAtBeforeTheFirstDownload) {
    const TempFolder folder;
    const std::uint64_t free = std::filesystem::space(folder.Path()).available;
    Limits enough(kNone, free / 2);
    EXPECT_TRUE(enough.Watch(folder.Path()).Ok());
    Limits tooLittle(kNone, free * 2);
    const auto outcome = tooLittle.Watch(folder.Path());
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.reason,
                HasSubstr("The disk of the output folder " + folder.Path() + " has "));
}

TEST(LimitsTest, WhatTheDiskCannotHoldIsStoppedBeforeItIsFull) {
    const TempFolder folder;
    const std::uint64_t free = std::filesystem::space(folder.Path()).available;
    Limits limits(kNone, free / 2);
    ASSERT_TRUE(limits.Watch(folder.Path()).Ok());
    EXPECT_TRUE(limits.Progress({"/a", 0, 0}));  // the size is not known yet
    EXPECT_TRUE(limits.Progress({"/a", 0, free / 4}));
    EXPECT_FALSE(limits.Progress({"/a", 0, free}));
    EXPECT_EQ(limits.Reached().code, 8);
    EXPECT_THAT(limits.Reached().reason, HasSubstr("it would leave less than --keep-free"));
}

}  // namespace
