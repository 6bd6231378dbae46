// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Events.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "LogSink.h"

namespace {

namespace json = boost::json;
using Kemffdc::Events;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Standard output of a run: a pipe that holds all that these tests print.
class Output {
public:
    Output() {
        if (pipe2(m_ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    }
    ~Output() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    int Descriptor() const { return m_ends[1]; }

    std::vector<std::string> Lines() const {
        std::string text(65536, '\0');
        const ssize_t got = read(m_ends[0], text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        std::istringstream stream(text);
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        return lines;
    }

private:
    int m_ends[2] = {-1, -1};
};

std::string EventOf(const std::string& line) {
    const json::value parsed = json::parse(line);
    const json::value* event = parsed.as_object().if_contains("event");
    return event == nullptr ? "" : std::string(event->as_string());
}

TEST(Events, WhatIsShownOnTheTerminalShowsNoSecretHereEither) {
    Varnex::HideInLog("battery-staple");
    const Output output;
    Events events(output.Descriptor());
    events.StateShown("it said battery-staple");
    events.StepShown("it said battery-staple");
    events.WorkShown(40, "it said battery-staple");
    events.LineShown("it said battery-staple");
    EXPECT_TRUE(events.End({}));
    const std::vector<std::string> lines = output.Lines();
    ASSERT_EQ(lines.size(), 5U);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_THAT(lines[i], Not(HasSubstr("staple")));
        EXPECT_THAT(lines[i], HasSubstr("it said **********"));
    }
}

TEST(Events, NumbersComeInOrderAndTheResultHasNone) {
    const Output output;
    Events events(output.Descriptor());
    events.StepBegun("connect");
    events.StepShown("connect");  // the same, on the terminal
    events.StepEnded({"connect", 0, 0.25, ""});
    EXPECT_TRUE(events.End({}));
    events.StepBegun("too late");
    const std::vector<std::string> lines = output.Lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr(R"({"schema":1,"number":1,"event":"step-begun")"));
    EXPECT_THAT(lines[1], HasSubstr(R"("number":2,"event":"step-ended")"));
    EXPECT_THAT(lines[1], HasSubstr(R"("seconds":0.25,)"));
    EXPECT_EQ(EventOf(lines[2]), "");
    EXPECT_THAT(lines[2], HasSubstr(R"("outcome":"checked")"));
}

TEST(Events, EachTransferTellsItsFirstBytesAtOnce) {
    const Output output;
    Events events(output.Descriptor());
    for (const char* file : {"file 1 of 2", "file 2 of 2"}) {
        events.StepShown(file);
        events.BytesShown(0, 100);
        events.BytesShown(50, 100);  // within the second
    }
    EXPECT_TRUE(events.End({}));
    std::vector<std::string> kinds;
    for (const std::string& line : output.Lines()) kinds.push_back(EventOf(line));
    EXPECT_THAT(kinds, ElementsAre("state", "bytes", "state", "bytes", ""));
}

}  // namespace
