// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Scheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

namespace {

using Kemffdc::Fleet::Scheduler;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Duration = Scheduler::Duration;
using Why = Scheduler::Why;

constexpr Scheduler::Result kDone{};
constexpr Scheduler::Result kRetryable{false, true};
constexpr Scheduler::Result kForGood{false, false};
constexpr Scheduler::Result kRefused{true, false};

// A run in played time: it moves to when something is due, or by as much as a test says.
class SchedulerTest : public testing::Test {
protected:
    void Plan(std::size_t hosts) {
        m_hosts.clear();
        // Each with a credential of its own: the guard has nothing to say here.
        for (std::size_t host = 0; host < hosts; ++host) {
            m_hosts.push_back({"credential " + std::to_string(host)});
        }
    }

    Scheduler& Begin() {
        m_scheduler = std::make_unique<Scheduler>(pace, m_hosts, now, [this] { return random; });
        return *m_scheduler;
    }

    Scheduler::Orders Take() { return m_scheduler->Take(now); }

    // What is started until `until`, with nothing else happening; by when it was.
    std::map<std::size_t, Duration> StartsWithin(Duration until) {
        const auto begun = now;
        std::map<std::size_t, Duration> starts;
        while (true) {
            for (const std::size_t host : Take().start) {
                starts[host] = std::chrono::duration_cast<Duration>(now - begun);
            }
            const auto next = m_scheduler->Next(now);
            if (!next || *next - begun > until) break;
            EXPECT_GT(*next, now) << "the run would spin";
            if (*next <= now) break;
            now = *next;
        }
        now = begun + until;
        return starts;
    }

    Scheduler::Pace pace;
    Scheduler::Time now{seconds(1000)};
    double random = 0.5;  // pauses are as long as their base
    std::vector<Scheduler::Host> m_hosts;
    std::unique_ptr<Scheduler> m_scheduler;
};

TEST_F(SchedulerTest, StartsAreSpreadOverTime) {
    Plan(4);
    pace.startGap = milliseconds(10);
    Begin();

    const std::map<std::size_t, Duration> expected{
        {0, milliseconds(0)}, {1, milliseconds(10)}, {2, milliseconds(20)}, {3, milliseconds(30)}};
    EXPECT_EQ(StartsWithin(seconds(1)), expected);
}

TEST_F(SchedulerTest, ALateConductorDoesNotCatchUpInABurst) {
    Plan(100);
    pace.startGap = milliseconds(10);
    Begin();
    EXPECT_THAT(Take().start, SizeIs(1));

    now += seconds(1);

    EXPECT_THAT(Take().start, SizeIs(2));
}

TEST_F(SchedulerTest, NoMoreGatherThanMay) {
    Plan(5);
    pace.gathering = 3;
    Scheduler& run = Begin();

    EXPECT_THAT(StartsWithin(seconds(1)), SizeIs(3));
    run.Ended(1, kDone, now);
    EXPECT_THAT(Take().start, ElementsAre(3));
}

TEST_F(SchedulerTest, WhoWaitsForItsTurnStillCounts) {
    Plan(5);
    pace.gathering = 3;
    pace.transfers = 1;
    Scheduler& run = Begin();
    StartsWithin(seconds(1));

    run.AskedForTurn(0, now);
    run.AskedForTurn(1, now);

    const auto orders = Take();
    EXPECT_THAT(orders.go, ElementsAre(0));
    EXPECT_THAT(orders.start, ElementsAre(3));
}

TEST_F(SchedulerTest, TurnsAreGivenInTheOrderOfAsking) {
    Plan(4);
    pace.transfers = 2;
    Scheduler& run = Begin();
    StartsWithin(seconds(1));
    for (const std::size_t host : {2U, 0U, 3U, 1U}) {
        run.AskedForTurn(host, now);
        now += milliseconds(1);
    }

    EXPECT_THAT(Take().go, ElementsAre(2, 0));
    EXPECT_THAT(Take().go, IsEmpty());
    run.Ended(2, kDone, now);
    EXPECT_THAT(Take().go, ElementsAre(3));
    run.Ended(0, kForGood, now);
    EXPECT_THAT(Take().go, ElementsAre(1));
}

TEST_F(SchedulerTest, PausesGrow) {
    Plan(1);
    pace.retries = 3;
    pace.pause = seconds(10);
    pace.longestPause = seconds(60);
    Scheduler& run = Begin();

    for (const int expected : {10, 30, 60}) {
        ASSERT_THAT(Take().start, ElementsAre(0));
        const auto again = run.Ended(0, kRetryable, now);
        ASSERT_TRUE(again);
        EXPECT_EQ(*again - now, seconds(expected));
        now = *again - milliseconds(1);
        EXPECT_THAT(Take().start, IsEmpty());
        EXPECT_EQ(run.Next(now), *again);
        now = *again;
    }
    ASSERT_THAT(Take().start, ElementsAre(0));
    EXPECT_FALSE(run.Ended(0, kRetryable, now));
    EXPECT_TRUE(run.HasEnded());
    EXPECT_EQ(run.Tries(0), 4);
}

TEST_F(SchedulerTest, PausesAreJittered) {
    Plan(2);
    pace.pause = seconds(10);
    Scheduler& run = Begin();
    StartsWithin(seconds(1));

    random = 0;
    EXPECT_EQ(*run.Ended(0, kRetryable, now) - now, seconds(5));
    random = 0.999;
    EXPECT_GT(*run.Ended(1, kRetryable, now) - now, milliseconds(14900));
}

TEST_F(SchedulerTest, NothingElseIsTriedAgain) {
    Plan(3);
    Scheduler& run = Begin();
    StartsWithin(seconds(1));

    EXPECT_FALSE(run.Ended(0, kDone, now));
    EXPECT_FALSE(run.Ended(1, kForGood, now));
    // Even where a result would claim so.
    EXPECT_FALSE(run.Ended(2, {true, true}, now));
    EXPECT_TRUE(run.HasEnded());
}

TEST_F(SchedulerTest, AHostThatPausesLeavesItsPlace) {
    Plan(2);
    pace.gathering = 1;
    pace.pause = seconds(1);
    Scheduler& run = Begin();
    EXPECT_THAT(Take().start, ElementsAre(0));
    now += seconds(1);
    run.Ended(0, kRetryable, now);

    EXPECT_THAT(Take().start, ElementsAre(1));
    now += seconds(5);
    EXPECT_THAT(Take().start, IsEmpty());
    run.Ended(1, kDone, now);
    EXPECT_THAT(Take().start, ElementsAre(0));
}

TEST_F(SchedulerTest, WhatAnEarlierRunHasDoneIsNotStarted) {
    Plan(3);
    m_hosts[0].done = m_hosts[2].done = true;
    Scheduler& run = Begin();

    const auto starts = StartsWithin(seconds(1));
    ASSERT_THAT(starts, SizeIs(1));
    EXPECT_EQ(starts.begin()->first, 1U);
    run.Ended(1, kDone, now);
    EXPECT_TRUE(run.HasEnded());
}

TEST_F(SchedulerTest, HostsThatHaveRefusedALoginComeLast) {
    Plan(4);
    m_hosts[0].doubtful = m_hosts[1].doubtful = true;
    pace.startGap = milliseconds(10);
    Begin();

    const std::map<std::size_t, Duration> expected{
        {2, milliseconds(0)}, {3, milliseconds(10)}, {0, milliseconds(20)}, {1, milliseconds(30)}};
    EXPECT_EQ(StartsWithin(seconds(1)), expected);
}

TEST_F(SchedulerTest, AHostsDeadlineCoversAllItsTries) {
    Plan(1);
    pace.hostDeadline = seconds(20);
    pace.pause = seconds(10);
    Scheduler& run = Begin();
    Take();
    now += seconds(5);
    run.Ended(0, kRetryable, now);
    now += seconds(10);
    ASSERT_THAT(Take().start, ElementsAre(0));

    EXPECT_EQ(run.Next(now), now + seconds(5));
    now += seconds(5);
    const auto orders = Take();
    ASSERT_THAT(orders.stop, SizeIs(1));
    EXPECT_EQ(orders.stop[0].why, Why::kHostDeadline);
    EXPECT_TRUE(orders.stop[0].atWork);
    EXPECT_FALSE(run.HasEnded());
    EXPECT_EQ(run.AtWork(), 1U);
    EXPECT_FALSE(run.Ended(0, kRetryable, now));
    EXPECT_TRUE(run.HasEnded());
}

TEST_F(SchedulerTest, NobodyPausesBeyondADeadline) {
    Plan(2);
    pace.hostDeadline = seconds(20);
    pace.pause = seconds(10);
    Scheduler& run = Begin();
    StartsWithin(milliseconds(100));
    now += seconds(15);

    EXPECT_FALSE(run.Ended(0, kRetryable, now));
}

TEST_F(SchedulerTest, TheRunsDeadlineStopsThoseThatNobodyHasTried) {
    Plan(3);
    pace.gathering = 1;
    pace.runDeadline = seconds(60);
    Scheduler& run = Begin();
    Take();
    run.LoggedIn(0);
    EXPECT_EQ(run.Next(now), now + seconds(60));
    now += seconds(60);

    const auto orders = Take();

    EXPECT_THAT(orders.start, IsEmpty());
    ASSERT_THAT(orders.stop, SizeIs(3));
    EXPECT_TRUE(orders.stop[0].atWork);
    EXPECT_FALSE(orders.stop[1].atWork);
    EXPECT_EQ(orders.stop[2].why, Why::kRunDeadline);
    EXPECT_THAT(Take().stop, IsEmpty());
}

TEST_F(SchedulerTest, AWorkerThatIsSilentBeyondItsOwnDeadlineIsStuck) {
    Plan(1);
    m_hosts[0].patience = seconds(100);
    Scheduler& run = Begin();
    Take();
    now += seconds(130);
    run.Heard(0, now);

    EXPECT_EQ(run.Next(now), now + seconds(60));
    now += seconds(59);
    EXPECT_THAT(Take().stop, IsEmpty());
    now += seconds(1);
    const auto orders = Take();
    ASSERT_THAT(orders.stop, SizeIs(1));
    EXPECT_EQ(orders.stop[0].why, Why::kHung);
}

TEST_F(SchedulerTest, WaitingForATurnIsNoSilence) {
    Plan(2);
    pace.transfers = 1;
    for (auto& host : m_hosts) host.patience = seconds(100);
    Scheduler& run = Begin();
    StartsWithin(seconds(1));
    run.AskedForTurn(0, now);
    run.AskedForTurn(1, now);
    EXPECT_THAT(Take().go, ElementsAre(0));
    for (int minute = 0; minute < 10; ++minute) {
        now += seconds(15);
        run.Heard(0, now);
        EXPECT_THAT(Take().stop, IsEmpty());
    }
    run.Ended(0, kDone, now);

    EXPECT_THAT(Take().go, ElementsAre(1));
    now += seconds(99);
    EXPECT_THAT(Take().stop, IsEmpty());
}

TEST_F(SchedulerTest, AnInterruptStopsAll) {
    Plan(3);
    pace.gathering = 2;
    Scheduler& run = Begin();
    StartsWithin(seconds(1));
    run.Ended(0, kDone, now);
    StartsWithin(seconds(1));

    run.Interrupt();

    const auto orders = Take();
    EXPECT_THAT(orders.stop, SizeIs(2));
    EXPECT_THAT(orders.start, IsEmpty());
    for (const std::size_t host : {1U, 2U}) EXPECT_FALSE(run.Ended(host, kRetryable, now));
    EXPECT_TRUE(run.HasEnded());
}

TEST_F(SchedulerTest, TwoRefusalsStopWhoUsesTheSameCredential) {
    Plan(10);
    for (auto& host : m_hosts) host.credential = "lab";
    Scheduler& run = Begin();
    ASSERT_THAT(StartsWithin(seconds(1)), SizeIs(3));
    run.LoggedIn(0);
    run.Ended(1, kRefused, now);
    EXPECT_THAT(Take().start, IsEmpty());

    run.Ended(2, kRefused, now);

    const auto orders = Take();
    EXPECT_THAT(orders.start, IsEmpty());
    ASSERT_THAT(orders.stop, SizeIs(7));
    std::set<std::size_t> stopped;
    for (const auto& stop : orders.stop) {
        EXPECT_EQ(stop.why, Why::kGuard);
        EXPECT_FALSE(stop.atWork);
        stopped.insert(stop.host);
    }
    EXPECT_EQ(stopped.count(0), 0U) << "its BMC has taken the password";
}

TEST_F(SchedulerTest, ARunOfManyHostsEndsWithinItsLimits) {
    Plan(500);
    for (auto& host : m_hosts) host.credential = "lab";
    pace.gathering = 40;
    pace.transfers = 3;
    Scheduler& run = Begin();
    std::map<std::size_t, Scheduler::Time> gathered;
    std::map<std::size_t, Scheduler::Time> fetched;
    std::size_t mostGathering = 0;
    std::size_t steps = 0;
    while (!run.HasEnded() && ++steps < 100000) {
        const auto orders = Take();
        ASSERT_THAT(orders.stop, IsEmpty());
        for (const std::size_t host : orders.start) gathered[host] = now + seconds(30);
        for (const std::size_t host : orders.go) fetched[host] = now + seconds(1);
        mostGathering = std::max(mostGathering, run.AtWork() - fetched.size());
        ASSERT_LE(fetched.size(), 3U);
        now += milliseconds(10);
        for (auto host = gathered.begin(); host != gathered.end();) {
            run.LoggedIn(host->first);
            if (host->second > now) {
                ++host;
                continue;
            }
            run.AskedForTurn(host->first, now);
            host = gathered.erase(host);
        }
        for (auto host = fetched.begin(); host != fetched.end();) {
            if (host->second > now) {
                ++host;
                continue;
            }
            run.Ended(host->first, kDone, now);
            host = fetched.erase(host);
        }
    }
    EXPECT_TRUE(run.HasEnded());
    EXPECT_EQ(mostGathering, 40U);
    for (std::size_t host = 0; host < 500; ++host) EXPECT_EQ(run.Tries(host), 1);
}

}  // namespace
