// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Picture.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "cli/fleet/MadeScene.h"
#include "cli/terminal/Text.h"

namespace {

using namespace MadeScene;
using Kemffdc::ColumnsOf;
using Kemffdc::Fleet::FailureLine;
using Kemffdc::Fleet::StateLine;
using Kemffdc::Fleet::Table;
using testing::ElementsAre;

TEST(Table, FillsHalfOfAScreenOf80x24) {
    EXPECT_THAT(
        Table(Busy(), kBusyRate, {80, 24}),
        ElementsAre(
            "Run 12 (collect), 123 of 400 ended, 3:12, about 6 min left",
            "[###############-----------------------------------]  30 %, 4.4 GiB, 45.2 MiB/s",
            "120 done, 3 failed, 8 transferring, 20 waiting, 139 gathering, 9 connecting,",
            "1 pausing, 100 queued",
            "bmc291  pausing          3:08  The BMC is busy with another gathering.",
            "bmc152  gathering        3:02   85 %  Dumping processor 1.",
            "bmc124  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc125  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc126  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc127  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc128  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc129  transferring     2:02   12 %  12.4 MiB of 100.0 MiB",
            "bmc130  transferring     2:02   12 %  12.4 MiB of 100.0 MiB"));
}

TEST(Table, BreaksItsLinesWhereThereAreFortyColumns) {
    EXPECT_THAT(Table(Busy(), kBusyRate, {40, 14}),
                ElementsAre("Run 12 (collect), 123 of 400 ended,",  //
                            "3:12, about 6 min left",               //
                            "[###-------]  30 %, 4.4 GiB, 45.2 MiB/s",
                            "120 done, 3 failed, 8 transferring,",
                            "20 waiting, 139 gathering,",           //
                            "9 connecting, 1 pausing, 100 queued",  //
                            "bmc291 pausing         3:08 The BMC is",
                            "bmc152 gathering       3:02  85 %  Dump",
                            "bmc124 transferring    2:02  12 %  12.4"));
}

TEST(Table, HasEachThingOnOneLineOf200Columns) {
    Scene scene = Busy();
    scene.hosts[151].message =
        "Dumping processor 1 of 2, which has ended with a fault of its memory "
        "controller; this takes a while.";
    EXPECT_THAT(
        Table(scene, kBusyRate, {200, 12}),
        ElementsAre(
            "Run 12 (collect), 123 of 400 ended, 3:12, about 6 min left",
            "[##################------------------------------------------]  30 %, 4.4 GiB, "
            "45.2 MiB/s",
            "120 done, 3 failed, 8 transferring, 20 waiting, 139 gathering, 9 connecting, "
            "1 pausing, 100 queued",
            "bmc291  pausing          3:08  The BMC is busy with another gathering.",
            "bmc152  gathering        3:02   85 %  Dumping processor 1 of 2, which has ended "
            "with a fault of its memory controller; this takes a while.",
            "bmc124  transferring     2:02   12 %  12.4 MiB of 100.0 MiB"));
}

TEST(Table, OfARunThatHasJustBegun) {
    Scene scene = RunOf(0);
    AddMany(scene, 1, 3, HostState::kQueued);
    EXPECT_THAT(Table(scene, 0, {80, 24}),
                ElementsAre("Run 12 (collect), 0 of 3 ended, 0:00, time left unknown",
                            "[" + std::string(60, '-') + "]  0 %", "3 queued"));
}

TEST(Table, NamesTheOldestFirstAndOnlyThoseAtWork) {
    Scene scene = RunOf(4000);
    Add(scene, "second", HostState::kReached, 10, 5);
    Add(scene, "done", HostState::kDone, 10, 1);
    Add(scene, "first", HostState::kExporting, 30, 2);
    Add(scene, "never", HostState::kQueued);
    EXPECT_THAT(Table(scene, 0, {61, 24}),
                ElementsAre("Run 12 (collect), 1 of 4 ended, 1:06:40, time left unknown",
                            "[#############---------------------------------------]  25 %",
                            "1 done, 2 connecting, 1 queued", "first   connecting    1:06:38",
                            "second  connecting    1:06:35"));
}

TEST(Table, ShowsNothingThatSteersTheTerminal) {
    Scene scene = RunOf(10);
    SceneHost& host = Add(scene, "bmc\x1b[2J", HostState::kGathering, 1, 0);
    host.message = "\x1b]0;owned\x07 \xe2\x80\xae";
    for (const std::string& line : Table(scene, 0, {200, 24})) {
        EXPECT_FALSE(Kemffdc::HasControl(line)) << line;
        EXPECT_EQ(line.find("\xe2\x80\xae"), std::string::npos) << line;
    }
}

TEST(Table, KeepsItsColumnsUnderWideCharacters) {
    Scene scene = RunOf(10);
    Add(scene, "机架-7", HostState::kGathering, 1, 0);
    Add(scene, "bmc0001", HostState::kGathering, 2, 1);
    const std::vector<std::string> lines = Table(scene, 0, {61, 24});
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[3], "机架-7   gathering        0:10");
    EXPECT_EQ(lines[4], "bmc0001  gathering        0:09");
}

TEST(Table, IsLowerAndNarrowerThanAnyTerminal) {
    const Scene scene = Busy();
    for (int columns = 1; columns <= 220; ++columns) {
        for (const int rows : {1, 2, 3, 5, 8, 24, 60}) {
            const std::vector<std::string> lines = Table(scene, kBusyRate, {columns, rows});
            EXPECT_LE(lines.size(), static_cast<std::size_t>(std::max(rows - 2, 1)));
            for (const std::string& line : lines) {
                EXPECT_LE(ColumnsOf(line), static_cast<std::size_t>(std::max(columns - 1, 1)))
                    << line;
            }
        }
    }
}

TEST(StateLine, SaysTheSameOnOneLine) {
    EXPECT_EQ(StateLine(Busy(), kBusyRate),
              "3:12  400 hosts: 120 done, 3 failed, 8 transferring, 20 waiting, 139 gathering, "
              "9 connecting, 1 pausing, 100 queued; 4.4 GiB, 45.2 MiB/s; about 6 min left");
}

TEST(FailureLine, SaysWhichHostAndWhy) {
    Scene scene = RunOf(42);
    SceneHost& host = Add(scene, "bmc003", HostState::kFailed, 41, 1);
    EXPECT_EQ(FailureLine(scene, host), "0:42  bmc003: failed.");
    host.outcome = "login-refused";
    EXPECT_EQ(FailureLine(scene, host), "0:42  bmc003: wrong password.");
    host.reason = "The BMC does not take it.";
    EXPECT_EQ(FailureLine(scene, host), "0:42  bmc003: wrong password. The BMC does not take it.");
}

}  // namespace
