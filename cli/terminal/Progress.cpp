// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <utility>

#include "cli/terminal/LockSoon.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using namespace std::chrono_literals;

constexpr auto kRedraw = 200ms;
constexpr auto kPlainTransferLines = 10s;
constexpr char kEraseLine[] = "\r\033[K";

std::string TransferText(const Moment& moment) {
    std::string text = HumanBytes(moment.bytes);
    if (moment.expected > 0) {
        const std::uint64_t share = std::min<std::uint64_t>(
            100, moment.bytes / std::max<std::uint64_t>(1, moment.expected / 100));
        text += " of " + HumanBytes(moment.expected) + " (" + std::to_string(share) + " %)";
    }
    const auto milliseconds = static_cast<std::uint64_t>(moment.transferTime.count());
    if (milliseconds > 0) text += ", " + HumanBytes(moment.bytes * 1000 / milliseconds) + "/s";
    return text;
}

}  // namespace

std::string ProgressLine(const Moment& moment, int columns) {
    std::string line = Elapsed(moment.elapsed) + "  " + moment.step;
    if (moment.transfer) {
        line += ": " + TransferText(moment);
    } else if (!moment.state.empty()) {
        line += ": " + moment.state;
    }
    // The last column stays free: some terminals wrap when it is written.
    return CutUtf8(line, static_cast<std::size_t>(std::max(columns - 1, 1)));
}

Progress::Progress(std::ostream& out, bool live, std::function<int()> columns)
    : m_out(out),
      m_live(live),
      m_columns(std::move(columns)),
      m_start(std::chrono::steady_clock::now()) {
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
    Show();
}

void Progress::State(const std::string& state) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (state == m_moment.state && !m_moment.transfer) return;
    m_moment.state = state;
    m_moment.transfer = false;
    Show();
}

void Progress::Bytes(std::uint64_t bytes, std::uint64_t expected) {
    std::lock_guard<std::mutex> hold(m_lock);
    const Time now = std::chrono::steady_clock::now();
    if (!m_moment.transfer) {
        m_moment.transfer = true;
        m_transferStart = now;
        m_lastPlain = now;
    }
    m_moment.bytes = bytes;
    m_moment.expected = expected;
    // The live line is drawn by its own thread: a transfer reports far more often.
    if (!m_live && now - m_lastPlain >= kPlainTransferLines) Show();
}

void Progress::Say(const std::string& line) {
    std::lock_guard<std::mutex> hold(m_lock);
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
    m_lastPlain = std::chrono::steady_clock::now();
    m_out << ProgressLine(Now(), 1000) << std::endl;
}

Moment Progress::Now() const {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    const Time now = std::chrono::steady_clock::now();
    Moment moment = m_moment;
    moment.elapsed = duration_cast<milliseconds>(now - m_start);
    if (moment.transfer) moment.transferTime = duration_cast<milliseconds>(now - m_transferStart);
    return moment;
}

int TerminalColumns() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

}  // namespace Kemffdc
