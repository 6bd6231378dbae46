// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Earlier.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "support/TempFolder.h"

namespace {

using Kemffdc::Fleet::Earlier;
using Kemffdc::Fleet::LookBack;
using Kemffdc::History::ArchiveRow;
using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::Id;
using Kemffdc::History::RunRow;
using Kemffdc::History::Store;
using testing::HasSubstr;

class EarlierTest : public testing::Test {
protected:
    EarlierTest() : store(place / "state"), journal(store) {
        FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "1";
        FleetHostRow host;
        host.name = host.host = "bmc";
        fleet = journal.BeginFleet(run, {host, host});
    }

    Id Attempt(const std::string& channel = "redfish", int number = 1) {
        RunRow run;
        run.command = "collect";
        run.toolVersion = "1";
        run.channel = channel;
        run.host = "bmc";
        run.port = 443;
        run.fleet = fleet;
        run.fleetNumber = number;
        return store.BeginRun(run);
    }

    void Deliver(Id run, std::optional<bool> whole) {
        ArchiveRow row;
        row.path = "/srv/a.tgz";
        row.size = 5;
        row.sha256 = "abc";
        row.whole = whole;
        store.Deliver(store.BeginArchive(run, "a.tgz"), row);
        journal.SetArchive(fleet, 1, row.path, row.size, row.sha256);
    }

    Earlier Found() const { return LookBack(store, fleet, 1, IsRedfish); }

    static bool IsRedfish(const RunRow& run) { return run.channel == "redfish" && !run.several; }

    TempFolder place;
    Store store;
    FleetJournal journal;
    Id fleet = 0;
};

TEST_F(EarlierTest, OfAHostThatNobodyHasTriedThereIsNothing) {
    store.SetTask(Attempt("redfish", 2), "/tasks/1", "Running");
    EXPECT_EQ(Found().run.id, 0);
    EXPECT_EQ(Found().archive, "");
    EXPECT_EQ(Found().note, "");
}

TEST_F(EarlierTest, AKnownTaskIsGoneOnWith) {
    const Id run = Attempt();
    store.SetTask(run, "/tasks/1", "Running");
    EXPECT_EQ(Found().run.id, run);
    EXPECT_EQ(Found().run.task, "/tasks/1");
}

TEST_F(EarlierTest, AnIntentWithoutATaskIsFollowedUp) {
    const Id run = Attempt();
    store.BeginStep(run, "preflight");
    EXPECT_EQ(Found().run.id, 0);
    store.BeginStep(run, "export");
    EXPECT_EQ(Found().run.id, run);
    EXPECT_EQ(Found().run.task, "");
}

TEST_F(EarlierTest, AnAttemptThatDidNotGetSoFarLeavesWhatWasBefore) {
    const Id first = Attempt();
    store.SetTask(first, "/tasks/1", "Running");
    const Id second = Attempt();
    store.EndRun(second, 3, "unreachable", "Nobody answers.");
    EXPECT_EQ(Found().run.id, first);
}

TEST_F(EarlierTest, TheNewestTaskCounts) {
    store.SetTask(Attempt(), "/tasks/1", "Running");
    const Id second = Attempt();
    store.SetTask(second, "/tasks/2", "Running");
    EXPECT_EQ(Found().run.id, second);
}

TEST_F(EarlierTest, ATaskThatHasFailedIsLeft) {
    const Id run = Attempt();
    store.SetTask(run, "/tasks/1", "Killed");
    store.EndRun(run, 5, "task-killed", "The BMC killed the task.");
    EXPECT_EQ(Found().run.id, 0);
}

TEST_F(EarlierTest, ADownloadThatHasFailedIsGoneOnWith) {
    const Id run = Attempt();
    store.SetTask(run, "/tasks/1", "Completed");
    store.EndRun(run, 7, "download-failed", "Cut.");
    EXPECT_EQ(Found().run.id, run);
}

TEST_F(EarlierTest, ARequestThatNothingCameOfIsNotWaitedForTwice) {
    const Id asked = Attempt();
    store.BeginStep(asked, "export");
    RunRow run;
    run.command = "resume";
    run.toolVersion = "1";
    run.channel = "redfish";
    run.host = "bmc";
    run.continues = asked;
    run.fleet = fleet;
    run.fleetNumber = 1;
    const Id waited = store.BeginRun(run);
    EXPECT_EQ(Found().run.id, asked);
    store.EndRun(waited, 6, "not-finished", "Not finished.");
    EXPECT_EQ(Found().run.id, 0);
}

TEST_F(EarlierTest, AnArchiveThatWasBroughtCounts) {
    const Id run = Attempt();
    store.SetTask(run, "/tasks/1", "Completed");
    Deliver(run, true);
    EXPECT_EQ(Found().archive, "/srv/a.tgz");
    EXPECT_EQ(Found().size, 5U);
    EXPECT_EQ(Found().sha256, "abc");
    EXPECT_EQ(Found().run.id, 0);
}

TEST_F(EarlierTest, ADamagedArchiveAndOneThatWasRemovedDoNot) {
    const Id run = Attempt();
    Deliver(run, false);
    EXPECT_EQ(Found().archive, "");
    Deliver(run, true);
    EXPECT_EQ(Found().archive, "/srv/a.tgz");
    for (const ArchiveRow& row : store.Archives(run)) store.NoteRemoved(row.id);
    EXPECT_EQ(Found().archive, "");
}

TEST_F(EarlierTest, ATreeIsReadAnewAndTheReportSaysSo) {
    const Id run = Attempt();
    store.SetOperation(run, "tree");
    EXPECT_EQ(Found().run.id, 0);
    EXPECT_EQ(Found().note, "An earlier attempt was reading the BMC's Redfish tree (run " +
                                std::to_string(run) +
                                "); nothing of that is kept, so it is read anew.");
    store.EndRun(run, 9, "files-missing", "Not all.");
    EXPECT_EQ(Found().note, "");
}

TEST_F(EarlierTest, OfSeveralTypesItGathersAgainAndTheReportSaysSo) {
    const Id run = Attempt();
    store.SetTask(run, "/tasks/1", "Running");
    store.SetSeveral(run);
    EXPECT_EQ(Found().run.id, 0);
    EXPECT_EQ(Found().note, "An earlier attempt had made the BMC gather (run " +
                                std::to_string(run) +
                                "); of several types of data nobody can go on with that, so it "
                                "gathers again.");
}

TEST_F(EarlierTest, OverIpmiAndCimItGathersAgainAndTheReportSaysSo) {
    const Id run = Attempt("ipmi");
    EXPECT_EQ(Found().note, "");
    store.BeginStep(run, "collect");
    EXPECT_EQ(Found().run.id, 0);
    EXPECT_THAT(Found().note, HasSubstr("over ipmi nobody can go on with that"));
    store.BeginStep(Attempt("cim"), "export");
    EXPECT_THAT(Found().note, HasSubstr("over cim"));
}

}  // namespace
