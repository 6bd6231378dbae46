// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/View.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "cli/fleet/Picture.h"
#include "cli/fleet/SceneEvents.h"
#include "cli/fleet/SceneJson.h"
#include "cli/fleet/Summary.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using namespace std::chrono_literals;
using History::HostState;

constexpr std::size_t kMostWaiting = 1000;  // lines, while the terminal stands still
constexpr std::size_t kNote = 1000;         // bytes
// Between two ticks: the process was stopped, and its shell has written below the table.
constexpr auto kStopped = 1500ms;
constexpr int kMostFailures = 100;  // plain lines
constexpr auto kShortestPause = 10s;
constexpr int kPauseGrows = 10;  // the next pause is that part of the time since the run began
constexpr auto kPatience = 5s;

class ErrorConsole : public Console {
public:
    ErrorConsole() : m_writer(STDERR_FILENO) {}

    void Write(const std::string& text) override { m_writer.Write(text); }
    bool IsReady() const override { return m_writer.HasCaughtUp() && HasTerminal(); }
    TerminalSize Size() const override { return SizeOfTerminal(); }
    void Finish(const std::string& text) override { (void)m_writer.Finish(text, kPatience); }

private:
    LineWriter m_writer;
};

std::string BeginLine(const Scene& scene) {
    return "Run " + std::to_string(scene.fleet) + " (" + scene.command +
           "): " + std::to_string(scene.hosts.size()) + " hosts, into " + Clean(scene.folder, 4096);
}

// On one line of the terminal: the report has all of it, and a failure is often one of many.
std::string CutWithDots(const std::string& line, TerminalSize size) {
    constexpr std::size_t kDots = 3;
    const auto room = static_cast<std::size_t>(std::max(size.columns - 1, 1));
    if (ColumnsOf(line) <= room || room <= kDots) return line;
    return CutToColumns(line, room - kDots) + std::string(kDots, '.');
}

// What a run has come to, in words or as JSON.
class ResultTeller : public Audience {
public:
    ResultTeller(std::ostream& out, bool json) : m_out(out), m_json(json) {}

    void Begun(const Scene& /*scene*/) override {}
    void Changed(const Scene& /*scene*/, std::size_t /*host*/) override {}
    void Tick(const Scene& /*scene*/) override {}
    void Noted(const std::string& /*sentence*/) override {}
    void Ended(const Scene& scene, int exitCode) override {
        if (m_json) {
            m_out << JsonText(SceneObject(scene, exitCode)) << std::endl;
        } else {
            WriteSummary(scene, m_out);
        }
    }

private:
    std::ostream& m_out;
    const bool m_json;
};

// The view, then the result, and last the reason of a run that did not end well.
class WholeAudience : public Audience {
public:
    WholeAudience(std::unique_ptr<Audience> view, std::unique_ptr<Audience> result)
        : m_view(std::move(view)), m_result(std::move(result)) {}

    void Begun(const Scene& scene) override {
        m_view->Begun(scene);
        m_result->Begun(scene);
    }
    void Changed(const Scene& scene, std::size_t host) override {
        m_view->Changed(scene, host);
        m_result->Changed(scene, host);
    }
    void Tick(const Scene& scene) override {
        m_view->Tick(scene);
        m_result->Tick(scene);
    }
    void Noted(const std::string& sentence) override {
        m_view->Noted(sentence);
        m_result->Noted(sentence);
    }
    void Ended(const Scene& scene, int exitCode) override {
        m_view->Ended(scene, exitCode);
        m_result->Ended(scene, exitCode);
        const std::string reason = ReasonOf(scene, exitCode);
        if (reason.empty()) return;
        std::cerr << "kemffdc: " << reason << " [exit code " << exitCode << "]" << std::endl;
    }

private:
    const std::unique_ptr<Audience> m_view;
    const std::unique_ptr<Audience> m_result;
};

}  // namespace

void FailureTeller::Begun(const Scene& scene) {
    m_told.clear();
    for (const SceneHost& host : scene.hosts) m_told.push_back(host.state == HostState::kFailed);
}

std::string FailureTeller::LineFor(const Scene& scene, std::size_t host) {
    if (scene.hosts.at(host).state != HostState::kFailed || m_told.at(host)) return "";
    m_told[host] = true;
    return FailureLine(scene, scene.hosts[host]);
}

void TerminalView::Begun(const Scene& scene) {
    m_failures.Begun(scene);
    m_size = m_console->Size();
    Say(BeginLine(scene));
    Tick(scene);
}

void TerminalView::Changed(const Scene& scene, std::size_t host) {
    const std::string line = m_failures.LineFor(scene, host);
    if (!line.empty()) Say(CutWithDots(line, m_size));
}

void TerminalView::Tick(const Scene& scene) {
    m_throughput.See(scene);
    if (m_seen != WallTime() && scene.now - m_seen > kStopped) m_block.Forget();
    m_seen = scene.now;
    if (m_console->IsReady() && IsSettled()) Draw(scene);
}

void TerminalView::Noted(const std::string& sentence) { Say(Clean(sentence, kNote)); }

// The empty line takes the place of the table: no escape code follows it.
void TerminalView::Ended(const Scene& scene, int /*exitCode*/) {
    m_throughput.See(scene);
    Say("");
    const std::vector<std::string> said(m_say.begin(), m_say.end());
    m_console->Finish(m_block.Next(said, {}));
}

// The newest where the terminal takes none of them.
void TerminalView::Say(const std::string& line) {
    m_say.push_back(line);
    if (m_say.size() > kMostWaiting) m_say.pop_front();
}

void TerminalView::Draw(const Scene& scene) {
    const std::vector<std::string> said(m_say.begin(), m_say.end());
    m_say.clear();
    const std::string bytes =
        m_block.Next(said, Table(scene, m_throughput.BytesPerSecond(), m_size));
    if (!bytes.empty()) m_console->Write(bytes);
}

// A window that is being drawn larger or smaller is left alone until it has kept its size for a
// tick: many terminals break the lines of the table anew, and each time would leave one behind.
bool TerminalView::IsSettled() {
    const TerminalSize size = m_console->Size();
    return std::exchange(m_size, size) == size;
}

void PlainView::Begun(const Scene& scene) {
    m_failures.Begun(scene);
    m_throughput.See(scene);
    m_next = scene.now + kShortestPause;
    m_console->Write(BeginLine(scene));
}

void PlainView::Changed(const Scene& scene, std::size_t host) {
    const std::string line = m_failures.LineFor(scene, host);
    if (line.empty() || m_said > kMostFailures) return;
    ++m_said;
    m_console->Write(m_said <= kMostFailures
                         ? line
                         : "More hosts have failed; they are counted, and stand in the report.");
}

void PlainView::Tick(const Scene& scene) {
    m_throughput.See(scene);
    if (scene.now < m_next) return;
    m_next = scene.now +
             std::max<WallTime::duration>(kShortestPause, (scene.now - scene.begun) / kPauseGrows);
    m_console->Write(StateLine(scene, m_throughput.BytesPerSecond()));
}

void PlainView::Noted(const std::string& sentence) { m_console->Write(Clean(sentence, kNote)); }

void PlainView::Ended(const Scene& scene, int /*exitCode*/) {
    m_throughput.See(scene);
    m_console->Finish(StateLine(scene, m_throughput.BytesPerSecond()));
}

std::unique_ptr<Audience> MakeAudience(const ViewSettings& settings, std::ostream& out) {
    std::unique_ptr<Audience> view;
    if (settings.live) {
        view = std::make_unique<TerminalView>(std::make_unique<ErrorConsole>());
    } else {
        view = std::make_unique<PlainView>(std::make_unique<ErrorConsole>());
    }
    std::unique_ptr<Audience> result;
    if (settings.events) {
        result = std::make_unique<SceneEvents>(STDOUT_FILENO, out);
    } else {
        result = std::make_unique<ResultTeller>(out, settings.json);
    }
    return std::make_unique<WholeAudience>(std::move(view), std::move(result));
}

}  // namespace Kemffdc::Fleet
