// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "cli/terminal/Secret.h"

namespace Kemffdc {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kMomentMs = 500;  // for the run to end by itself; the second is not full yet
constexpr int kStuckMs = 2000;  // who has not told by then is not read by anybody
constexpr int kForever = -1;

bool IsIgnored(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// Those that end a process by default; who ignores one (nohup) means it.
sigset_t EndingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number :
         {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU}) {
        if (!IsIgnored(number)) sigaddset(&signals, number);
    }
    return signals;
}

// Job control: a prompt has the terminal's echo off, and the shell needs it.
sigset_t PausingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCONT);
    if (!IsIgnored(SIGTSTP)) sigaddset(&signals, SIGTSTP);
    return signals;
}

// Stops the process as the signal would have. The kernel discards it where nobody could continue.
void StopHere() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    kill(getpid(), SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

bool WaitFor(int event, int ms) {
    pollfd wanted{event, POLLIN, 0};
    return poll(&wanted, 1, ms) > 0;
}

int MillisecondsUntil(steady_clock::time_point moment) {
    constexpr long long kLongest = 3600LL * 1000;  // then it is looked at again
    const auto left = std::chrono::ceil<milliseconds>(moment - steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, kLongest));
}

}  // namespace

Interrupt::Interrupt(std::chrono::seconds deadline, Ends ends)
    : m_deadline(deadline), m_start(steady_clock::now()), m_ends(std::move(ends)) {
    sigset_t signals = PausingSignals();
    const sigset_t ending = EndingSignals();
    sigorset(&signals, &signals, &ending);
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_stop = eventfd(0, EFD_CLOEXEC);
    m_told = eventfd(0, EFD_CLOEXEC);
    m_demand = eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_stop < 0 || m_told < 0 || m_demand < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_thread = std::thread([this] { Listen(); });
}

Interrupt::~Interrupt() {
    eventfd_write(m_stop, 1);
    m_thread.join();
    for (const int descriptor : {m_signals, m_stop, m_told, m_demand}) close(descriptor);
}

void Interrupt::Stop(const Outcome& outcome) {
    {
        std::lock_guard<std::mutex> hold(m_demandedLock);
        m_demanded = outcome;
    }
    eventfd_write(m_demand, 1);
    for (;;) pause();  // the object's thread ends the process
}

Outcome Interrupt::Demanded() const {
    std::lock_guard<std::mutex> hold(m_demandedLock);
    return m_demanded;
}

void Interrupt::HoldDeadline() {
    m_heldSince = steady_clock::now();
    m_held = true;
}

void Interrupt::ReleaseDeadline() {
    m_heldFor = m_heldFor.load() + (steady_clock::now() - m_heldSince);
    m_held = false;
}

// While it is held it is always a moment away.
Interrupt::Time Interrupt::End() const {
    const Time end = m_start + m_deadline + m_heldFor.load();
    return m_held ? std::max(end, steady_clock::now() + milliseconds(kMomentMs)) : end;
}

void Interrupt::ClaimEnding() {
    if (m_claimedByRun) return;
    while (m_claimed.exchange(true)) pause();  // the other thread ends the process
    m_claimedByRun = true;
}

void Interrupt::Told() { eventfd_write(m_told, 1); }

void Interrupt::Listen() {
    const ExitCode code = WaitForCause();
    if (code == kDone) return;
    m_code = code;
    if (!WaitFor(m_stop, kMomentMs)) EndProcess();
}

ExitCode Interrupt::WaitForCause() const {
    for (;;) {
        const bool bounded = m_deadline.count() > 0;
        pollfd events[] = {{m_stop, POLLIN, 0}, {m_signals, POLLIN, 0}, {m_demand, POLLIN, 0}};
        poll(events, 3, bounded ? MillisecondsUntil(End()) : kForever);
        if (events[0].revents != 0) return kDone;
        if (events[2].revents != 0) return Demanded().code;
        signalfd_siginfo info;
        if (read(m_signals, &info, sizeof info) != sizeof info) {
            if (bounded && steady_clock::now() >= End()) return kNotFinished;
        } else if (info.ssi_signo == SIGTSTP) {
            LendTerminal();
            StopHere();
            TakeTerminalBack();
        } else if (info.ssi_signo == SIGCONT) {
            TakeTerminalBack();
        } else {
            return kInterrupted;
        }
    }
}

void Interrupt::EndProcess() {
    const bool byTheRun = m_claimed.exchange(true);
    if (!byTheRun) std::thread(m_ends.tell).detach();
    const bool told = WaitFor(m_told, kStuckMs);
    if (byTheRun && told) return;  // it cleans up now
    m_ends.cleanUp();
    _exit(m_code);
}

}  // namespace Kemffdc
