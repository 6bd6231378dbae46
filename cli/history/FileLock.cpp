// SPDX-License-Identifier: Apache-2.0
#include "cli/history/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace Kemffdc::History {
namespace {

constexpr auto kPause = std::chrono::milliseconds(10);
constexpr auto kLongest = std::chrono::seconds(5);
constexpr int kMaxRemoved = 100;

// Whoever had the lock before may have removed the file.
bool IsNamed(int file, const std::string& path) {
    struct stat held {};
    struct stat named {};
    return fstat(file, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

}  // namespace

FileLock::State FileLock::Try(const std::string& path) {
    for (int removed = 0; removed < kMaxRemoved; ++removed) {
        shared::FileDescriptor file(
            open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        if (!file.IsOpen()) return State::kNoLocks;
        if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
            return errno == EWOULDBLOCK ? State::kTaken : State::kNoLocks;
        }
        if (!IsNamed(file.Get(), path)) continue;
        m_file = std::move(file);
        return State::kLocked;
    }
    return State::kTaken;
}

FileLock::State FileLock::Take(const std::string& path) {
    const auto end = std::chrono::steady_clock::now() + kLongest;
    State state = Try(path);
    while (state == State::kTaken && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        state = Try(path);
    }
    return state;
}

void FileLock::Remove(const std::string& path) {
    if (!m_file.IsOpen()) return;
    (void)unlink(path.c_str());
    shared::FileDescriptor(std::move(m_file));
}

}  // namespace Kemffdc::History
