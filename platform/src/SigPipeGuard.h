// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SIGPIPEGUARD_H
#define VARNEX_PLATFORM_SRC_SIGPIPEGUARD_H

#include <pthread.h>

#include <csignal>
#include <ctime>

// Keeps a connection that the other side has closed from ending the host's process: while it lives,
// this thread's writes into one fail and raise no SIGPIPE.
class SigPipeGuard {
public:
    SigPipeGuard() {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_theirs = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~SigPipeGuard() {
        const timespec now{0, 0};
        if (!m_theirs) (void)sigtimedwait(&m_pipe, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    SigPipeGuard(const SigPipeGuard&) = delete;
    SigPipeGuard& operator=(const SigPipeGuard&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_before;
    bool m_theirs = false;
};

#endif
