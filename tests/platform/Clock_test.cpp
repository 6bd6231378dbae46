// SPDX-License-Identifier: Apache-2.0
#include "Clock.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "SleepWatcher.h"
#include "gtest/gtest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(ClockNow, NeverGoesBack) {
    Clock::Monotonic last = Clock::Now();
    for (int i = 0; i < 100000; ++i) {
        const Clock::Monotonic now = Clock::Now();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(ClockSleepFor, SleepsAtLeastAsLong) {
    const Clock::Monotonic start = Clock::Now();

    Clock::SleepFor(milliseconds(120));

    EXPECT_GE(Clock::Now() - start, milliseconds(120));
    EXPECT_LT(Clock::Now() - start, seconds(20));
}

TEST(ClockSleepFor, NothingOrLessReturnsAtOnce) {
    const Clock::Monotonic start = Clock::Now();

    Clock::SleepFor(milliseconds(0));
    Clock::SleepFor(milliseconds(-5000));
    Clock::SleepFor(milliseconds::min());

    EXPECT_LT(Clock::Now() - start, seconds(4));
}

TEST(ClockSleepUntil, SleepsToTheDeadline) {
    const Clock::Monotonic deadline = Clock::Now() + milliseconds(120);

    Clock::SleepUntil(deadline);

    EXPECT_GE(Clock::Now(), deadline);
}

TEST(ClockSleepUntil, ADeadlineInThePastReturnsAtOnce) {
    const Clock::Monotonic start = Clock::Now();

    Clock::SleepUntil(start - seconds(3600));
    Clock::SleepUntil(Clock::Monotonic::min());

    EXPECT_LT(Clock::Now() - start, seconds(4));
}

void Ignore(int) {}

// Sleeps in a thread, interrupts it with `signals` signals, and says how long it slept.
template <class Sleep>
std::chrono::nanoseconds SleepUnderSignals(Sleep sleep, int signals) {
    struct sigaction action {};
    action.sa_handler = Ignore;  // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    std::chrono::nanoseconds slept(0);
    std::thread sleeper([&] {
        const Clock::Monotonic start = Clock::Now();
        sleep();
        slept = Clock::Now() - start;
    });
    const pthread_t handle = sleeper.native_handle();
    for (int i = 0; i < signals; ++i) {
        std::this_thread::sleep_for(milliseconds(20));
        pthread_kill(handle, SIGUSR1);
    }
    sleeper.join();
    return slept;
}

TEST(ClockSleepFor, SignalsDoNotShortenTheSleep) {
    EXPECT_GE(SleepUnderSignals([] { Clock::SleepFor(milliseconds(400)); }, 10), milliseconds(400));
}

TEST(ClockSleepFor, AnEndlessSleepDoesNotOverflow) {
    std::atomic<bool> woke{false};
    std::thread([&woke] {
        Clock::SleepFor(milliseconds::max());
        woke = true;
    }).detach();

    Clock::SleepFor(milliseconds(300));

    EXPECT_FALSE(woke);
    std::_Exit(HasFailure() ? 1 : 0);  // the thread sleeps on
}

TEST(ClockLocalTime, IsTheTimeOfTheTimeZoneThatIsSetNow) {
    for (const char* zone : {"UTC0", "XXX-5:30"}) {
        setenv("TZ", zone, 1);
        const std::time_t now = std::time(nullptr);

        std::tm local = Clock::LocalTime();

        EXPECT_NEAR(static_cast<double>(std::mktime(&local)), static_cast<double>(now), 2.0)
            << zone;
        EXPECT_EQ(std::string(zone) == "UTC0" ? 0 : 19800, local.tm_gmtoff) << zone;
    }
}

// Counts pauses, and makes one itself in each.
class Counting : public Varnex::SleepWatcher {
public:
    Counting() { Varnex::AddSleepWatcher(this); }
    ~Counting() override { Varnex::RemoveSleepWatcher(this); }
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;

    void SleepEnded() override {
        ++count;
        endedAt = Clock::Now();
        Clock::SleepFor(milliseconds(1));
    }

    int count = 0;
    Clock::Monotonic endedAt;
};

TEST(SleepWatcher, IsToldWhenAPauseIsOverAndNotOfItsOwn) {
    Counting watcher;
    const Clock::Monotonic deadline = Clock::Now() + milliseconds(20);

    Clock::SleepUntil(deadline);
    EXPECT_EQ(watcher.count, 1);
    EXPECT_GE(watcher.endedAt, deadline);
    Clock::SleepFor(milliseconds(1));
    EXPECT_EQ(watcher.count, 2);
}

TEST(SleepWatcher, IsNotToldWhereNobodySleeps) {
    const Counting watcher;

    Clock::SleepFor(milliseconds(0));

    EXPECT_EQ(watcher.count, 0);
}

TEST(SleepWatcher, IsNotToldOnceItIsRemoved) {
    Counting watcher;
    Varnex::RemoveSleepWatcher(&watcher);

    Clock::SleepFor(milliseconds(1));

    EXPECT_EQ(watcher.count, 0);
}

}  // namespace
