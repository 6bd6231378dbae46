// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Progress.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

using namespace std::chrono_literals;
using Kemffdc::Moment;
using Kemffdc::Progress;
using Kemffdc::ProgressLine;
using testing::HasSubstr;
using testing::Not;

Moment At(std::chrono::milliseconds elapsed, const char* step, const char* state = "") {
    Moment moment;
    moment.elapsed = elapsed;
    moment.step = step;
    moment.state = state;
    return moment;
}

TEST(ProgressLine, ShowsElapsedTimeStepAndState) {
    EXPECT_EQ(ProgressLine(At(0ms, "connect"), 80), "0:00  connect");
    EXPECT_EQ(ProgressLine(At(125s, "gather", "task Running"), 80), "2:05  gather: task Running");
    EXPECT_EQ(ProgressLine(At(12s, "start", "BMC is starting (503)"), 80),
              "0:12  start: BMC is starting (503)");
}

TEST(ProgressLine, ShowsBytesShareAndRateOfADownload) {
    Moment moment = At(63s, "download", "task Completed");
    moment.transfer = true;
    moment.bytes = 13002342;
    moment.expected = 104857600;
    moment.transferTime = 2s;
    EXPECT_EQ(ProgressLine(moment, 80), "1:03  download: 12.4 MiB of 100.0 MiB (12 %), 6.2 MiB/s");
}

TEST(ProgressLine, ShowsNoShareWhereTheServerDidNotSayTheSize) {
    Moment moment = At(1s, "download");
    moment.transfer = true;
    moment.bytes = 2048;
    EXPECT_EQ(ProgressLine(moment, 80), "0:01  download: 2.0 KiB");
    moment.expected = 10;  // less than a hundred bytes: no division by zero
    EXPECT_EQ(ProgressLine(moment, 80), "0:01  download: 2.0 KiB of 10 B (100 %)");
}

TEST(ProgressLine, LeavesTheLastColumnOfTheTerminalFree) {
    EXPECT_EQ(ProgressLine(At(0ms, "gather", "task Running"), 20), "0:00  gather: task ");
    EXPECT_EQ(ProgressLine(At(0ms, "gather", "task Running"), 5), "0:00");
    EXPECT_EQ(ProgressLine(At(0ms, "gather", "task Running"), 1), "0");
}

int Eighty() { return 80; }

TEST(Progress, OffATerminalThereIsALineForEachChangeAndNoEscape) {
    std::ostringstream out;
    {
        Progress progress(out, false, Eighty);
        progress.Step("connect");
        progress.Step("gather");
        progress.State("task New");
        progress.State("task Running");
        progress.State("task Running");
        progress.Step("download");
        progress.Bytes(10, 100);
        progress.Bytes(100, 100);
    }
    EXPECT_EQ(out.str(),
              "0:00  connect\n0:00  gather\n0:00  gather: task New\n0:00  gather: task Running\n"
              "0:00  download\n");
}

TEST(Progress, OnATerminalOneLineIsRedrawnAndLeftEmptyAtTheEnd) {
    std::ostringstream out;
    {
        Progress progress(out, true, Eighty);
        progress.Step("gather");
        progress.State("task Running");
    }
    EXPECT_THAT(out.str(), HasSubstr("\r\033[K0:00  gather: task Running"));
    EXPECT_THAT(out.str(), Not(HasSubstr("\n")));
    EXPECT_THAT(out.str(), testing::EndsWith("\r\033[K"));
}

TEST(Progress, AfterTheEndNothingIsShown) {
    std::ostringstream out;
    Progress progress(out, true, Eighty);
    progress.Step("gather");
    progress.End();
    const std::string before = out.str();
    progress.State("task Running");
    progress.Bytes(1, 2);
    progress.Say("a line");
    EXPECT_EQ(out.str(), before);
}

TEST(Progress, ALineOfItsOwnStandsAboveTheLiveLine) {
    std::ostringstream out;
    {
        Progress progress(out, true, Eighty);
        progress.Step("gather");
        progress.Say("a line");
    }
    EXPECT_THAT(out.str(), HasSubstr("\r\033[Ka line\n\r\033[K0:00  gather"));
}

}  // namespace
