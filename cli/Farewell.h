// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FAREWELL_H
#define KEMFFDC_FAREWELL_H

#include <chrono>
#include <functional>
#include <mutex>
#include <new>
#include <utility>

#include "cli/terminal/LockSoon.h"

namespace Kemffdc {

// What a channel has to put in order on the BMC before the process ends, also where the run itself
// is blocked and another thread ends it. Any thread may call any operation.
class Farewell {
public:
    using Say = std::function<void(std::chrono::seconds limit)>;

    // `say` is called once, and owns what it works with. It keeps the limit.
    void Owe(Say say) {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_say = std::move(say);
    }

    // Says what is owed. Whoever comes while another thread is at it waits at most `limit` for it.
    void Pay(std::chrono::seconds limit) {
        const std::unique_lock<std::mutex> alone = LockSoon(m_saying, limit);
        if (!alone.owns_lock()) return;
        Say say;
        {
            const std::lock_guard<std::mutex> hold(m_lock);
            say = std::exchange(m_say, nullptr);
        }
        try {
            if (say) say(limit);
        } catch (const std::bad_alloc&) {
            // It stays owed: the process may be ending, and nobody could be told.
        }
    }

private:
    std::mutex m_saying;
    std::mutex m_lock;
    Say m_say;
};

}  // namespace Kemffdc

#endif
