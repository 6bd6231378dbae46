// SPDX-License-Identifier: Apache-2.0
#include "cli/history/FleetJournal.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>

#include "cli/Utc.h"
#include "cli/history/BmcName.h"
#include "cli/history/Database.h"
#include "cli/history/Rows.h"

namespace Kemffdc::History {
namespace {

constexpr char kFleetColumns[] =
    "id, command, tool_version, inventory, shard, folder, credentials, settings, begun_at, "
    "ended_at, exit_code";
constexpr char kHostQuery[] =
    "SELECT h.fleet, number, name, h.host, h.channel, host_group, credential, arguments, state, "
    "changed_at, attempts, run, h.exit_code, h.outcome, h.reason, h.export_uri, archive, size, "
    "sha256, task, task_state, task_percent, operation, address, service_version, vendor, "
    "product, model, firmware, serial, uuid, certificate, host_key FROM fleet_hosts AS h LEFT JOIN "
    "runs ON runs.id = run WHERE h.fleet = ?";

double Now() {
    const std::chrono::duration<double> since1970 =
        std::chrono::system_clock::now().time_since_epoch();
    return since1970.count();
}

// What was written by a newer tool of the same schema is no reason to fail.
HostState StateIn(const std::string& name) {
    return HostStateNamed(name).value_or(HostState::kQueued);
}

FleetRunRow ReadFleet(const SQLite::Statement& statement) {
    Row row(statement);
    FleetRunRow fleet;
    fleet.id = row.Number();
    for (std::string* text :
         {&fleet.command, &fleet.toolVersion, &fleet.inventory, &fleet.shard, &fleet.folder,
          &fleet.credentials, &fleet.settings, &fleet.begunAt, &fleet.endedAt}) {
        *text = row.Text();
    }
    fleet.exitCode = row.Int(-1);
    return fleet;
}

FleetHostRow ReadHost(const SQLite::Statement& statement) {
    Row row(statement);
    FleetHostRow host;
    host.fleet = row.Number();
    host.number = row.Int();
    for (std::string* text :
         {&host.name, &host.host, &host.channel, &host.group, &host.credential, &host.arguments}) {
        *text = row.Text();
    }
    host.state = StateIn(row.Text());
    host.changedAt = row.Seconds();
    host.attempts = row.Int();
    host.run = row.Number();
    host.exitCode = row.Int(-1);
    for (std::string* text : {&host.outcome, &host.reason, &host.exportUri, &host.archive}) {
        *text = row.Text();
    }
    host.size = row.Bytes();
    for (std::string* text : {&host.sha256, &host.task, &host.taskState}) *text = row.Text();
    host.taskPercent = row.MaybeNumber();
    for (std::string* text :
         {&host.operation, &host.bmc.address, &host.bmc.serviceVersion, &host.bmc.vendor,
          &host.bmc.product, &host.bmc.model, &host.bmc.firmware, &host.bmc.serial, &host.bmc.uuid,
          &host.bmc.certificate, &host.bmc.hostKey}) {
        *text = row.Text();
    }
    return host;
}

FleetArchiveRow ReadFleetArchive(const SQLite::Statement& statement) {
    Row row(statement);
    FleetArchiveRow archive;
    archive.fleet = row.Number();
    archive.number = row.Int();
    archive.name = row.Text();
    archive.host = row.Text();
    archive.exitCode = row.Int(-1);
    archive.file = ReadArchive(row);
    return archive;
}

void InsertHost(SQLite::Statement& insert, Id fleet, int number, const FleetHostRow& host) {
    insert.reset();
    insert.clearBindings();
    Values(insert)
        .Number(fleet)
        .Number(number)
        .Text(host.name)
        .Text(host.host)
        .Text(host.channel)
        .Text(host.group)
        .Text(host.credential)
        .Text(host.arguments)
        .Word(NameOf(HostState::kQueued));
    insert.exec();
}

bool IsNews(SQLite::Database& connection, Id fleet, int number, HostState state,
            const std::string& detail) {
    SQLite::Statement query(connection,
                            "SELECT state, detail FROM fleet_states WHERE fleet = ? AND number = ? "
                            "ORDER BY id DESC LIMIT 1");
    Values(query).Number(fleet).Number(number);
    if (!query.executeStep()) return true;
    Row row(query);
    return row.Text() != NameOf(state) || row.Text() != detail;
}

void AddState(SQLite::Database& connection, Id fleet, int number, HostState state,
              const std::string& detail) {
    const double now = Now();
    if (IsNews(connection, fleet, number, state, detail)) {
        SQLite::Statement insert(connection,
                                 "INSERT INTO fleet_states (fleet, number, at, state, detail) "
                                 "VALUES (?, ?, ?, ?, ?)");
        Values(insert).Number(fleet).Number(number).Seconds(now).Word(NameOf(state)).Text(detail);
        insert.exec();
    }
    SQLite::Statement update(connection,
                             "UPDATE fleet_hosts SET state = ?1, changed_at = ?2 WHERE fleet = ?3 "
                             "AND number = ?4 AND state <> ?1");
    Values(update).Word(NameOf(state)).Seconds(now).Number(fleet).Number(number);
    update.exec();
}

}  // namespace

FleetJournal::FleetJournal(const std::string& stateFolder, const std::atomic<bool>* hurry)
    : FleetJournal(Store(stateFolder, hurry)) {}

FleetJournal::FleetJournal(const Store& store)
    : m_database(store.m_database), m_live(m_database->Folder() + "/fleets.live") {}

Id FleetJournal::BeginFleet(const FleetRunRow& run, const std::vector<FleetHostRow>& plan) {
    return m_database->Change([&](SQLite::Database& connection) {
        SQLite::Statement insert(connection,
                                 "INSERT INTO fleet_runs (command, tool_version, inventory, shard, "
                                 "folder, credentials, settings, begun_at) VALUES (?, ?, ?, ?, ?, "
                                 "?, ?, ?)");
        Values(insert)
            .Text(run.command)
            .Text(run.toolVersion)
            .Text(run.inventory)
            .Text(run.shard)
            .Text(run.folder)
            .Text(run.credentials)
            .Text(run.settings)
            .Text(UtcNow());
        insert.exec();
        const Id fleet = connection.getLastInsertRowid();
        SQLite::Statement host(connection,
                               "INSERT INTO fleet_hosts (fleet, number, name, host, channel, "
                               "host_group, credential, arguments, state) VALUES (?, ?, ?, ?, ?, "
                               "?, ?, ?, ?)");
        int number = 0;
        for (const FleetHostRow& planned : plan) InsertHost(host, fleet, ++number, planned);
        (void)m_live.Set(fleet);  // nobody may see it unmarked
        return fleet;
    });
}

bool FleetJournal::ResumeFleet(Id fleet) {
    if (!m_live.Set(fleet)) return false;
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE fleet_runs SET ended_at = NULL, exit_code = NULL WHERE id "
                                 "= ?");
        Values(update).Number(fleet);
        update.exec();
    });
    return true;
}

void FleetJournal::EndFleet(Id fleet, int exitCode) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE fleet_runs SET ended_at = ?, exit_code = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Number(exitCode).Number(fleet);
        update.exec();
    });
}

void FleetJournal::SetState(Id fleet, int number, HostState state, const std::string& detail) {
    m_database->Change(
        [&](SQLite::Database& connection) { AddState(connection, fleet, number, state, detail); });
}

void FleetJournal::SetArchive(Id fleet, int number, const std::string& path, std::uint64_t size,
                              const std::string& sha256) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE fleet_hosts SET archive = ?, size = ?, sha256 = ? WHERE "
                                 "fleet = ? AND number = ?");
        Values(update).Text(path).Bytes(size).Text(sha256).Number(fleet).Number(number);
        update.exec();
    });
}

void FleetJournal::SetExported(Id fleet, int number, const std::string& exportUri) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE fleet_hosts SET export_uri = ? WHERE fleet = ? AND number "
                                 "= ?");
        Values(update).Text(exportUri).Number(fleet).Number(number);
        update.exec();
    });
}

void FleetJournal::EndHost(Id fleet, int number, HostState state, int exitCode,
                           const std::string& outcome, const std::string& reason) {
    m_database->Change([&](SQLite::Database& connection) {
        AddState(connection, fleet, number, state, reason);
        SQLite::Statement update(connection,
                                 "UPDATE fleet_hosts SET exit_code = ?, outcome = ?, reason = ? "
                                 "WHERE fleet = ? AND number = ?");
        Values(update).Number(exitCode).Text(outcome).Text(reason).Number(fleet).Number(number);
        update.exec();
    });
}

std::optional<FleetRunRow> FleetJournal::Find(Id fleet) const {
    return m_database->Do([&](SQLite::Database& connection) -> std::optional<FleetRunRow> {
        SQLite::Statement query(
            connection, std::string("SELECT ") + kFleetColumns + " FROM fleet_runs WHERE id = ?");
        Values(query).Number(fleet);
        if (!query.executeStep()) return {};
        return ReadFleet(query);
    });
}

std::optional<FleetRunRow> FleetJournal::Latest() const {
    const std::vector<FleetRunRow> newest = Fleets(1);
    if (newest.empty()) return {};
    return newest.front();
}

std::vector<FleetRunRow> FleetJournal::Fleets(int limit) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection, std::string("SELECT ") + kFleetColumns +
                                                " FROM fleet_runs ORDER BY id DESC LIMIT ?");
        Values(query).Number(limit);
        std::vector<FleetRunRow> fleets;
        while (query.executeStep()) fleets.push_back(ReadFleet(query));
        return fleets;
    });
}

std::vector<FleetHostRow> FleetJournal::Hosts(Id fleet) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection, std::string(kHostQuery) + " ORDER BY number");
        Values(query).Number(fleet);
        std::vector<FleetHostRow> hosts;
        while (query.executeStep()) hosts.push_back(ReadHost(query));
        return hosts;
    });
}

std::optional<FleetHostRow> FleetJournal::Host(Id fleet, int number) const {
    return m_database->Do([&](SQLite::Database& connection) -> std::optional<FleetHostRow> {
        SQLite::Statement query(connection, std::string(kHostQuery) + " AND number = ?");
        Values(query).Number(fleet).Number(number);
        if (!query.executeStep()) return {};
        return ReadHost(query);
    });
}

std::vector<FleetStateRow> FleetJournal::States(Id fleet) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection,
                                "SELECT number, at, state, detail FROM fleet_states WHERE fleet = "
                                "? ORDER BY id");
        Values(query).Number(fleet);
        std::vector<FleetStateRow> states;
        while (query.executeStep()) {
            Row row(query);
            FleetStateRow state;
            state.number = row.Int();
            state.at = row.Seconds();
            state.state = StateIn(row.Text());
            state.detail = row.Text();
            states.push_back(state);
        }
        return states;
    });
}

std::vector<RunRow> FleetJournal::Attempts(Id fleet, int number) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection,
                                std::string("SELECT ") + kRunColumns +
                                    " FROM runs WHERE fleet = ? AND fleet_number = ? ORDER BY id "
                                    "DESC");
        Values(query).Number(fleet).Number(number);
        std::vector<RunRow> runs;
        while (query.executeStep()) runs.push_back(ReadRun(query));
        return runs;
    });
}

std::vector<FleetArchiveRow> FleetJournal::Archives(Id fleet) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(
            connection,
            std::string("SELECT h.fleet, h.number, h.name, h.host, runs.exit_code, ") +
                kArchiveColumns +
                " FROM archives JOIN runs ON runs.id = archives.run JOIN fleet_hosts AS h ON "
                "h.fleet = runs.fleet AND h.number = runs.fleet_number WHERE path IS NOT NULL AND "
                "(?1 = 0 OR h.fleet = ?1) ORDER BY archives.id DESC");
        Values(query).Number(fleet);
        std::vector<FleetArchiveRow> archives;
        while (query.executeStep()) archives.push_back(ReadFleetArchive(query));
        return archives;
    });
}

bool FleetJournal::IsLive(Id fleet) const { return m_live.IsSet(fleet); }

}  // namespace Kemffdc::History
