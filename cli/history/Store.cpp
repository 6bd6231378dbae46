// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sys/stat.h>

#include "cli/Utc.h"
#include "cli/history/BmcName.h"
#include "cli/history/Database.h"
#include "cli/history/Rows.h"

namespace Kemffdc::History {
namespace {

constexpr char kOfBmc[] = "(?1 IS NULL OR host = ?1 OR address = ?1 OR serial = ?2)";

std::vector<ArchiveRow> ReadArchives(SQLite::Statement& query) {
    std::vector<ArchiveRow> archives;
    while (query.executeStep()) {
        Row row(query);
        archives.push_back(ReadArchive(row));
    }
    return archives;
}

void JoinHost(SQLite::Database& connection, const RunRow& run, Id id) {
    SQLite::Statement update(connection,
                             "UPDATE fleet_hosts SET run = ?, attempts = attempts + 1 WHERE fleet "
                             "= ? AND number = ?");
    Values(update).Number(id).Number(run.fleet).Number(run.fleetNumber);
    update.exec();
}

}  // namespace

Store::Store(const std::string& stateFolder, const std::atomic<bool>* hurry)
    : m_database(std::make_shared<Database>(stateFolder, hurry)),
      m_live(stateFolder + "/history.live") {}

Store::~Store() = default;

bool Store::Exists(const std::string& stateFolder) {
    struct stat found {};
    return stat((stateFolder + "/history.db").c_str(), &found) == 0;
}

Id Store::BeginRun(const RunRow& run) {
    return m_database->Change([&](SQLite::Database& connection) {
        SQLite::Statement insert(connection,
                                 "INSERT INTO runs (command, tool_version, continues, channel, "
                                 "host, port, user, log_kind, export_uri, output, begun_at, "
                                 "fleet, fleet_number, operation) "
                                 "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        Values(insert)
            .Text(run.command)
            .Text(run.toolVersion)
            .Known(run.continues)
            .Text(run.channel)
            .Text(SameHost(run.host))
            .Known(run.port)
            .Text(run.user)
            .Text(run.logKind)
            .Text(run.exportUri)
            .Text(run.output)
            .Text(UtcNow())
            .Known(run.fleet)
            .Known(run.fleetNumber)
            .Text(run.operation);
        insert.exec();
        const Id id = connection.getLastInsertRowid();
        if (run.fleet != 0) JoinHost(connection, run, id);
        (void)m_live.Set(id);  // nobody may see it unmarked
        return id;
    });
}

bool Store::IsLive(Id run) const { return m_live.IsSet(run); }

void Store::EndRun(Id run, int exitCode, const std::string& outcome, const std::string& reason) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE runs SET ended_at = ?, exit_code = ?, outcome = ?, "
                                 "reason = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Number(exitCode).Text(outcome).Text(reason).Number(run);
        update.exec();
    });
}

void Store::SetWay(Id run, const std::string& channel, std::uint16_t port) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection, "UPDATE runs SET channel = ?, port = ? WHERE id = ?");
        Values(update).Text(channel).Known(port).Number(run);
        update.exec();
    });
}

void Store::SetBmc(Id run, const Bmc& bmc) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(
            connection,
            "UPDATE runs SET address = ?, service_version = ?, vendor = ?, product = ?, model = ?, "
            "firmware = ?, serial = ?, uuid = ?, certificate = ?, host_key = ? WHERE id = ?");
        Values(update)
            .Text(bmc.address)
            .Text(bmc.serviceVersion)
            .Text(bmc.vendor)
            .Text(bmc.product)
            .Text(bmc.model)
            .Text(bmc.firmware)
            .Text(bmc.serial)
            .Text(bmc.uuid)
            .Text(bmc.certificate)
            .Text(bmc.hostKey)
            .Number(run);
        update.exec();
    });
}

void Store::SetTask(Id run, const std::string& uri, const std::string& state,
                    std::optional<int> percent) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(
            connection, "UPDATE runs SET task = ?, task_state = ?, task_percent = ? WHERE id = ?");
        Values(update).Text(uri).Text(state).MaybeNumber(percent).Number(run);
        update.exec();
    });
}

void Store::SetOperation(Id run, const std::string& operation) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection, "UPDATE runs SET operation = ? WHERE id = ?");
        Values(update).Text(operation).Number(run);
        update.exec();
    });
}

void Store::SetSeveral(Id run) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection, "UPDATE runs SET several = 1 WHERE id = ?");
        Values(update).Number(run);
        update.exec();
    });
}

void Store::SetBmcPath(Id run, const std::string& path) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection, "UPDATE runs SET bmc_path = ? WHERE id = ?");
        Values(update).Text(path).Number(run);
        update.exec();
    });
}

void Store::BeginStep(Id run, const std::string& name) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement insert(connection,
                                 "INSERT INTO steps (run, name, begun_at, number) VALUES (?1, ?2, "
                                 "?3, (SELECT count(*) + 1 FROM steps WHERE run = ?1))");
        Values(insert).Number(run).Text(name).Text(UtcNow());
        insert.exec();
    });
}

void Store::EndStep(Id run, int code, double seconds, const std::string& detail) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE steps SET ended_at = ?, code = ?, seconds = ?, detail = ? "
                                 "WHERE run = ?5 AND number = (SELECT max(number) FROM steps "
                                 "WHERE run = ?5)");
        Values(update).Text(UtcNow()).Number(code).Seconds(seconds).Text(detail).Number(run);
        update.exec();
    });
}

Id Store::BeginArchive(Id run, const std::string& name) {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement insert(connection,
                                 "INSERT INTO archives (run, name, begun_at) VALUES (?, ?, ?)");
        Values(insert).Number(run).Text(name).Text(UtcNow());
        insert.exec();
        return Id{connection.getLastInsertRowid()};
    });
}

void Store::SetPartial(Id archive, const std::string& path, const std::string& validator,
                       std::uint64_t expected) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE archives SET partial = ?, validator = ?, expected = ? "
                                 "WHERE id = ?");
        Values(update).Text(path).Text(validator).Bytes(expected).Number(archive);
        update.exec();
    });
}

void Store::Deliver(Id id, const ArchiveRow& archive) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE archives SET ended_at = ?, partial = NULL, path = ?, "
                                 "size = ?, sha256 = ?, whole = ?, detail = ? WHERE id = ?");
        Values(update)
            .Text(UtcNow())
            .Text(archive.path)
            .Bytes(archive.size)
            .Text(archive.sha256)
            .MaybeTrue(archive.whole)
            .Text(archive.detail)
            .Number(id);
        update.exec();
    });
}

void Store::NoteRemoved(Id archive) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection, "UPDATE archives SET removed_at = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Number(archive);
        update.exec();
    });
}

void Store::FailArchive(Id archive, const std::string& detail) {
    m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement update(connection,
                                 "UPDATE archives SET ended_at = ?, detail = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Text(detail).Number(archive);
        update.exec();
    });
}

std::optional<RunRow> Store::FindRun(Id id) const {
    return m_database->Do([&](SQLite::Database& connection) -> std::optional<RunRow> {
        SQLite::Statement query(connection,
                                std::string("SELECT ") + kRunColumns + " FROM runs WHERE id = ?");
        Values(query).Number(id);
        if (!query.executeStep()) return {};
        return ReadRun(query);
    });
}

std::vector<RunRow> Store::Runs(const std::string& bmc, int limit) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection, std::string("SELECT ") + kRunColumns +
                                                " FROM runs WHERE " + kOfBmc +
                                                " ORDER BY id DESC LIMIT ?3");
        Values(query).Text(SameHost(bmc)).Text(bmc).Number(limit);
        std::vector<RunRow> runs;
        while (query.executeStep()) runs.push_back(ReadRun(query));
        return runs;
    });
}

std::vector<StepRow> Store::Steps(Id run) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection,
                                "SELECT name, begun_at, ended_at, code, seconds, detail FROM "
                                "steps WHERE run = ? ORDER BY number");
        Values(query).Number(run);
        std::vector<StepRow> steps;
        while (query.executeStep()) {
            Row row(query);
            StepRow step;
            step.name = row.Text();
            step.begunAt = row.Text();
            step.endedAt = row.Text();
            step.code = row.Int();
            step.seconds = row.Seconds();
            step.detail = row.Text();
            steps.push_back(step);
        }
        return steps;
    });
}

// By the names of the steps that ask, over Redfish and CIM the first, over IPMI the second.
std::string Store::AskedAt(Id run) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection,
                                "SELECT begun_at FROM steps WHERE run = ? AND name IN ('export', "
                                "'collect') ORDER BY number DESC LIMIT 1");
        Values(query).Number(run);
        return query.executeStep() ? Row(query).Text() : std::string();
    });
}

std::vector<ArchiveRow> Store::Archives(Id run) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection, std::string("SELECT ") + kArchiveColumns +
                                                " FROM archives WHERE run = ? ORDER BY id");
        Values(query).Number(run);
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::ArchivesAt(const std::string& path) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(
            connection,
            std::string("SELECT ") + kArchiveColumns +
                " FROM archives WHERE path = ? AND removed_at IS NULL ORDER BY id DESC");
        Values(query).Text(path);
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::Partials() const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection,
                                std::string("SELECT ") + kArchiveColumns +
                                    " FROM archives WHERE partial IS NOT NULL ORDER BY id");
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::Delivered(const std::string& bmc) const {
    return m_database->Do([&](SQLite::Database& connection) {
        SQLite::Statement query(connection, std::string("SELECT ") + kArchiveColumns +
                                                " FROM archives JOIN runs ON runs.id = run WHERE "
                                                "path IS NOT NULL AND removed_at IS NULL AND " +
                                                kOfBmc + " ORDER BY archives.id");
        Values(query).Text(SameHost(bmc)).Text(bmc);
        return ReadArchives(query);
    });
}

}  // namespace Kemffdc::History
