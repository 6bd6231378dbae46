// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_CLI_FLEET_FLEETHISTORY_H
#define VARNEX_TESTS_CLI_FLEET_FLEETHISTORY_H

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"
#include "support/TempFolder.h"

// A history of fleet runs, each with a folder of its own, and the files that their hosts brought.
class FleetHistory {
public:
    using Id = Kemffdc::History::Id;
    using HostState = Kemffdc::History::HostState;

    // A run of hosts of these names begins; it is at work until End().
    Id Begin(const std::vector<std::string>& names) {
        namespace History = Kemffdc::History;
        History::FleetRunRow run;
        run.command = "collect";
        run.toolVersion = "1.1.0";
        run.inventory = "rack.csv";
        run.folder = place / ("run" + std::to_string(++m_runs));
        std::filesystem::create_directory(run.folder);
        std::vector<History::FleetHostRow> plan;
        for (const std::string& name : names) {
            History::FleetHostRow host;
            host.name = name;
            host.host = name + ".example";
            host.channel = "redfish";
            host.group = "rack3";
            plan.push_back(host);
        }
        auto conductor = std::make_unique<History::FleetJournal>(store);
        const Id fleet = conductor->BeginFleet(run, plan);
        m_conductors[fleet] = std::move(conductor);
        return fleet;
    }

    void End(Id fleet, int exitCode = 0) {
        m_conductors.at(fleet)->EndFleet(fleet, exitCode);
        Kill(fleet);
    }

    // The process that worked on it is gone.
    void Kill(Id fleet) { m_conductors.erase(fleet); }

    // The path of what the host has brought: `content` in RUN/NAME/NAME.tgz, with a record.
    std::string Deliver(Id fleet, int number, const std::string& content = "archive",
                        std::optional<bool> whole = true) {
        namespace History = Kemffdc::History;
        const History::FleetRunRow run = *journal.Find(fleet);
        const History::FleetHostRow host = *journal.Host(fleet, number);
        History::RunRow attempt;
        attempt.command = "collect";
        attempt.toolVersion = "1.1.0";
        attempt.host = host.host;
        attempt.fleet = fleet;
        attempt.fleetNumber = number;
        const Id id = store.BeginRun(attempt);
        journal.SetState(fleet, number, HostState::kStarting);
        journal.SetState(fleet, number, HostState::kGathering);
        History::ArchiveRow file;
        const std::string folder = run.folder + "/" + host.name;
        std::filesystem::create_directories(folder);
        file.path = folder + "/" + host.name + ".tgz";
        std::ofstream(file.path) << content;
        std::ofstream(file.path + ".json") << "{}\n";
        file.size = content.size();
        file.sha256 = std::string(64, 'a');
        file.whole = whole;
        store.Deliver(store.BeginArchive(id, "ffdc.tgz"), file);
        store.EndRun(id, 0, "downloaded", "");
        journal.SetArchive(fleet, number, file.path, file.size, file.sha256);
        journal.EndHost(fleet, number, HostState::kDone, 0, "downloaded", "");
        return file.path;
    }

    void Fail(Id fleet, int number, const std::string& outcome, const std::string& reason) {
        journal.SetState(fleet, number, HostState::kStarting);
        journal.EndHost(fleet, number, HostState::kFailed, 3, outcome, reason);
    }

    std::string Folder(Id fleet) const { return journal.Find(fleet)->folder; }

    TempFolder place;
    Kemffdc::History::Store store{place / "state"};
    Kemffdc::History::FleetJournal journal{store};

private:
    int m_runs = 0;
    std::map<Id, std::unique_ptr<Kemffdc::History::FleetJournal>> m_conductors;  // of runs at work
};

#endif
