// SPDX-License-Identifier: Apache-2.0
#include "Clock.h"

#include <cerrno>

#include "Listeners.h"
#include "SleepWatcher.h"

namespace {

// Never destroyed: threads may sleep until the process is gone.
Listeners<Varnex::SleepWatcher>& Watchers() {
    static auto& watchers = *new Listeners<Varnex::SleepWatcher>;
    return watchers;
}

timespec ToTimespec(std::chrono::nanoseconds sinceStart) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds.count());
    result.tv_nsec = static_cast<long>((sinceStart - seconds).count());
    return result;
}

// The end of time rather than an overflow.
Clock::Monotonic Later(Clock::Monotonic start, std::chrono::milliseconds duration) {
    const auto room =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::Monotonic::max() - start);
    return duration < room ? start + duration : Clock::Monotonic::max();
}

}  // namespace

Clock::Monotonic Clock::Now() { return std::chrono::steady_clock::now(); }

void Clock::SleepFor(std::chrono::milliseconds duration) {
    if (duration.count() > 0) SleepUntil(Later(Now(), duration));
}

void Clock::SleepUntil(Monotonic deadline) {
    if (deadline <= Now()) return;
    // An absolute deadline: a signal in between costs nothing. steady_clock is CLOCK_MONOTONIC.
    const timespec until = ToTimespec(deadline.time_since_epoch());
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    Watchers().Tell([](Varnex::SleepWatcher& watcher) { watcher.SleepEnded(); });
}

std::tm Clock::LocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm broken{};
    tzset();  // unlike localtime, localtime_r need not look at the time zone again
    localtime_r(&now, &broken);
    return broken;
}

void Varnex::AddSleepWatcher(SleepWatcher* watcher) { Watchers().Add(watcher); }

void Varnex::RemoveSleepWatcher(SleepWatcher* watcher) { Watchers().Remove(watcher); }
