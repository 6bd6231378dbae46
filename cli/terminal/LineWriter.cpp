// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/LineWriter.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace Kemffdc {
namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 20;  // bytes
constexpr std::size_t kPiece = 4096;  // that a pipe takes at once or not at all

}  // namespace

struct LineWriter::State {
    explicit State(int where) : descriptor(where) {}

    void Add(const std::string& line) {
        lines.push_back(line + "\n");
        waiting += lines.back().size();
        changed.notify_all();
    }

    void DropOldest() {
        waiting -= lines.front().size();
        lines.pop_front();
    }

    // The thread's work.
    void Run() {
        std::unique_lock<std::mutex> hold(lock);
        for (;;) {
            changed.wait(hold, [this] { return !lines.empty() || abandoned || failed || last; });
            if (lines.empty() || abandoned || failed) break;
            const std::string line = lines.front();
            DropOldest();
            writing = true;
            failed = !WriteAll(line, hold);
            writing = false;
        }
        done = true;
        changed.notify_all();
    }

    // Without the lock while it may block.
    bool WriteAll(const std::string& line, std::unique_lock<std::mutex>& hold) {
        for (std::size_t at = 0; at < line.size();) {
            hold.unlock();
            const ssize_t got =
                ::write(descriptor, line.data() + at, std::min(kPiece, line.size() - at));
            const int why = errno;
            hold.lock();
            if (abandoned || (got < 0 && why != EINTR)) return false;
            at += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
            ++pieces;
            changed.notify_all();
        }
        return true;
    }

    const int descriptor;
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::string> lines;
    std::size_t waiting = 0;   // bytes in `lines`
    std::uint64_t pieces = 0;  // written so far
    bool writing = false;      // a line that is not in `lines` any more
    bool last = false;         // no more lines will come
    bool abandoned = false;
    bool failed = false;
    bool done = false;
};

LineWriter::LineWriter(int descriptor) : m_state(std::make_shared<State>(descriptor)) {
    std::thread([state = m_state] { state->Run(); }).detach();
}

LineWriter::~LineWriter() {
    const std::lock_guard<std::mutex> hold(m_state->lock);
    m_state->abandoned = true;
    m_state->changed.notify_all();
}

void LineWriter::Write(const std::string& line) {
    const std::lock_guard<std::mutex> hold(m_state->lock);
    if (m_state->last || m_state->failed) return;
    m_state->Add(line);
    while (m_state->waiting > kMostWaiting && m_state->lines.size() > 1) m_state->DropOldest();
}

bool LineWriter::HasCaughtUp() const {
    const std::lock_guard<std::mutex> hold(m_state->lock);
    return m_state->lines.empty() && !m_state->writing && !m_state->failed;
}

bool LineWriter::Finish(const std::string& line, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(m_state->lock);
    if (m_state->last) return false;
    m_state->Add(line);
    m_state->last = true;
    for (bool moving = true; moving && !m_state->done;) {
        const std::uint64_t before = m_state->pieces;
        moving = m_state->changed.wait_for(
            hold, patience, [&] { return m_state->done || m_state->pieces != before; });
    }
    return m_state->done && !m_state->failed;
}

}  // namespace Kemffdc
