// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/View.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cli/fleet/MadeScene.h"

namespace {

using namespace MadeScene;
using Kemffdc::TerminalSize;
using Kemffdc::Fleet::Audience;
using Kemffdc::Fleet::Console;
using Kemffdc::Fleet::PlainView;
using Kemffdc::Fleet::TerminalView;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A terminal that knows no more than LiveBlock needs, and tells what stands on it.
struct Screen {
    std::vector<std::string> lines{""};
    std::size_t row = 0;
    TerminalSize size;
    bool ready = true;
    bool finished = false;
    int writes = 0;

    void Take(const std::string& text) {
        ++writes;
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '\033') {
                at = text.find_first_of("AJK", at);
                const std::size_t up = text.find_last_of('[', at) + 1;
                if (text[at] == 'A') row -= static_cast<std::size_t>(std::stoi(text.substr(up)));
                if (text[at] == 'J') lines.resize(row + 1);
                if (text[at] != 'A' && m_column == 0) lines.at(row).clear();
            } else if (text[at] == '\n') {
                if (++row == lines.size()) lines.emplace_back();
                m_column = 0;
            } else if (text[at] == '\r') {
                m_column = 0;
            } else {
                if (m_column == 0) lines.at(row).clear();  // each line is written as a whole
                lines.at(row) += text[at];
                ++m_column;
            }
        }
    }

private:
    std::size_t m_column = 0;
};

class ScreenConsole : public Console {
public:
    explicit ScreenConsole(Screen& screen) : m_screen(screen) {}

    void Write(const std::string& text) override { m_screen.Take(text + "\n"); }
    bool IsReady() const override { return m_screen.ready; }
    TerminalSize Size() const override { return m_screen.size; }
    void Finish(const std::string& text) override {
        Write(text);
        m_screen.finished = true;
    }

private:
    Screen& m_screen;
};

Scene ThreeHosts() {
    Scene scene = RunOf(0);
    AddMany(scene, 1, 3, HostState::kQueued);
    return scene;
}

void Fail(Scene& scene, std::size_t host, const std::string& reason, Audience& view) {
    scene.hosts[host].state = HostState::kFailed;
    scene.hosts[host].since = scene.now;
    scene.hosts[host].outcome = "unreachable";
    scene.hosts[host].reason = reason;
    view.Changed(scene, host);
}

// A tick each quarter of a second, up to then.
void RunUntil(double second, Scene& scene, Audience& view) {
    while (scene.now < At(second)) {
        scene.now += std::chrono::milliseconds(250);
        view.Tick(scene);
    }
}

class TerminalViews : public testing::Test {
protected:
    Screen m_screen;
    TerminalView m_view{std::make_unique<ScreenConsole>(m_screen)};
    Scene m_scene = ThreeHosts();
    const std::string m_bar = "[" + std::string(60, '-') + "]  0 %";
    const std::string m_begun = "Run 12 (collect): 3 hosts, into /srv/ffdc/run";
};

TEST_F(TerminalViews, BeginWithTheTable) {
    m_view.Begun(m_scene);
    EXPECT_THAT(m_screen.lines,
                ElementsAre(m_begun, "Run 12 (collect), 0 of 3 ended, 0:00, time left unknown",
                            m_bar, "3 queued", ""));
}

TEST_F(TerminalViews, PutFailuresAboveTheTableAsTheyCome) {
    m_view.Begun(m_scene);
    RunUntil(2, m_scene, m_view);
    Fail(m_scene, 1, "Nothing answers.", m_view);
    m_view.Changed(m_scene, 1);  // told once
    m_view.Noted("A note.");
    RunUntil(3, m_scene, m_view);
    EXPECT_THAT(m_screen.lines,
                ElementsAre(m_begun, "0:02  bmc002: no answer. Nothing answers.", "A note.",
                            "Run 12 (collect), 1 of 3 ended, 0:03, time left unknown",
                            "[####################----------------------------------------]  33 %",
                            "1 failed, 2 queued", ""));
}

TEST_F(TerminalViews, HaveOneLineForEachFailure) {
    m_view.Begun(m_scene);
    Fail(m_scene, 1,
         "Nothing answers at 192.0.2.17 port 443, which is silent. " + std::string(80, 'x'),
         m_view);
    m_view.Ended(m_scene, 20);
    EXPECT_EQ(m_screen.lines[1],
              "0:00  bmc002: no answer. Nothing answers at 192.0.2.17 port 443, which is si...");
}

TEST_F(TerminalViews, LeaveNothingOfTheTableBehind) {
    m_view.Begun(m_scene);
    RunUntil(2, m_scene, m_view);
    Fail(m_scene, 1, "Nothing answers.", m_view);
    m_view.Ended(m_scene, 20);
    EXPECT_TRUE(m_screen.finished);
    EXPECT_THAT(m_screen.lines,
                ElementsAre(m_begun, "0:02  bmc002: no answer. Nothing answers.", "", ""));
}

TEST_F(TerminalViews, SayNothingOfHostsThatHadFailedBefore) {
    m_scene.hosts[0].state = HostState::kFailed;
    m_view.Begun(m_scene);
    m_view.Changed(m_scene, 0);
    m_view.Ended(m_scene, 20);
    EXPECT_THAT(m_screen.lines, ElementsAre(m_begun, "", ""));
}

TEST_F(TerminalViews, WaitForATerminalThatStandsStillAndSkipWhatIsOutOfDate) {
    m_view.Begun(m_scene);
    m_screen.ready = false;
    const int writes = m_screen.writes;
    RunUntil(5, m_scene, m_view);
    Fail(m_scene, 1, "Nothing answers.", m_view);
    RunUntil(10, m_scene, m_view);
    EXPECT_EQ(m_screen.writes, writes);
    m_screen.ready = true;
    RunUntil(10.25, m_scene, m_view);
    EXPECT_EQ(m_screen.writes, writes + 1);
    EXPECT_THAT(m_screen.lines, testing::Contains("0:05  bmc002: no answer. Nothing answers."));
}

TEST_F(TerminalViews, KeepTheNewestLinesOfATerminalThatStandsStill) {
    m_view.Begun(m_scene);
    m_screen.ready = false;
    for (int i = 1; i <= 5000; ++i) m_view.Noted("Note " + std::to_string(i) + ".");
    m_view.Ended(m_scene, 130);
    EXPECT_EQ(m_screen.lines.size(), 1002U);
    EXPECT_EQ(m_screen.lines[999], "Note 5000.");
}

TEST_F(TerminalViews, TakeTheNewSizeOnceItStays) {
    m_view.Begun(m_scene);
    m_screen.size = {40, 24};
    const int writes = m_screen.writes;
    m_scene.now = At(0.25);
    m_view.Tick(m_scene);
    m_screen.size = {30, 24};
    m_scene.now = At(0.5);
    m_view.Tick(m_scene);
    EXPECT_EQ(m_screen.writes, writes);
    m_scene.now = At(0.75);
    m_view.Tick(m_scene);
    EXPECT_THAT(m_screen.lines,
                ElementsAre(m_begun, "Run 12 (collect),", "0 of 3 ended, 0:00,",
                            "time left unknown", "[----------------------]  0 %", "3 queued", ""));
}

TEST_F(TerminalViews, DrawBelowWhatTheShellWroteWhileTheyWereStopped) {
    m_view.Begun(m_scene);
    m_screen.Take("\n[1]+  Stopped\n$ fg\n");
    m_scene.now = At(60);
    m_view.Tick(m_scene);
    EXPECT_THAT(m_screen.lines,
                ElementsAre(m_begun, "Run 12 (collect), 0 of 3 ended, 0:00, time left unknown",
                            m_bar, "3 queued", "", "[1]+  Stopped", "$ fg",
                            "Run 12 (collect), 0 of 3 ended, 1:00, time left unknown", m_bar,
                            "3 queued", ""));
}

TEST_F(TerminalViews, ShowNothingThatSteersTheTerminal) {
    m_view.Begun(m_scene);
    Fail(m_scene, 1, "\033[2J\033]0;owned\007", m_view);
    m_view.Noted("\033[1A");
    RunUntil(1, m_scene, m_view);
    EXPECT_EQ(m_screen.lines[1], "0:00  bmc002: no answer. \\x1B[2J\\x1B]0;owned\\x07");
    EXPECT_EQ(m_screen.lines[2], "\\x1B[1A");
}

class PlainViews : public testing::Test {
protected:
    Screen m_screen;
    PlainView m_view{std::make_unique<ScreenConsole>(m_screen)};
};

TEST_F(PlainViews, SayEachFailureAndTheStateEverySoOften) {
    Scene scene = ThreeHosts();
    m_view.Begun(scene);
    RunUntil(4, scene, m_view);
    Fail(scene, 1, "Nothing answers.", m_view);
    m_view.Changed(scene, 1);
    m_view.Noted("A note.");
    RunUntil(25, scene, m_view);
    scene.live = false;
    m_view.Ended(scene, 20);
    EXPECT_THAT(m_screen.lines, ElementsAre("Run 12 (collect): 3 hosts, into /srv/ffdc/run",
                                            "0:04  bmc002: no answer. Nothing answers.", "A note.",
                                            "0:10  3 hosts: 1 failed, 2 queued; time left unknown",
                                            "0:20  3 hosts: 1 failed, 2 queued; time left unknown",
                                            "0:25  3 hosts: 1 failed, 2 queued", ""));
}

TEST_F(PlainViews, AreBoundedHoweverManyFailAndHoweverLongItTakes) {
    Scene scene = RunOf(0);
    for (int i = 0; i < 10000; ++i) Add(scene, "bmc" + std::to_string(i), HostState::kQueued);
    m_view.Begun(scene);
    for (std::size_t i = 0; i < scene.hosts.size(); ++i) Fail(scene, i, "Nothing answers.", m_view);
    EXPECT_EQ(m_screen.lines.size(), 103U);
    EXPECT_EQ(m_screen.lines[101],
              "More hosts have failed; they are counted, and stand in the report.");
    scene.hosts.resize(1);
    for (int second = 1; second <= 24 * 3600; ++second) {
        scene.now = At(second);
        m_view.Tick(scene);
    }
    EXPECT_LT(m_screen.lines.size(), 200U);
}

TEST_F(PlainViews, HoldNoEscapeCode) {
    Scene scene = ThreeHosts();
    m_view.Begun(scene);
    Fail(scene, 1, "\033[2J", m_view);
    m_view.Ended(scene, 20);
    EXPECT_THAT(m_screen.lines[1], "0:00  bmc002: no answer. \\x1B[2J");
}

}  // namespace
