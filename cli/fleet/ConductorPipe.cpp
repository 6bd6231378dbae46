// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/ConductorPipe.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

namespace Kemffdc::Fleet {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{200};
constexpr std::size_t kLongestLine = 64;  // of those that mean anything

shared::FileDescriptor MakeEvent() {
    shared::FileDescriptor event(eventfd(0, EFD_CLOEXEC));
    if (!event.IsOpen()) throw std::system_error(errno, std::generic_category());
    return event;
}

// Signals are for the threads that were there before.
template <class Work>
std::thread ThreadWithoutSignals(Work work) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(work);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace

ConductorPipe::ConductorPipe(int descriptor)
    : m_descriptor(descriptor),
      m_stop(MakeEvent()),
      m_thread(ThreadWithoutSignals([this] { Listen(); })) {}

ConductorPipe::~ConductorPipe() {
    eventfd_write(m_stop.Get(), 1);
    m_thread.join();
}

void ConductorPipe::Wait(const std::function<bool()>& stop) {
    std::unique_lock<std::mutex> hold(m_lock);
    while (!m_open && !stop()) m_opened.wait_for(hold, kBetweenLooks);
}

void ConductorPipe::Listen() {
    for (;;) {
        pollfd events[] = {{m_stop.Get(), POLLIN, 0}, {m_descriptor, POLLIN, 0}};
        if (poll(events, 2, -1) < 0 && errno != EINTR) return;
        if (events[0].revents != 0) return;
        if (events[1].revents == 0 || Take()) continue;
        kill(getpid(), SIGTERM);
        return;
    }
}

bool ConductorPipe::Take() {
    char piece[64];
    const ssize_t got = read(m_descriptor, piece, sizeof piece);
    if (got <= 0) return got < 0 && (errno == EINTR || errno == EAGAIN);
    for (const char c : std::string(piece, static_cast<std::size_t>(got))) {
        if (c != '\n') {
            if (m_line.size() < kLongestLine) m_line += c;
            continue;
        }
        if (m_line == "go") OpenGate();
        m_line.clear();
    }
    return true;
}

void ConductorPipe::OpenGate() {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_open = true;
    }
    m_opened.notify_all();
}

}  // namespace Kemffdc::Fleet
