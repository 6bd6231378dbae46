// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_PROGRESS_H
#define KEMFFDC_TERMINAL_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Kemffdc {

// What there is to say about a run at one moment.
struct Moment {
    std::string step;                      // "connect", "gather", ...
    std::string state;                     // "task Running", "BMC is starting (503)"; may be empty
    std::optional<int> percent;            // of the BMC's work, as it says
    std::string message;                   // its newest word about that; may be empty
    std::chrono::milliseconds elapsed{0};  // of the run

    bool transfer = false;  // the figures below count
    std::uint64_t bytes = 0;
    std::uint64_t expected = 0;                 // 0: the server did not say
    std::chrono::milliseconds transferTime{0};  // since the first byte was asked for
};

// One line without line end, less than `columns` wide. Where that is narrow, a transfer keeps its
// share and its rate, and the step is cut.
std::string ProgressLine(const Moment& moment, int columns);

// Hears what is shown, on the thread that says it, also where nothing is drawn any more. Must not
// call back.
class ProgressObserver {
public:
    virtual ~ProgressObserver() = default;

    virtual void StepShown(const std::string& step) = 0;
    virtual void StateShown(const std::string& state) = 0;
    virtual void WorkShown(std::optional<int> percent, const std::string& message) = 0;
    virtual void BytesShown(std::uint64_t bytes, std::uint64_t expected) = 0;
    virtual void LineShown(const std::string& line) = 0;
};

// Shows where a run is. On a terminal: one live line, redrawn several times a second. Elsewhere:
// a plain line whenever the step or the state changes, and every ten seconds of a transfer; no
// escape codes. Any thread may call any operation.
class Progress {
public:
    using Time = std::chrono::steady_clock::time_point;

    // `columns` gives the terminal's width at the moment. `out` and `observer` outlive the object;
    // the latter may be null.
    Progress(std::ostream& out, bool live, std::function<int()> columns,
             ProgressObserver* observer = nullptr,
             std::function<Time()> now = std::chrono::steady_clock::now);
    ~Progress();  // ends the live line

    void Step(const std::string& step);
    void State(const std::string& state);
    // How far the BMC is with its work in this state, and its newest word about it; both may be
    // missing.
    void Work(std::optional<int> percent, const std::string& message);
    void Bytes(std::uint64_t bytes, std::uint64_t expected);

    // A line of its own, above the live line.
    void Say(const std::string& line);

    // Takes the live line off the terminal for good; later calls show nothing. Gives up after a
    // moment where another thread is stuck while it writes.
    void End();

private:
    void Tick();
    void Show();  // the caller holds the lock, as in the three below
    void Erase();
    void PlainLine();
    Moment Now() const;

    std::ostream& m_out;
    const bool m_live;
    const std::function<int()> m_columns;
    ProgressObserver* const m_observer;
    const std::function<Time()> m_now;
    const Time m_start;

    std::mutex m_lock;
    std::condition_variable m_wake;
    Moment m_moment;
    Time m_transferStart;
    Time m_lastPlain;
    bool m_drawn = false;
    bool m_ended = false;
    std::thread m_ticker;
};

// Of the terminal on standard error; 80 where that is none or does not tell.
int TerminalColumns();

}  // namespace Kemffdc

#endif
