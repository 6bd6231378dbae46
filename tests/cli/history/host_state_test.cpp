// SPDX-License-Identifier: Apache-2.0
#include "cli/history/HostState.h"

#include <gmock/gmock.h>

#include <optional>
#include <vector>

namespace {

using Kemffdc::History::HasEnded;
using Kemffdc::History::HostState;
using Kemffdc::History::HostStateNamed;
using Kemffdc::History::NameOf;

struct Row {
    HostState state;
    const char* name;
    bool ended;
};

// In the history of users, and in what programs read.
const std::vector<Row> kRows{
    {HostState::kQueued, "queued", false},
    {HostState::kStarting, "starting", false},
    {HostState::kReached, "reached", false},
    {HostState::kExporting, "exporting", false},
    {HostState::kGathering, "gathering", false},
    {HostState::kWaiting, "waiting", false},
    {HostState::kTransferring, "transferring", false},
    {HostState::kPausing, "pausing", false},
    {HostState::kDone, "done", true},
    {HostState::kFailed, "failed", true},
    {HostState::kStopped, "stopped", true},
};

TEST(HostStates, HaveTheirNamesBothWays) {
    for (const Row& row : kRows) {
        EXPECT_STREQ(row.name, NameOf(row.state));
        EXPECT_EQ(row.state, HostStateNamed(row.name)) << row.name;
    }
    EXPECT_EQ(std::nullopt, HostStateNamed("asleep"));
    EXPECT_EQ(std::nullopt, HostStateNamed(""));
}

TEST(HostStates, EndWithThreeOfThem) {
    for (const Row& row : kRows) EXPECT_EQ(row.ended, HasEnded(row.state)) << row.name;
}

}  // namespace
