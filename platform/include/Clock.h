// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_CLOCK_H
#define VARNEX_PLATFORM_CLOCK_H

#include <chrono>
#include <ctime>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// Time, and the passing of it. An implementer guarantees that Now() never goes back and that both
// sleeps block the calling thread alone. A sleep that lies in the past, or of a negative duration,
// returns at once; a signal does not shorten a sleep.
class Clock {
public:
    using Monotonic = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

    static Monotonic Now();
    static void SleepFor(std::chrono::milliseconds duration);
    static void SleepUntil(Monotonic deadline);

    // Wall-clock time in the host's time zone, broken down as localtime(3) does it.
    static std::tm LocalTime();
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
