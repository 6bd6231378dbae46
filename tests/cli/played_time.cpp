// SPDX-License-Identifier: Apache-2.0
//
// Preloaded into the tool: time as a test wants it.
//   PLAYED_SLEEP=N      sleeps until a moment take an Nth of their time
//   PLAYED_BACKWARDS=1  the wall clock goes back by an hour at each look
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <ctime>

#pragma GCC visibility push(default)
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left);
extern "C" time_t time(time_t* result) noexcept;
#pragma GCC visibility pop

namespace {

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

long Share() {
    const char* share = std::getenv("PLAYED_SLEEP");
    return share != nullptr ? std::strtol(share, nullptr, 10) : 1;
}

std::time_t Backwards() {
    static std::atomic<std::time_t> looks{0};
    constexpr std::time_t kHour = 3600;
    return std::getenv("PLAYED_BACKWARDS") != nullptr ? kHour * looks++ : 0;
}

}  // namespace

extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec* left) {
    static const auto real = Next<decltype(&clock_nanosleep)>("clock_nanosleep");
    if (flags != TIMER_ABSTIME || Share() <= 1) return real(clock, flags, until, left);
    constexpr long long kSecond = 1000000000;
    timespec now{};
    clock_gettime(clock, &now);
    const long long whole = (until->tv_sec - now.tv_sec) * kSecond + (until->tv_nsec - now.tv_nsec);
    const long long part = whole > 0 ? whole / Share() : 0;
    const timespec rest{static_cast<time_t>(part / kSecond), static_cast<long>(part % kSecond)};
    real(clock, 0, &rest, nullptr);
    return 0;
}

extern "C" time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t played = now.tv_sec - Backwards();
    if (result != nullptr) *result = played;
    return played;
}
