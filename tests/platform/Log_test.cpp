// SPDX-License-Identifier: Apache-2.0
#include "Log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <locale>
#include <sstream>
#include <thread>

#include "LogLines.h"
#include "LogSink.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "support/TempFolder.h"

namespace {

using testing::ElementsAre;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr char kSource[] = "src/some/source";

void LogOneOfEach() {
    for (const int level : {1, 2, 3, 4})
        Log(level, kSource, 40 + level).Stream() << "text " << level;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

class LogTest : public testing::Test {
protected:
    // The environment counts up to the first record: for this it is set before.
    void Environment(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }
    void ShortFormat() { Environment("VARNEX_LOG_FORMAT", "%l %g:%# %v"); }

    TempFolder folder;
};

TEST_F(LogTest, FailuresAndWarningsGoToStandardErrorByDefault) {
    CaptureStderr();

    LogOneOfEach();

    const std::vector<std::string> lines = Lines(GetCapturedStderr());
    ASSERT_EQ(2U, lines.size());
    const std::string time =
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} [0-9]+ ";
    EXPECT_THAT(lines[0], testing::MatchesRegex(time + "error src/some/source:41 text 1"));
    EXPECT_THAT(lines[1], testing::MatchesRegex(time + "warning src/some/source:42 text 2"));
}

struct Grouping : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogTest, NumbersAreWrittenTheSameWhateverTheHostsLocale) {
    ShortFormat();
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new Grouping));
    CaptureStderr();

    Log(1, kSource, 1404).Stream() << 1404 << ' ' << 1234567.5;

    std::locale::global(before);
    EXPECT_EQ("error src/some/source:1404 1404 1.23457e+06\n", GetCapturedStderr());
}

TEST_F(LogTest, TheEnvironmentSetsTheLevel) {
    const char* const all[] = {"error src/some/source:41 text 1",
                               "warning src/some/source:42 text 2",
                               "info src/some/source:43 text 3", "debug src/some/source:44 text 4"};
    ShortFormat();
    const int level = 3;
    Environment("VARNEX_LOG_LEVEL", "3");
    CaptureStderr();

    LogOneOfEach();

    EXPECT_EQ(std::vector<std::string>(all, all + level), Lines(GetCapturedStderr()));
}

TEST_F(LogTest, LevelZeroOfTheEnvironmentSilences) {
    Environment("VARNEX_LOG_LEVEL", "0");
    CaptureStderr();

    LogOneOfEach();

    EXPECT_EQ("", GetCapturedStderr());
}

TEST_F(LogTest, ALevelThatIsNoneIsReportedAndTheDefaultTaken) {
    ShortFormat();
    Environment("VARNEX_LOG_LEVEL", "all");
    CaptureStderr();

    LogOneOfEach();

    const std::vector<std::string> lines = Lines(GetCapturedStderr());
    ASSERT_EQ(3U, lines.size());
    EXPECT_THAT(lines[0],
                testing::MatchesRegex(
                    "warning platform/src/Log:[0-9]+ VARNEX_LOG_LEVEL: \"all\" is no number "
                    "from 0 to 4; level 2 is used[.]"));
    EXPECT_EQ("error src/some/source:41 text 1", lines[1]);
}

TEST_F(LogTest, TheEnvironmentSetsTheFile) {
    ShortFormat();
    Environment("VARNEX_LOG_FILE", folder / "log");
    umask(0);
    CaptureStderr();

    LogOneOfEach();

    EXPECT_EQ("", GetCapturedStderr());
    EXPECT_EQ("error src/some/source:41 text 1\nwarning src/some/source:42 text 2\n",
              Content(folder / "log"));
    EXPECT_EQ(0600U, Mode(folder / "log"));
}

TEST_F(LogTest, AFileThatCannotBeOpenedIsReportedAndStandardErrorTaken) {
    ShortFormat();
    Environment("VARNEX_LOG_FILE", folder / "absent/log");
    CaptureStderr();

    LogOneOfEach();

    const std::vector<std::string> lines = Lines(GetCapturedStderr());
    ASSERT_EQ(3U, lines.size());
    EXPECT_THAT(
        lines[0],
        testing::MatchesRegex(
            "warning platform/src/Log:[0-9]+ VARNEX_LOG_FILE: .*/absent/log cannot be opened: "
            "No such file or directory; standard error is used[.]"));
}

TEST_F(LogTest, AnExistingFileIsAppendedToAndKeepsItsMode) {
    const std::string path = folder.Write("log", "before\n");
    chmod(path.c_str(), 0640);
    std::string error = "untouched";
    Varnex::SetLogFormat("%v");

    EXPECT_TRUE(Varnex::SetLogFile(path, error));
    Log(1, kSource, 1).Stream() << "one";

    EXPECT_EQ("before\none\n", Content(path));
    EXPECT_EQ(0640U, Mode(path));
    EXPECT_EQ("untouched", error);
}

TEST_F(LogTest, TheHostChangesTheDestinationAtAnyTime) {
    Varnex::SetLogFormat("%v");
    std::string error;
    CaptureStderr();

    Log(1, kSource, 1).Stream() << "one";
    EXPECT_TRUE(Varnex::SetLogFile(folder / "a", error));
    Log(1, kSource, 1).Stream() << "two";
    EXPECT_FALSE(Varnex::SetLogFile(folder / "absent/b", error));
    Log(1, kSource, 1).Stream() << "three";
    EXPECT_TRUE(Varnex::SetLogFile("", error));
    Log(1, kSource, 1).Stream() << "four";

    EXPECT_EQ("one\nfour\n", GetCapturedStderr());
    EXPECT_EQ("two\nthree\n", Content(folder / "a"));
    EXPECT_EQ("No such file or directory", error);
}

TEST_F(LogTest, TheHostSetsTheLevelOverTheEnvironments) {
    Environment("VARNEX_LOG_LEVEL", "1");
    Varnex::SetLogFormat("%v");
    CaptureStderr();

    Varnex::SetLogLevel(4);
    LogOneOfEach();
    Varnex::SetLogLevel(-3);
    LogOneOfEach();
    Varnex::SetLogLevel(99);
    LogOneOfEach();

    EXPECT_EQ("text 1\ntext 2\ntext 3\ntext 4\ntext 1\ntext 2\ntext 3\ntext 4\n",
              GetCapturedStderr());
}

TEST_F(LogTest, LevelsOutsideTheScaleCountAsItsEnds) {
    Varnex::SetLogFormat("%l %v");
    Varnex::SetLogLevel(1);
    LogLines sink;
    CaptureStderr();

    Log(0, kSource, 1).Stream() << "zero";
    Log(-7, kSource, 1).Stream() << "less";
    Log(9, kSource, 1).Stream() << "nine";

    EXPECT_EQ("error zero\nerror less\n", GetCapturedStderr());
    EXPECT_THAT(sink.Take(), ElementsAre("0 src/some/source: zero", "-7 src/some/source: less",
                                         "9 src/some/source: nine"));
}

TEST_F(LogTest, WhatIsWrittenIsMaskedAndOneLineARecord) {
    Varnex::SetLogFormat("%v");
    CaptureStderr();

    Log(1, kSource, 1).Stream() << "body:\n{\"Password\" : \"s3cret\"}\x1B[2J";
    Log(1, kSource, 1).Stream() << "token is: X-Auth-Token:t0ken\n2026-01-01 forged error";
    Log(1, kSource, 1).Stream() << "{} {0} %v";

    EXPECT_EQ(
        "body:\\x0A{\"Password\" : \"**********\"}\\x1B[2J\n"
        "token is: X-Auth-Token:**********\\x0A2026-01-01 forged error\n"
        "{} {0} %v\n",
        GetCapturedStderr());
}

TEST_F(LogTest, SinksReceiveEveryRecordWhole) {
    Varnex::SetLogLevel(0);
    LogLines sink;
    const std::string text = std::string("a\n\x1B[2J\0 X-Auth-Token:t0ken", 25);

    LogOneOfEach();
    Log(3, kSource, 7).Stream() << text;
    Log(3, kSource, 7);

    EXPECT_THAT(sink.Take(), ElementsAre("1 src/some/source: text 1", "2 src/some/source: text 2",
                                         "3 src/some/source: text 3", "4 src/some/source: text 4",
                                         "3 src/some/source: " + text, "3 src/some/source: "));
}

TEST_F(LogTest, EachSinkReceivesOnceAndNothingAfterItsRemoval) {
    Varnex::SetLogLevel(0);
    LogLines first;
    {
        LogLines second;
        Varnex::AddLogSink(&second);
        Log(1, kSource, 1).Stream() << "one";
        EXPECT_THAT(second.Take(), ElementsAre("1 src/some/source: one"));
        Varnex::RemoveLogSink(&second);
        Log(1, kSource, 1).Stream() << "two";
        EXPECT_THAT(second.Take(), testing::IsEmpty());
    }
    Varnex::AddLogSink(nullptr);
    Log(1, kSource, 1).Stream() << "three";

    EXPECT_THAT(first.Take(), ElementsAre("1 src/some/source: one", "1 src/some/source: two",
                                          "1 src/some/source: three"));
}

// Logs itself, and then throws.
class BadSink : public Varnex::LogSink {
public:
    void Receive(const Varnex::LogRecord& record) override {
        ++received;
        Log(1, kSource, 1).Stream() << "about: " << record.text;
        throw std::runtime_error("bad");
    }
    int received = 0;
};

TEST_F(LogTest, ASinkMayLogAndEvenThrow) {
    Varnex::SetLogFormat("%v");
    BadSink bad;
    Varnex::AddLogSink(&bad);
    CaptureStderr();

    Log(1, kSource, 1).Stream() << "one";
    Log(1, kSource, 1).Stream() << "two";

    EXPECT_EQ("one\nabout: one\ntwo\nabout: two\n", GetCapturedStderr());
    EXPECT_EQ(2, bad.received);
    Varnex::RemoveLogSink(&bad);
}

TEST_F(LogTest, TheSourceNameNeedNotOutliveTheConstructor) {
    LogLines sink;
    Varnex::SetLogLevel(0);
    {
        std::string source = "src/gone/already";
        Log record(1, source.c_str(), 1);
        source.assign(source.size(), 'x');
        record.Stream() << "text";
    }
    { Log record(1, nullptr, 1); }

    EXPECT_THAT(sink.Take(), ElementsAre("1 src/gone/already: text", "1 : "));
}

TEST_F(LogTest, RecordsThatCannotBeWrittenAreLostAndNothingElseHappens) {
    std::string error;
    ASSERT_TRUE(Varnex::SetLogFile("/dev/full", error)) << error;
    LogLines sink;

    Log(1, kSource, 1).Stream() << "one";

    EXPECT_THAT(sink.Take(), ElementsAre("1 src/some/source: one"));
}

TEST_F(LogTest, HugeRecordsAreWrittenWhole) {
    Varnex::SetLogFormat("%v");
    std::string error;
    ASSERT_TRUE(Varnex::SetLogFile(folder / "log", error));

    Log(1, kSource, 1).Stream() << std::string(16 * 1024 * 1024, 'x');

    EXPECT_EQ(16U * 1024 * 1024 + 1, Content(folder / "log").size());
}

// Counts, and looks whether anybody is inside after its removal.
class CountingSink : public Varnex::LogSink {
public:
    void Receive(const Varnex::LogRecord&) override {
        if (removed) ++tooLate;
        ++received;
    }
    std::atomic<int> received{0};
    std::atomic<int> tooLate{0};
    std::atomic<bool> removed{false};
};

TEST_F(LogTest, ManyThreadsLogWholeRecordsWhileSinksComeAndGo) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 400;
    Varnex::SetLogFormat("%v");
    std::string error;
    ASSERT_TRUE(Varnex::SetLogFile(folder / "log", error));
    CountingSink all;
    Varnex::AddLogSink(&all);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i] {
            for (int n = 0; n < kRecords; ++n) {
                Log(1, kSource, n).Stream() << "<" << i << " " << std::string(300, 'x') << ">";
            }
        });
    }

    for (int i = 0; i < 50; ++i) {
        CountingSink some;
        Varnex::AddLogSink(&some);
        std::this_thread::yield();
        Varnex::RemoveLogSink(&some);
        some.removed = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(0, some.tooLate);
    }
    for (std::thread& thread : threads) thread.join();
    Varnex::RemoveLogSink(&all);

    EXPECT_EQ(kThreads * kRecords, all.received);
    const std::vector<std::string> lines = Lines(Content(folder / "log"));
    EXPECT_EQ(static_cast<std::size_t>(kThreads * kRecords), lines.size());
    for (const std::string& line : lines) {
        ASSERT_EQ(304U, line.size());
        ASSERT_EQ('<', line.front());
        ASSERT_EQ('>', line.back());
    }
}

TEST_F(LogTest, RemovalIsNotKeptWaitingByThreadsThatLogWithoutPause) {
    Varnex::SetLogLevel(0);
    CountingSink sink;
    Varnex::AddLogSink(&sink);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&done] {
            while (!done) Log(4, kSource, 1).Stream() << "x";
        });
    }
    while (sink.received < 100) std::this_thread::yield();

    const auto start = std::chrono::steady_clock::now();
    Varnex::RemoveLogSink(&sink);
    const auto waited = std::chrono::steady_clock::now() - start;
    done = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_LT(waited, std::chrono::seconds(5));
}

}  // namespace
