// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_LOCKSOON_H
#define KEMFFDC_TERMINAL_LOCKSOON_H

#include <chrono>
#include <mutex>
#include <thread>

namespace Kemffdc {

// For the thread that ends an interrupted run: it waits for another one that is inside, but not for
// longer than `limit`, because that one may be stuck. The result owns the lock, or does not.
//
// No std::timed_mutex: the thread sanitizer does not know the call that it waits with.
inline std::unique_lock<std::mutex> LockSoon(
    std::mutex& lock, std::chrono::milliseconds limit = std::chrono::milliseconds(200)) {
    constexpr auto kPause = std::chrono::milliseconds(5);
    const auto end = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> hold(lock, std::try_to_lock);
    while (!hold.owns_lock() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        hold = std::unique_lock<std::mutex>(lock, std::try_to_lock);
    }
    return hold;
}

}  // namespace Kemffdc

#endif
