// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Progress.h"

#include <algorithm>
#include <ostream>
#include <utility>
#include <vector>

#include "cli/terminal/LockSoon.h"
#include "cli/terminal/OwnTerminal.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using namespace std::chrono_literals;

constexpr auto kRedraw = 200ms;
constexpr auto kPlainTransferLines = 10s;
constexpr char kEraseLine[] = "\r\033[K";

// Empty where the server did not say how much there is.
std::string Share(const Moment& moment) {
    if (moment.expected == 0) return "";
    const std::uint64_t hundredth = std::max<std::uint64_t>(1, moment.expected / 100);
    return std::to_string(std::min<std::uint64_t>(100, moment.bytes / hundredth)) + " %";
}

// With a comma before it; empty until some time has passed.
std::string Rate(const Moment& moment) {
    const auto milliseconds = static_cast<std::uint64_t>(moment.transferTime.count());
    if (milliseconds == 0) return "";
    return ", " + HumanBytes(moment.bytes * 1000 / milliseconds) + "/s";
}

// The longest first.
std::vector<std::string> TransferTexts(const Moment& moment) {
    const std::string bytes = HumanBytes(moment.bytes);
    const std::string share = Share(moment);
    const std::string rate = Rate(moment);
    if (share.empty()) return {bytes + rate};
    return {bytes + " of " + HumanBytes(moment.expected) + " (" + share + ")" + rate,
            bytes + ", " + share + rate, share + rate};
}

std::string TransferLine(const std::string& time, const Moment& moment, std::size_t room) {
    std::string text;
    for (const std::string& figures : TransferTexts(moment)) {
        text = figures;
        std::string line = time;
        line.append(moment.step).append(": ").append(text);
        if (line.size() <= room) return line;
    }
    const std::size_t taken = time.size() + 2 + text.size();
    std::string step = CutUtf8(moment.step, room - std::min(room, taken));
    while (!step.empty() && (step.back() == ' ' || step.back() == ',')) step.pop_back();
    return CutUtf8(time + step + (step.empty() ? "" : ": ") + text, room);
}

std::string StateText(const Moment& moment) {
    std::string text = moment.state;
    const std::string percent = moment.percent ? std::to_string(*moment.percent) + " %" : "";
    for (const std::string& more : {percent, moment.message}) {
        if (!more.empty()) text += (text.empty() ? "" : ", ") + more;
    }
    return text;
}

}  // namespace

std::string ProgressLine(const Moment& moment, int columns) {
    // The last column stays free: some terminals wrap when it is written.
    const auto room = static_cast<std::size_t>(std::max(columns - 1, 1));
    const std::string time = Elapsed(moment.elapsed) + "  ";
    if (moment.transfer) return TransferLine(time, moment, room);
    const std::string state = StateText(moment);
    return CutUtf8(time + moment.step + (state.empty() ? "" : ": ") + state, room);
}

Progress::Progress(std::ostream& out, bool live, std::function<int()> columns,
                   ProgressObserver* observer, std::function<Time()> now)
    : m_out(out),
      m_live(live),
      m_columns(std::move(columns)),
      m_observer(observer),
      m_now(std::move(now)),
      m_start(m_now()) {
    if (m_live) m_ticker = std::thread([this] { Tick(); });
}

Progress::~Progress() {
    End();
    if (m_ticker.joinable()) m_ticker.join();
}

void Progress::Step(const std::string& step) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_moment = Moment();
    m_moment.step = step;
    if (m_observer != nullptr) m_observer->StepShown(step);
    Show();
}

void Progress::State(const std::string& state) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (state == m_moment.state && !m_moment.transfer) return;
    m_moment.state = state;
    m_moment.percent.reset();
    m_moment.message.clear();
    m_moment.transfer = false;
    if (m_observer != nullptr) m_observer->StateShown(state);
    Show();
}

void Progress::Work(std::optional<int> percent, const std::string& message) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (percent == m_moment.percent && message == m_moment.message) return;
    m_moment.percent = percent;
    m_moment.message = message;
    if (m_observer != nullptr) m_observer->WorkShown(percent, message);
    Show();
}

void Progress::Bytes(std::uint64_t bytes, std::uint64_t expected) {
    std::lock_guard<std::mutex> hold(m_lock);
    const Time now = m_now();
    if (!m_moment.transfer) {
        m_moment.transfer = true;
        m_transferStart = now;
        m_lastPlain = now;
    }
    m_moment.bytes = bytes;
    m_moment.expected = expected;
    if (m_observer != nullptr) m_observer->BytesShown(bytes, expected);
    // The live line is drawn by its own thread: a transfer reports far more often.
    if (!m_live && now - m_lastPlain >= kPlainTransferLines) Show();
}

void Progress::Say(const std::string& line) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_observer != nullptr) m_observer->LineShown(line);
    if (m_ended) return;
    Erase();
    m_out << line << std::endl;
    if (m_live) Show();
}

void Progress::End() {
    const std::unique_lock<std::mutex> hold = LockSoon(m_lock);
    if (!hold.owns_lock()) return;
    Erase();
    m_out.flush();
    m_ended = true;
    m_wake.notify_all();
}

void Progress::Tick() {
    std::unique_lock<std::mutex> hold(m_lock);
    while (!m_ended) {
        Show();
        m_wake.wait_for(hold, kRedraw);
    }
}

void Progress::Show() {
    if (m_ended || m_moment.step.empty()) return;
    if (!m_live) {
        PlainLine();
        return;
    }
    m_out << kEraseLine << ProgressLine(Now(), m_columns()) << std::flush;
    m_drawn = true;
}

void Progress::Erase() {
    if (m_drawn) m_out << kEraseLine;
    m_drawn = false;
}

void Progress::PlainLine() {
    m_lastPlain = m_now();
    m_out << ProgressLine(Now(), 1000) << std::endl;
}

Moment Progress::Now() const {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    const Time now = m_now();
    Moment moment = m_moment;
    moment.elapsed = duration_cast<milliseconds>(now - m_start);
    if (moment.transfer) moment.transferTime = duration_cast<milliseconds>(now - m_transferStart);
    return moment;
}

int TerminalColumns() { return SizeOfTerminal().columns; }

}  // namespace Kemffdc
