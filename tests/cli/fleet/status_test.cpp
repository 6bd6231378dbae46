// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetStatus.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/history/FleetJournal.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Options;
using Kemffdc::Part;
using Kemffdc::ShowFleetStatus;
using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::HostState;
using Kemffdc::History::Id;
using testing::HasSubstr;
using testing::MatchesRegex;

struct Told {
    int code = 0;
    std::string out;
    std::string err;
};

class FleetStatus : public testing::Test {
protected:
    Id Begin(const std::string& folder) {
        FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "1.1.0";
        run.folder = folder;
        std::vector<FleetHostRow> plan(2);
        plan[0].name = "bmc001";
        plan[0].host = plan[1].host = "bmc";
        plan[1].name = "bmc002";
        return m_conductor->BeginFleet(run, plan);
    }

    Told Ask(const std::string& subject, bool json = false, bool watch = false) const {
        Options options;
        options.stateDir = m_folder.Path();
        options.subject = subject;
        options.json = json;
        options.own.Of<Kemffdc::FleetStatusOptions>().watch = watch;
        std::ostringstream out;
        std::ostringstream err;
        const int code = ShowFleetStatus(options, out, err);
        return {code, out.str(), err.str()};
    }

    const TempFolder m_folder;
    std::unique_ptr<FleetJournal> m_conductor = std::make_unique<FleetJournal>(m_folder.Path());
};

TEST_F(FleetStatus, ShowsTheTableOfARunAtWork) {
    (void)Begin("/srv/one");
    m_conductor->SetState(1, 2, HostState::kStarting);
    const Told told = Ask("");
    EXPECT_EQ(told.code, 0);
    EXPECT_THAT(told.out,
                MatchesRegex("Run 1 \\(collect\\), 0 of 2 ended, 0:0., time left unknown\n"
                             "\\[-+\\]  0 %\n"
                             "1 connecting, 1 queued\n"
                             "bmc002  connecting +0:0.\n"
                             "Folder: /srv/one\n"));
    EXPECT_EQ(told.err, "");
}

TEST_F(FleetStatus, SaysThatARunWasKilledAndHowToGoOn) {
    (void)Begin("/srv/one");
    m_conductor->EndHost(1, 1, HostState::kDone, 0, "downloaded", "");
    m_conductor.reset();
    const Told told = Ask("1");
    EXPECT_EQ(told.code, 0);
    EXPECT_THAT(told.out, HasSubstr("Run 1 (collect) was killed: 1 of 2 hosts done in 0:0"));
    EXPECT_THAT(told.out, HasSubstr("\n1 not tried: bmc002\n"));
    EXPECT_THAT(told.out, HasSubstr("\nNext:    kemffdc fleet resume 1\n"));
}

TEST_F(FleetStatus, FindsARunByItsFolder) {
    (void)Begin(m_folder.Path());
    (void)Begin("/nowhere");
    EXPECT_THAT(Ask("").out, HasSubstr("Run 2 "));
    EXPECT_THAT(Ask(m_folder.Path() + "/.").out, HasSubstr("Run 1 "));
    const Told told = Ask("/srv/other");
    EXPECT_EQ(told.code, 8);
    EXPECT_EQ(told.err,
              "kemffdc: No fleet run /srv/other is known. Without a number or a folder the newest "
              "one is taken. [exit code 8]\n");
}

TEST_F(FleetStatus, WithoutAnyRunSaysSo) {
    EXPECT_EQ(Ask("").err, "kemffdc: No fleet run is known. [exit code 8]\n");
    EXPECT_EQ(Ask("7").code, 8);
    EXPECT_THAT(Ask("7", true).out, HasSubstr(R"("outcome":"local-file","exit_code":8)"));
}

TEST_F(FleetStatus, WatchesUntilTheRunEndsAndEndsLikeIt) {
    (void)Begin("/srv/one");
    m_conductor->EndHost(1, 1, HostState::kDone, 0, "downloaded", "");
    m_conductor->EndFleet(1, 20);
    m_conductor.reset();
    const Told told = Ask("1", true, true);
    EXPECT_EQ(told.code, 20);
    EXPECT_THAT(told.out, HasSubstr(R"("exit_code":20,"reason":"Only 1 of 2 hosts done.")"));
}

TEST_F(FleetStatus, WatchingSaysThatTheRunWasKilled) {
    (void)Begin("/srv/one");
    m_conductor.reset();
    const Told told = Ask("1", false, true);
    EXPECT_EQ(told.code, 8);
    EXPECT_THAT(told.out, HasSubstr("kemffdc fleet resume 1"));
    EXPECT_EQ(told.err,
              "kemffdc: Nobody works on this run any more: it was killed. [exit code 8]\n");
}

}  // namespace
