// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Fold.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "cli/fleet/MadeScene.h"

namespace {

using namespace MadeScene;
using Kemffdc::Fleet::FoldedLine;
using Kemffdc::Fleet::GroupByOutcome;
using Kemffdc::Fleet::IsGood;
using Kemffdc::Fleet::OutcomeGroup;
using Kemffdc::Fleet::OutcomeOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(GroupByOutcome, PutsTheLargestGroupFirst) {
    const std::vector<OutcomeGroup> groups =
        GroupByOutcome({"busy", "login-refused", "unreachable", "login-refused"});
    ASSERT_EQ(groups.size(), 3U);
    EXPECT_EQ(groups[0].outcome, "login-refused");
    EXPECT_THAT(groups[0].hosts, ElementsAre(1, 3));
    EXPECT_EQ(groups[1].outcome, "busy");
    EXPECT_EQ(groups[2].outcome, "unreachable");
}

TEST(GroupByOutcome, OfNobodyIsEmpty) { EXPECT_THAT(GroupByOutcome({}), IsEmpty()); }

TEST(FoldedLine, CountsAndFolds) {
    EXPECT_EQ(FoldedLine("login-refused", {"bmc020", "bmc003", "bmc018", "bmc017", "bmc019"}),
              "5 wrong password: bmc[003,017-020]");
}

TEST(FoldedLine, CutsAListThatFillsScreens) {
    std::vector<std::string> hosts;
    for (int i = 0; i < 3000; ++i) hosts.push_back("bmc" + std::to_string(7 * i));
    const std::string line = FoldedLine("unreachable", hosts);
    EXPECT_THAT(line, HasSubstr("3000 no answer: bmc[0,7,14,"));
    EXPECT_EQ(line.substr(line.size() - 4), ",...");
    EXPECT_LT(line.size(), 2100U);
}

TEST(FoldedLine, ShowsNothingThatSteersTheTerminal) {
    EXPECT_EQ(FoldedLine("busy", {"a\x1b[2J"}), "1 busy with another gathering: a\\x1B[2J");
}

struct OutcomeRow {
    HostState state;
    const char* outcome;
    const char* meant;
};

TEST(OutcomeOf, IsThereForEachHost) {
    const OutcomeRow rows[] = {
        {HostState::kQueued, "", "not-tried"},
        {HostState::kGathering, "", "not-ended"},
        {HostState::kPausing, "busy", "not-ended"},  // it is tried again
        {HostState::kDone, "downloaded", "downloaded"},
        {HostState::kFailed, "login-refused", "login-refused"},
        {HostState::kStopped, "guarded", "guarded"},
        {HostState::kStopped, "", "not-tried"},
    };
    for (const OutcomeRow& row : rows) {
        Scene scene = RunOf(0);
        SceneHost& host = Add(scene, "bmc1", row.state);
        host.outcome = row.outcome;
        EXPECT_EQ(OutcomeOf(host), row.meant) << NameOf(row.state);
    }
}

TEST(IsGood, IsWhatTheRunWasFor) {
    for (const char* outcome : {"downloaded", "exported", "checked"}) EXPECT_TRUE(IsGood(outcome));
    for (const char* outcome : {"", "ok", "limited", "not-tried", "busy"}) {
        EXPECT_FALSE(IsGood(outcome)) << outcome;
    }
}

}  // namespace
