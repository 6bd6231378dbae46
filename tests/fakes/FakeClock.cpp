// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeClock.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <numeric>
#include <utility>

#include "Clock.h"

namespace {

struct Time {
    Clock::Monotonic now{std::chrono::hours(1)};
    std::vector<std::chrono::milliseconds> slept;
    std::tm local{};
    std::function<void(std::chrono::milliseconds)> onSleep;
};

std::mutex g_mutex;
std::unique_ptr<Time> g_time;

void Sleep(std::chrono::nanoseconds duration) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_time) {
        ADD_FAILURE() << "a sleep without a FakeClock";
        return;
    }
    g_time->slept.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(duration));
    if (g_time->onSleep) g_time->onSleep(g_time->slept.back());
    if (duration > std::chrono::nanoseconds(0)) g_time->now += duration;
}

}  // namespace

Clock::Monotonic Clock::Now() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_time ? g_time->now : Monotonic{};
}

void Clock::SleepFor(std::chrono::milliseconds duration) { Sleep(duration); }

void Clock::SleepUntil(Monotonic deadline) { Sleep(deadline - Now()); }

std::tm Clock::LocalTime() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_time ? g_time->local : std::tm{};
}

namespace fakes {

FakeClock::FakeClock() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_time = std::make_unique<Time>();
}

FakeClock::~FakeClock() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_time.reset();
}

std::vector<std::chrono::milliseconds> FakeClock::Slept() const {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_time->slept;
}

std::chrono::milliseconds FakeClock::SleptInAll() const {
    const auto slept = Slept();
    return std::accumulate(slept.begin(), slept.end(), std::chrono::milliseconds(0));
}

void FakeClock::OnSleep(std::function<void(std::chrono::milliseconds)> call) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_time->onSleep = std::move(call);
}

void FakeClock::Pass(std::chrono::nanoseconds duration) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_time->now += duration;
}

void FakeClock::SetLocalTime(const std::tm& time) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_time->local = time;
}

}  // namespace fakes
