// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_STALLWATCH_H
#define VARNEX_PLATFORM_SRC_STALLWATCH_H

#include <chrono>
#include <cstdint>

// Whether a transfer has stalled: fewer than `speed` bytes a second over `time`. To be asked about
// once a second.
class StallWatch {
public:
    StallWatch(std::uint64_t speed, std::chrono::seconds time)
        : m_enough(speed * static_cast<std::uint64_t>(time.count())), m_time(time) {}

    bool Stalled(std::uint64_t bytes) {
        const auto now = std::chrono::steady_clock::now();
        if (!m_started || bytes - m_bytes >= m_enough) {
            m_started = true;
            m_bytes = bytes;
            m_since = now;
        }
        return now - m_since >= m_time;
    }

private:
    std::uint64_t m_enough;
    std::chrono::seconds m_time;
    bool m_started = false;
    std::uint64_t m_bytes = 0;
    std::chrono::steady_clock::time_point m_since;
};

#endif
