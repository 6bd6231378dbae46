// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Guard.h"

#include <gtest/gtest.h>

namespace {

using Kemffdc::Fleet::Guard;
using std::chrono::seconds;

constexpr Guard::Time kNow{};

Guard OneCredential(std::size_t hosts) { return Guard(std::vector<std::string>(hosts, "lab")); }

// How many of the hosts from `first` on could be started one after the other.
std::size_t StartAll(Guard& guard, std::size_t first, std::size_t hosts, Guard::Time now) {
    std::size_t started = 0;
    for (std::size_t host = first; host < hosts; ++host) {
        if (!guard.MayStart(host, now)) continue;
        guard.Started(host, now);
        ++started;
    }
    return started;
}

TEST(Guard, ThreeHostsTryACredentialFirst) {
    Guard guard = OneCredential(10);

    EXPECT_EQ(StartAll(guard, 0, 10, kNow), 3U);
}

TEST(Guard, ThreeTakenLoginsLetAllOthersFollow) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);

    guard.Accepted(0);
    guard.Accepted(1);
    EXPECT_FALSE(guard.MayStart(3, kNow));
    guard.Accepted(2);

    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 7U);
}

TEST(Guard, AHostThatEndsWithoutAnAnswerMakesRoomForAnother) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);

    guard.Ended(1);

    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 1U);
}

TEST(Guard, ASilentHostHoldsUpTheOthersForAWhileOnly) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);
    guard.Accepted(0);
    guard.Accepted(1);
    ASSERT_EQ(guard.NextChange(kNow), kNow + Guard::kAnswerTime);

    EXPECT_FALSE(guard.MayStart(3, kNow + Guard::kAnswerTime - seconds(1)));
    EXPECT_TRUE(guard.MayStart(3, kNow + Guard::kAnswerTime));
    EXPECT_FALSE(guard.NextChange(kNow + Guard::kAnswerTime));
}

TEST(Guard, OneRefusalIsThatHostsAlone) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);

    guard.Refused(0);

    EXPECT_FALSE(guard.MayStart(0, kNow));
    EXPECT_FALSE(guard.IsClosedFor(1));
    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 0U) << "the others have not answered";
    guard.Accepted(1);
    guard.Accepted(2);
    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 1U);
    guard.Accepted(3);
    EXPECT_EQ(StartAll(guard, 4, 10, kNow), 6U);
}

TEST(Guard, TheSecondRefusalClosesTheCredentialWhereNobodyHasTakenIt) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);

    guard.Accepted(1);
    guard.Refused(0);
    guard.Refused(2);

    EXPECT_TRUE(guard.IsClosedFor(3));
    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 0U);
    EXPECT_FALSE(guard.IsClosedFor(1));
    EXPECT_TRUE(guard.MayStart(1, kNow));  // another try
}

TEST(Guard, TheSameHostCountsOnce) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);

    guard.Refused(0);
    guard.Refused(0);

    EXPECT_FALSE(guard.IsClosedFor(3));
}

TEST(Guard, RefusalsAreCountedAtAnyTime) {
    Guard guard = OneCredential(10);
    for (std::size_t host = 0; host < 8; ++host) {
        ASSERT_TRUE(guard.MayStart(host, kNow));
        guard.Started(host, kNow);
        if (host < 6) guard.Accepted(host);
    }

    guard.Refused(6);
    guard.Refused(7);

    EXPECT_TRUE(guard.IsClosedFor(8));
    EXPECT_FALSE(guard.IsClosedFor(0));
}

TEST(Guard, ALoginThatIsRefusedLaterNoLongerProvesAnything) {
    Guard guard = OneCredential(10);
    StartAll(guard, 0, 10, kNow);
    for (std::size_t host = 0; host < 3; ++host) guard.Accepted(host);

    guard.Refused(0);

    EXPECT_TRUE(guard.IsClosedFor(0));
    EXPECT_EQ(StartAll(guard, 3, 10, kNow), 1U);
}

TEST(Guard, CredentialsAreJudgedApart) {
    Guard guard({"old", "old", "old", "new", "new", "new", "new"});
    StartAll(guard, 0, 7, kNow);

    guard.Refused(0);
    guard.Refused(1);

    EXPECT_TRUE(guard.IsClosedFor(2));
    EXPECT_FALSE(guard.IsClosedFor(6));
    guard.Ended(3);
    EXPECT_TRUE(guard.MayStart(6, kNow));
}

}  // namespace
