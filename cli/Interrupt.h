// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_INTERRUPT_H
#define KEMFFDC_INTERRUPT_H

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace Kemffdc {

// Ends a run within a second after SIGINT, SIGTERM or SIGHUP, whatever blocks it.
//
// While the object lives, those signals reach a thread of its own (those that were ignored before
// stay ignored). On a signal, Raised() becomes true and the run has a moment to end by itself.
// After that moment the thread calls `abandon`, unless the run has claimed its ending, and ends the
// process with exit code 130. To be made before any thread that it shall cover.
class Interrupt {
public:
    explicit Interrupt(std::function<void()> abandon);
    ~Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    bool Raised() const { return m_raised; }

    // To be called once, by the run, before it reports how it ended. Does not return when the
    // process is being ended already.
    void ClaimEnding();

private:
    void Listen();
    bool WaitForSignal() const;  // false: the object is being destroyed
    void EndProcess();

    const std::function<void()> m_abandon;
    std::atomic<bool> m_raised{false};
    std::atomic<bool> m_claimed{false};  // by whoever reports the ending
    sigset_t m_before;
    int m_signals = -1;  // signalfd(2)
    int m_stop = -1;     // eventfd(2)
    std::thread m_thread;
};

}  // namespace Kemffdc

#endif
