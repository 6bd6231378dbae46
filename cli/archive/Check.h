// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_CHECK_H
#define KEMFFDC_ARCHIVE_CHECK_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "cli/archive/Reader.h"

namespace Kemffdc::Archives {

// Reads archives to their end, one after the other, on a thread of its own: while one is read the
// next may arrive.
class Check {
public:
    // `bounds.stop` is asked on both threads.
    explicit Check(Bounds bounds);
    // Gives up what is not read yet.
    ~Check();

    Check(const Check&) = delete;
    Check& operator=(const Check&) = delete;

    // The file will be read, after those that were named before. It stays where it is until then;
    // where it is replaced, it is to be named again, and the last reading counts.
    void Begin(const std::string& path);
    bool HasBegun(const std::string& path) const;

    // Blocks until a file that was begun is read, or until there is a reason to stop.
    Reading Result(const std::string& path);

private:
    void Work();
    bool MustStop() const { return m_ends || (m_bounds.stop && m_bounds.stop()); }

    const Bounds m_bounds;
    std::atomic<bool> m_ends{false};
    mutable std::mutex m_lock;  // of the next four
    std::condition_variable m_changed;
    std::map<std::string, int> m_begun;  // how many readings are to come
    std::deque<std::string> m_waiting;
    std::map<std::string, Reading> m_done;
    std::thread m_thread;  // started with the first file
};

}  // namespace Kemffdc::Archives

#endif
