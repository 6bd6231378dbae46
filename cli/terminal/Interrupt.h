// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_INTERRUPT_H
#define KEMFFDC_TERMINAL_INTERRUPT_H

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

#include "cli/ExitCodes.h"

namespace Kemffdc {

// Ends a run within a second after a signal or at its deadline, whatever blocks it.
//
// From the moment on that the object is made, the signals that would end the process (SIGINT,
// SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU; not those that were ignored before)
// reach a thread of its own, and none of them ends the process in another way any more, not even
// after the object is gone: a second signal must not change the exit code. On the first one, or at
// the deadline, Raised() becomes true and the run has a moment to end by itself. After that moment
// the thread has the ending told and the process cleaned up, and ends it; where the run has claimed
// its ending, it may tell and clean up by itself, unless it is stuck telling.
//
// To be made before any thread that it shall cover.
class Interrupt {
public:
    // What the thread does in place of a blocked run. `tell` calls Told() at its end.
    struct Ends {
        std::function<void()> tell;
        std::function<void()> cleanUp;
    };

    // `deadline`: after so long the run is ended; 0: never.
    Interrupt(std::chrono::seconds deadline, Ends ends);
    ~Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // The run is to stop. Not once it has claimed its ending: what is delivered stays delivered.
    bool Raised() const { return m_code != kDone && !m_claimedByRun; }

    // Ends the run as a signal would, but in this way. For a thread that must not go on with what
    // it is at: does not return.
    [[noreturn]] void Stop(const Outcome& outcome);

    // That of Stop(); no failure where nobody has called it.
    Outcome Demanded() const;

    // Time that passes in between does not count against the deadline. One thread, in turns.
    void HoldDeadline();
    void ReleaseDeadline();

    // With which the process ends once Raised(): kInterrupted for a signal, kNotFinished for the
    // deadline, else that of Stop().
    ExitCode Code() const { return m_code; }

    // To be called by the run before it delivers or tells how it ended, whatever comes first. Does
    // not return when the process is being ended already.
    void ClaimEnding();

    // The ending is told: what is left may take its time.
    void Told();

private:
    using Time = std::chrono::steady_clock::time_point;

    void Listen();
    Time End() const;               // the deadline, as far as it is known
    ExitCode WaitForCause() const;  // kDone: the object is being destroyed
    void EndProcess();

    const std::chrono::seconds m_deadline;
    const Time m_start;
    const Ends m_ends;
    mutable std::mutex m_demandedLock;
    Outcome m_demanded;
    std::atomic<bool> m_held{false};
    std::atomic<Time::duration> m_heldFor{Time::duration::zero()};
    Time m_heldSince;
    std::atomic<ExitCode> m_code{kDone};
    std::atomic<bool> m_claimed{false};  // by whoever tells the ending
    std::atomic<bool> m_claimedByRun{false};
    int m_signals = -1;  // signalfd(2)
    int m_stop = -1;     // eventfd(2), as the next
    int m_told = -1;
    int m_demand = -1;
    std::thread m_thread;
};

}  // namespace Kemffdc

#endif
