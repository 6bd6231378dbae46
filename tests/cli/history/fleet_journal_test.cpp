// SPDX-License-Identifier: Apache-2.0
#include "cli/history/FleetJournal.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "LogSink.h"
#include "cli/history/Processes.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::FleetStateRow;
using Kemffdc::History::HostState;
using Kemffdc::History::Id;
using Kemffdc::History::RunRow;
using Kemffdc::History::Store;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

FleetRunRow Collect() {
    FleetRunRow run;
    run.command = "collect";
    run.toolVersion = "1.1.0";
    run.inventory = "rack.csv";
    run.shard = "2/10";
    run.folder = "/srv/ffdc/night";
    run.credentials = "/etc/kemffdc/credentials";
    run.settings = R"({"gathering":256})";
    return run;
}

FleetHostRow HostNamed(const std::string& name) {
    FleetHostRow host;
    host.name = name;
    host.host = name + ".example";
    host.channel = "redfish";
    host.group = "rack3";
    host.credential = "admins";
    host.arguments = R"(["collect","--via","redfish"])";
    return host;
}

// The run of a host's attempt.
RunRow Attempt(Id fleet, int number) {
    RunRow run;
    run.command = "collect";
    run.toolVersion = "1.1.0";
    run.channel = "redfish";
    run.host = "bmc";
    run.fleet = fleet;
    run.fleetNumber = number;
    return run;
}

auto StateLine(int number, HostState state, const std::string& detail = "") {
    return AllOf(Field(&FleetStateRow::number, number), Field(&FleetStateRow::state, state),
                 Field(&FleetStateRow::detail, detail));
}

class FleetJournalTest : public testing::Test {
protected:
    TempFolder place;
    const std::string folder = place / "state";
};

TEST_F(FleetJournalTest, KeepsTheRunAndItsPlan) {
    {
        FleetJournal journal(folder);
        EXPECT_EQ(journal.Latest(), std::nullopt);
        EXPECT_EQ(journal.BeginFleet(Collect(), {HostNamed("a"), HostNamed("b")}), 1);
        EXPECT_EQ(journal.BeginFleet(Collect(), {}), 2);
    }
    const FleetJournal journal(folder);
    const FleetRunRow run = journal.Find(1).value();
    EXPECT_EQ(run.id, 1);
    EXPECT_EQ(run.command, "collect");
    EXPECT_EQ(run.toolVersion, "1.1.0");
    EXPECT_EQ(run.inventory, "rack.csv");
    EXPECT_EQ(run.shard, "2/10");
    EXPECT_EQ(run.folder, "/srv/ffdc/night");
    EXPECT_EQ(run.credentials, "/etc/kemffdc/credentials");
    EXPECT_EQ(run.settings, R"({"gathering":256})");
    EXPECT_THAT(run.begunAt, testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(run.endedAt, "");
    EXPECT_EQ(run.exitCode, -1);
    EXPECT_EQ(journal.Find(3), std::nullopt);
    EXPECT_EQ(journal.Latest()->id, 2);
    EXPECT_THAT(journal.Fleets(10),
                ElementsAre(Field(&FleetRunRow::id, 2), Field(&FleetRunRow::id, 1)));

    const std::vector<FleetHostRow> hosts = journal.Hosts(1);
    ASSERT_THAT(hosts, SizeIs(2));
    EXPECT_EQ(hosts[1].fleet, 1);
    EXPECT_EQ(hosts[1].number, 2);
    EXPECT_EQ(hosts[1].name, "b");
    EXPECT_EQ(hosts[1].host, "b.example");
    EXPECT_EQ(hosts[1].channel, "redfish");
    EXPECT_EQ(hosts[1].group, "rack3");
    EXPECT_EQ(hosts[1].credential, "admins");
    EXPECT_EQ(hosts[1].arguments, R"(["collect","--via","redfish"])");
    EXPECT_EQ(hosts[1].state, HostState::kQueued);
    EXPECT_EQ(hosts[1].changedAt, 0);
    EXPECT_EQ(hosts[1].attempts, 0);
    EXPECT_EQ(hosts[1].run, 0);
    EXPECT_EQ(hosts[1].exitCode, -1);
    EXPECT_THAT(journal.Hosts(2), IsEmpty());
    EXPECT_EQ(journal.Host(1, 3), std::nullopt);
}

TEST_F(FleetJournalTest, KeepsTheTimelineOfEachHost) {
    FleetJournal journal(folder);
    const Id fleet = journal.BeginFleet(Collect(), {HostNamed("a"), HostNamed("b")});
    journal.SetState(fleet, 1, HostState::kStarting);
    journal.SetState(fleet, 2, HostState::kStarting);
    journal.SetState(fleet, 1, HostState::kGathering, "/tasks/1");
    journal.SetState(fleet, 1, HostState::kGathering, "/tasks/1");
    journal.EndHost(fleet, 2, HostState::kFailed, 3, "login-refused", "Wrong password.");

    const std::vector<FleetStateRow> states = journal.States(fleet);
    EXPECT_THAT(states,
                ElementsAre(StateLine(1, HostState::kStarting), StateLine(2, HostState::kStarting),
                            StateLine(1, HostState::kGathering, "/tasks/1"),
                            StateLine(2, HostState::kFailed, "Wrong password.")));
    EXPECT_GT(states.front().at, 1.7e9);
    EXPECT_LE(states.front().at, states.back().at);
    const FleetHostRow first = journal.Host(fleet, 1).value();
    EXPECT_EQ(first.state, HostState::kGathering);
    EXPECT_EQ(first.changedAt, states[2].at);
    const FleetHostRow second = journal.Host(fleet, 2).value();
    EXPECT_EQ(second.state, HostState::kFailed);
    EXPECT_EQ(second.exitCode, 3);
    EXPECT_EQ(second.outcome, "login-refused");
    EXPECT_EQ(second.reason, "Wrong password.");
}

TEST_F(FleetJournalTest, AHostIsWhatItsLatestAttemptFoundAndWhatAnyHasBrought) {
    Store store(folder);
    FleetJournal journal(store);
    const Id fleet = journal.BeginFleet(Collect(), {HostNamed("a"), HostNamed("b")});
    const Id first = store.BeginRun(Attempt(fleet, 2));
    store.SetTask(first, "/tasks/1", "Running");
    journal.SetArchive(fleet, 2, "/srv/ffdc/night/b/ffdc.tgz", 5000000000, "abc");
    const Id second = store.BeginRun(Attempt(fleet, 2));
    store.SetTask(second, "/tasks/2", "Completed", 0);
    store.SetOperation(second, "oem");
    store.SetBmc(second, {"192.0.2.7", "1.15.0", "Varnex", "Server", "KEM-1", "2.3", "SN1", "0a",
                          "AA:BB", "SHA256:xyz"});
    journal.SetExported(fleet, 1, "sftp://store/a.tgz");

    const FleetHostRow host = journal.Host(fleet, 2).value();
    EXPECT_EQ(host.attempts, 2);
    EXPECT_EQ(host.run, second);
    EXPECT_EQ(host.task, "/tasks/2");
    EXPECT_EQ(host.taskState, "Completed");
    EXPECT_EQ(host.taskPercent, 0);
    EXPECT_EQ(host.operation, "oem");
    EXPECT_EQ(host.archive, "/srv/ffdc/night/b/ffdc.tgz");
    EXPECT_EQ(host.size, 5000000000U);
    EXPECT_EQ(host.sha256, "abc");
    EXPECT_EQ(host.bmc.address, "192.0.2.7");
    EXPECT_EQ(host.bmc.serial, "SN1");
    EXPECT_EQ(host.bmc.hostKey, "SHA256:xyz");
    EXPECT_EQ(journal.Host(fleet, 1)->exportUri, "sftp://store/a.tgz");
    EXPECT_EQ(journal.Host(fleet, 1)->attempts, 0);
    EXPECT_EQ(journal.Host(fleet, 1)->taskPercent, std::nullopt);
    EXPECT_THAT(journal.Attempts(fleet, 2),
                ElementsAre(Field(&RunRow::id, second), Field(&RunRow::id, first)));
    EXPECT_EQ(journal.Attempts(fleet, 2).front().fleet, fleet);
    EXPECT_EQ(journal.Attempts(fleet, 2).front().fleetNumber, 2);
    EXPECT_THAT(journal.Attempts(fleet, 1), IsEmpty());
}

TEST_F(FleetJournalTest, AFleetLivesAsLongAsItsConductorAndNobodyResumesItMeanwhile) {
    Id fleet = 0;
    {
        FleetJournal conductor(folder);
        fleet = conductor.BeginFleet(Collect(), {});
        FleetJournal other(folder);
        EXPECT_TRUE(other.IsLive(fleet));
        EXPECT_FALSE(other.ResumeFleet(fleet));
        conductor.EndFleet(fleet, 20);
        EXPECT_EQ(other.Find(fleet)->exitCode, 20);
        EXPECT_NE(other.Find(fleet)->endedAt, "");
    }
    FleetJournal later(folder);
    EXPECT_FALSE(later.IsLive(fleet));
    EXPECT_TRUE(later.ResumeFleet(fleet));
    EXPECT_TRUE(later.IsLive(fleet));
    EXPECT_EQ(later.Find(fleet)->endedAt, "");
    EXPECT_EQ(later.Find(fleet)->exitCode, -1);
}

TEST_F(FleetJournalTest, AKilledConductorLivesNoMore) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t process = Process([&] {
        FleetJournal journal(folder);
        journal.BeginFleet(Collect(), {HostNamed("a")});
        (void)!write(ready[1], "+", 1);
        while (true) pause();
        return true;
    });
    char word = 0;
    ASSERT_EQ(read(ready[0], &word, 1), 1);
    EXPECT_TRUE(FleetJournal(folder).IsLive(1));
    kill(process, SIGKILL);
    Ended(process);
    EXPECT_FALSE(FleetJournal(folder).IsLive(1));
    EXPECT_THAT(FleetJournal(folder).Hosts(1), SizeIs(1));
}

// Each worker as one process: all come at the same moment.
TEST_F(FleetJournalTest, ManyWorkersWriteAtTheSameTime) {
    constexpr int kWorkers = 60;
    FleetJournal journal(folder);
    const Id fleet =
        journal.BeginFleet(Collect(), std::vector<FleetHostRow>(kWorkers, HostNamed("bmc")));
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> workers;
    for (int number = 1; number <= kWorkers; ++number) {
        workers.push_back(Process([&] {
            char word = 0;
            close(start[1]);
            (void)!read(start[0], &word, 1);
            Store store(folder);
            FleetJournal own(store);
            store.BeginRun(Attempt(fleet, number));
            for (const HostState state : {HostState::kReached, HostState::kExporting,
                                          HostState::kGathering, HostState::kTransferring}) {
                own.SetState(fleet, number, state);
            }
            own.EndHost(fleet, number, HostState::kDone, 0, "downloaded", "");
            return true;
        }));
    }
    close(start[0]);
    close(start[1]);
    for (const pid_t worker : workers) EXPECT_EQ(Ended(worker), 0);
    EXPECT_THAT(journal.States(fleet), SizeIs(kWorkers * 5));
    EXPECT_THAT(journal.Hosts(fleet),
                testing::Each(AllOf(Field(&FleetHostRow::state, HostState::kDone),
                                    Field(&FleetHostRow::attempts, 1))));
}

TEST_F(FleetJournalTest, NoSecretGetsInAndNoneChangesAState) {
    const std::string secret = "Tr0ub4dor&3";
    Varnex::HideInLog(secret);
    Varnex::HideInLog("gathering");
    FleetJournal journal(folder);
    FleetHostRow host = HostNamed("a");
    host.arguments = R"(["collect",")" + secret + R"("])";
    const Id fleet = journal.BeginFleet(Collect(), {host});
    journal.SetState(fleet, 1, HostState::kGathering, "/tasks/" + secret);
    EXPECT_EQ(journal.Host(fleet, 1)->state, HostState::kGathering);
    journal.EndHost(fleet, 1, HostState::kFailed, 3, "login-refused", "wrong " + secret);
    for (const char* end : {"", "-wal"}) {
        EXPECT_THAT(Content(folder + "/history.db" + end), Not(HasSubstr(secret))) << end;
    }
}

}  // namespace
