// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_LOCKSOON_H
#define KEMFFDC_TERMINAL_LOCKSOON_H

#include <chrono>
#include <mutex>
#include <thread>

namespace Kemffdc {

// For the thread that ends an interrupted run: it waits for another one that is inside, but not for
// long, because that one may be stuck. The result owns the lock, or does not.
//
// No std::timed_mutex: the thread sanitizer does not know the call that it waits with.
inline std::unique_lock<std::mutex> LockSoon(std::mutex& lock) {
    constexpr int kTries = 40;
    constexpr auto kPause = std::chrono::milliseconds(5);
    std::unique_lock<std::mutex> hold(lock, std::try_to_lock);
    for (int i = 1; !hold.owns_lock() && i < kTries; ++i) {
        std::this_thread::sleep_for(kPause);
        hold = std::unique_lock<std::mutex>(lock, std::try_to_lock);
    }
    return hold;
}

}  // namespace Kemffdc

#endif
