// SPDX-License-Identifier: Apache-2.0
#include "Interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "ExitCodes.h"

namespace Kemffdc {
namespace {

constexpr int kMomentMs = 500;  // for the run to end by itself; the second is not full yet

// Signals that this process is to be ended with; who ignores one (nohup) means it.
sigset_t EndingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&signals, number);
    }
    return signals;
}

}  // namespace

Interrupt::Interrupt(std::function<void()> abandon) : m_abandon(std::move(abandon)) {
    const sigset_t signals = EndingSignals();
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    m_stop = eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_stop < 0) throw std::system_error(errno, std::generic_category());
    pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    m_thread = std::thread([this] { Listen(); });
}

Interrupt::~Interrupt() {
    eventfd_write(m_stop, 1);
    m_thread.join();
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    close(m_signals);
    close(m_stop);
}

void Interrupt::ClaimEnding() {
    while (m_claimed.exchange(true)) pause();  // the other thread ends the process
}

void Interrupt::Listen() {
    if (!WaitForSignal()) return;
    m_raised = true;
    pollfd stop{m_stop, POLLIN, 0};
    if (poll(&stop, 1, kMomentMs) > 0) return;
    EndProcess();
}

bool Interrupt::WaitForSignal() const {
    for (;;) {
        pollfd events[] = {{m_stop, POLLIN, 0}, {m_signals, POLLIN, 0}};
        poll(events, 2, -1);
        if (events[0].revents != 0) return false;
        signalfd_siginfo info;
        if (read(m_signals, &info, sizeof info) == sizeof info) return true;
    }
}

void Interrupt::EndProcess() {
    // Where the run has claimed its ending but is stuck reporting it, nobody reports twice.
    if (!m_claimed.exchange(true)) m_abandon();
    _exit(kInterrupted);
}

}  // namespace Kemffdc
