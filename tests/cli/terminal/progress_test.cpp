// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Progress.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

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

struct NarrowRow {
    int columns;
    const char* line;
};

TEST(ProgressLine, KeepsShareAndRateWhereTheTerminalIsNarrow) {
    Moment moment = At(63s, "download");
    moment.transfer = true;
    moment.bytes = 13002342;
    moment.expected = 104857600;
    moment.transferTime = 2s;
    const NarrowRow rows[] = {
        {60, "1:03  download: 12.4 MiB of 100.0 MiB (12 %), 6.2 MiB/s"},
        {56, "1:03  download: 12.4 MiB of 100.0 MiB (12 %), 6.2 MiB/s"},
        {55, "1:03  download: 12.4 MiB, 12 %, 6.2 MiB/s"},
        {40, "1:03  download: 12 %, 6.2 MiB/s"},
        {30, "1:03  downlo: 12 %, 6.2 MiB/s"},
        {24, "1:03  12 %, 6.2 MiB/s"},
        {20, "1:03  12 %, 6.2 MiB"},
    };
    for (const NarrowRow& row : rows) EXPECT_EQ(ProgressLine(moment, row.columns), row.line);
}

TEST(ProgressLine, CutsALongStepBeforeTheFiguresOfATransfer) {
    Moment moment = At(3723s, "download, file 2 of 5 (a-long-name-of-a-file.tzz)");
    moment.transfer = true;
    moment.bytes = 13002342;
    moment.expected = 104857600;
    moment.transferTime = 2s;
    EXPECT_EQ(ProgressLine(moment, 40), "1:02:03  download, fil: 12 %, 6.2 MiB/s");
    moment.expected = 0;
    EXPECT_EQ(ProgressLine(moment, 40), "1:02:03  download: 12.4 MiB, 6.2 MiB/s");
}

TEST(ProgressLine, ShowsWhatTheBmcSaysOfItsWork) {
    Moment moment = At(125s, "gather", "task Running");
    moment.percent = 40;
    EXPECT_EQ(ProgressLine(moment, 80), "2:05  gather: task Running, 40 %");
    moment.message = "Collecting the event log";
    EXPECT_EQ(ProgressLine(moment, 80),
              "2:05  gather: task Running, 40 %, Collecting the event log");
    EXPECT_EQ(ProgressLine(moment, 40), "2:05  gather: task Running, 40 %, Colle");
    moment.state.clear();
    moment.percent.reset();
    EXPECT_EQ(ProgressLine(moment, 80), "2:05  gather: Collecting the event log");
}

int Eighty() { return 80; }

// What it heard, in order.
class Hearer : public Kemffdc::ProgressObserver {
public:
    void StepShown(const std::string& step) override { m_heard.push_back("step " + step); }
    void StateShown(const std::string& state) override { m_heard.push_back("state " + state); }
    void WorkShown(std::optional<int> percent, const std::string& message) override {
        m_heard.push_back("work " + std::to_string(percent.value_or(-1)) + " " + message);
    }
    void BytesShown(std::uint64_t bytes, std::uint64_t expected) override {
        m_heard.push_back("bytes " + std::to_string(bytes) + " of " + std::to_string(expected));
    }
    void LineShown(const std::string& line) override { m_heard.push_back("line " + line); }

    const std::vector<std::string>& Heard() const { return m_heard; }

private:
    std::vector<std::string> m_heard;
};

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

TEST(Progress, OffATerminalThereIsALineEveryTenSecondsOfATransfer) {
    std::ostringstream out;
    Progress::Time now;
    Progress progress(out, false, Eighty, nullptr, [&now] { return now; });
    progress.Step("download");
    for (int second = 0; second <= 25; ++second) {
        progress.Bytes(static_cast<std::uint64_t>(second) << 20, std::uint64_t{100} << 20);
        now += 1s;
    }
    EXPECT_EQ(out.str(),
              "0:00  download\n"
              "0:10  download: 10.0 MiB of 100.0 MiB (10 %), 1.0 MiB/s\n"
              "0:20  download: 20.0 MiB of 100.0 MiB (20 %), 1.0 MiB/s\n");
}

TEST(Progress, AnObserverHearsEachChangeOnceAndEveryCount) {
    std::ostringstream out;
    Hearer hearer;
    Progress progress(out, false, Eighty, &hearer);
    progress.Step("gather");
    progress.State("task Running");
    progress.State("task Running");
    progress.Work(40, "at work");
    progress.Work(40, "at work");
    progress.End();
    progress.Bytes(1, 2);
    progress.Say("a line");
    EXPECT_THAT(hearer.Heard(),
                testing::ElementsAre("step gather", "state task Running", "work 40 at work",
                                     "bytes 1 of 2", "line a line"));
    EXPECT_EQ(out.str(),
              "0:00  gather\n0:00  gather: task Running\n"
              "0:00  gather: task Running, 40 %, at work\n");
}

TEST(Progress, AnotherStateForgetsItToo) {
    std::ostringstream out;
    Progress progress(out, false, Eighty);
    progress.Step("gather");
    progress.Work(40, "at work");
    progress.State("task Completed");
    EXPECT_THAT(out.str(), testing::EndsWith("0:00  gather: task Completed\n"));
}

TEST(Progress, AnotherStepForgetsWhatTheBmcSaidOfItsWork) {
    std::ostringstream out;
    Progress progress(out, false, Eighty);
    progress.Step("gather");
    progress.Work(100, "done");
    progress.Step("download");
    EXPECT_THAT(out.str(), testing::EndsWith("0:00  download\n"));
}

}  // namespace
