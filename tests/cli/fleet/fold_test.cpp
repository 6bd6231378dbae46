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
using Kemffdc::Fleet::HostOutcome;
using Kemffdc::Fleet::IsGood;
using Kemffdc::Fleet::OutcomeGroup;
using Kemffdc::Fleet::OutcomeOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> Lines(const std::vector<HostOutcome>& hosts) {
    std::vector<std::string> lines;
    for (const OutcomeGroup& group : GroupByOutcome(hosts)) lines.push_back(FoldedLine(group));
    return lines;
}

TEST(GroupByOutcome, PutsTheLargestGroupFirstAndFoldsItsHosts) {
    EXPECT_THAT(Lines({{"bmc005", "busy"},
                       {"bmc020", "login-refused"},
                       {"bmc003", "login-refused"},
                       {"bmc100", "unreachable"},
                       {"bmc018", "login-refused"},
                       {"bmc017", "login-refused"},
                       {"bmc019", "login-refused"}}),
                ElementsAre("5 wrong password: bmc[003,017-020]",  //
                            "1 busy with another gathering: bmc005", "1 no answer: bmc100"));
}

TEST(GroupByOutcome, OfNobodyIsEmpty) { EXPECT_THAT(GroupByOutcome({}), IsEmpty()); }

TEST(FoldedLine, CutsAListThatFillsScreens) {
    OutcomeGroup group{"unreachable", {}};
    for (int i = 0; i < 3000; ++i) group.hosts.push_back("bmc" + std::to_string(7 * i));
    const std::string line = FoldedLine(group);
    EXPECT_THAT(line, HasSubstr("3000 no answer: bmc[0,7,14,"));
    EXPECT_EQ(line.substr(line.size() - 4), ",...");
    EXPECT_LT(line.size(), 2100U);
}

TEST(FoldedLine, ShowsNothingThatSteersTheTerminal) {
    EXPECT_EQ(FoldedLine({"busy", {"a\x1b[2J"}}), "1 busy with another gathering: a\\x1B[2J");
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
