// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/JournalScene.h"

#include <gmock/gmock.h>

#include <fstream>
#include <memory>
#include <string>

#include "support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using Kemffdc::Fleet::ReadScene;
using Kemffdc::Fleet::Scene;
using Kemffdc::Fleet::SceneHost;
using Kemffdc::Fleet::WallTime;
using Kemffdc::History::ArchiveRow;
using Kemffdc::History::FleetHostRow;
using Kemffdc::History::FleetJournal;
using Kemffdc::History::FleetRunRow;
using Kemffdc::History::HostState;
using Kemffdc::History::Id;
using Kemffdc::History::RunRow;
using Kemffdc::History::Store;

class JournalScenes : public testing::Test {
protected:
    JournalScenes() {
        FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "1.1.0";
        run.folder = "/srv/ffdc/run";
        std::vector<FleetHostRow> plan(3);
        plan[0].name = "bmc001";
        for (FleetHostRow& host : plan) host.host = "bmc";
        plan[0].channel = "redfish";
        plan[1].name = "bmc002";
        plan[1].channel.clear();
        plan[2].name = "bmc003";
        plan[2].channel = "ipmi";
        m_fleet = m_conductor->BeginFleet(run, plan);
    }

    Scene Read() const { return ReadScene(m_store, m_reader, *m_reader.Find(m_fleet), Now()); }
    static WallTime Now() { return std::chrono::system_clock::now(); }

    // The worker's side: a run of its own, in the state of a download.
    Id BeginAttempt(int number) {
        RunRow run;
        run.command = "collect";
        run.toolVersion = "1.1.0";
        run.channel = "redfish";
        run.host = "bmc";
        run.fleet = m_fleet;
        run.fleetNumber = number;
        m_conductor->SetState(m_fleet, number, HostState::kStarting);
        return m_store.BeginRun(run);
    }

    const TempFolder m_folder;
    Store m_store{m_folder.Path()};
    std::unique_ptr<FleetJournal> m_conductor = std::make_unique<FleetJournal>(m_folder.Path());
    const FleetJournal m_reader{m_folder.Path()};
    Id m_fleet = 0;
};

TEST_F(JournalScenes, OfARunThatHasJustBegun) {
    const WallTime before = Now();
    const Scene scene = Read();
    EXPECT_EQ(scene.fleet, m_fleet);
    EXPECT_EQ(scene.command, "collect");
    EXPECT_EQ(scene.folder, "/srv/ffdc/run");
    EXPECT_TRUE(scene.live);
    EXPECT_FALSE(scene.ended);
    EXPECT_LT(before - scene.begun, 3s);
    EXPECT_GE(scene.now, before);
    ASSERT_EQ(scene.hosts.size(), 3U);
    EXPECT_EQ(scene.hosts[0].name, "bmc001");
    EXPECT_EQ(scene.hosts[1].channel, "");
    EXPECT_EQ(scene.hosts[2].state, HostState::kQueued);
    EXPECT_EQ(scene.hosts[2].begun, WallTime());
}

TEST_F(JournalScenes, HaveTheStatesAndOutcomesOfHosts) {
    (void)BeginAttempt(1);
    m_conductor->SetState(m_fleet, 1, HostState::kGathering, "/redfish/v1/TaskService/Tasks/1");
    (void)BeginAttempt(2);
    m_conductor->EndHost(m_fleet, 2, HostState::kFailed, 3, "unreachable", "Nothing answers.");
    const Scene scene = Read();
    EXPECT_EQ(scene.hosts[0].state, HostState::kGathering);
    EXPECT_EQ(scene.hosts[0].attempts, 1);
    EXPECT_LE(scene.hosts[0].begun, scene.hosts[0].since);
    EXPECT_NE(scene.hosts[0].begun, WallTime());
    EXPECT_EQ(scene.hosts[1].state, HostState::kFailed);
    EXPECT_EQ(scene.hosts[1].outcome, "unreachable");
    EXPECT_EQ(scene.hosts[1].reason, "Nothing answers.");
}

TEST_F(JournalScenes, SayHowFarABmcIsWhileItGathers) {
    const Id run = BeginAttempt(1);
    m_store.SetOperation(run, "standard");
    m_store.SetTask(run, "/redfish/v1/TaskService/Tasks/1", "Running", 40);
    m_conductor->SetState(m_fleet, 1, HostState::kGathering);
    EXPECT_EQ(Read().hosts[0].percent, 40);
    EXPECT_EQ(Read().hosts[0].operation, "standard");
    m_conductor->SetState(m_fleet, 1, HostState::kWaiting);
    EXPECT_EQ(Read().hosts[0].percent, std::nullopt);
    EXPECT_EQ(Read().hosts[1].percent, std::nullopt);
}

TEST_F(JournalScenes, CountTheBytesThatAreOnTheDisk) {
    const Id run = BeginAttempt(1);
    m_conductor->SetState(m_fleet, 1, HostState::kTransferring);
    const std::string partial = m_folder.Path() + "/part";
    std::ofstream(partial) << std::string(5000, 'x');
    const Id archive = m_store.BeginArchive(run, "ffdc.tar.gz");
    m_store.SetPartial(archive, partial, "", 20000);
    m_conductor->EndHost(m_fleet, 2, HostState::kDone, 0, "downloaded", "");
    m_conductor->SetArchive(m_fleet, 2, "/srv/ffdc/run/bmc002/x.tar.gz", 7000, "");
    const Scene scene = Read();
    EXPECT_EQ(scene.hosts[0].bytes, 5000U);
    EXPECT_EQ(scene.hosts[0].expected, 20000U);
    EXPECT_EQ(scene.hosts[1].bytes, 7000U);
}

TEST_F(JournalScenes, OfAKilledRunStandStill) {
    m_conductor->SetState(m_fleet, 1, HostState::kStarting);
    m_conductor.reset();  // as far as others see, its process is gone
    const Scene scene = Read();
    EXPECT_FALSE(scene.live);
    EXPECT_FALSE(scene.ended);
    EXPECT_EQ(scene.now, std::max(scene.begun, scene.hosts[0].since));
}

TEST_F(JournalScenes, OfAnEndedRunSayHowLongItTook) {
    m_conductor->EndFleet(m_fleet, 20);
    const Scene scene = ReadScene(m_store, m_reader, *m_reader.Find(m_fleet), Now() + 3600s);
    EXPECT_TRUE(scene.ended);
    EXPECT_LT(scene.now - scene.begun, 60s);
}

TEST_F(JournalScenes, BeginAnewWhereARunIsResumed) {
    m_conductor->SetState(m_fleet, 1, HostState::kStarting);
    m_conductor->SetState(m_fleet, 1, HostState::kFailed);
    const WallTime first = Read().hosts[0].begun;
    m_conductor->SetState(m_fleet, 1, HostState::kQueued);
    EXPECT_EQ(Read().hosts[0].begun, WallTime());
    m_conductor->SetState(m_fleet, 1, HostState::kStarting);
    const Scene scene = Read();
    EXPECT_GT(scene.hosts[0].begun, first);
    EXPECT_GE(scene.hosts[0].begun, scene.begun);
    EXPECT_GT(scene.begun, first);
}

}  // namespace
