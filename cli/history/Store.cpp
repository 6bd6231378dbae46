// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "LogSink.h"
#include "cli/ExitCodes.h"
#include "cli/Utc.h"
#include "cli/history/BmcName.h"
#include "cli/history/FileLock.h"
#include "cli/history/StateFolder.h"

namespace Kemffdc::History {
namespace {

constexpr int kMark = 0x4B464643;  // SQLite's application_id: whose file it is
constexpr auto kPause = std::chrono::milliseconds(10);
constexpr int kMaxPauses = 500;
constexpr int kMaxHurriedPauses = 20;

// What leads from one schema to the next: the first entry from an empty file to schema 1. Entries
// are never changed once they are released; a new schema is a new entry.
constexpr const char* kMigrations[Store::kSchema] = {R"(
CREATE TABLE runs (
    id INTEGER PRIMARY KEY AUTOINCREMENT,  -- people know runs by it: never given twice
    command TEXT NOT NULL,
    tool_version TEXT NOT NULL,
    continues INTEGER REFERENCES runs(id),
    channel TEXT,
    host TEXT,
    port INTEGER,
    user TEXT,
    log_kind TEXT,
    export_uri TEXT,
    output TEXT,
    begun_at TEXT NOT NULL,  -- UTC, as all times
    ended_at TEXT,           -- null: it lives, or has ended without a word
    exit_code INTEGER,
    outcome TEXT,
    reason TEXT,
    address TEXT,
    service_version TEXT,
    vendor TEXT,
    product TEXT,
    model TEXT,
    firmware TEXT,
    serial TEXT,
    uuid TEXT,
    certificate TEXT,
    host_key TEXT,
    task TEXT,
    task_state TEXT,
    bmc_path TEXT
) STRICT;
CREATE INDEX runs_by_host ON runs(host);
CREATE INDEX runs_by_serial ON runs(serial);
CREATE TABLE steps (
    run INTEGER NOT NULL REFERENCES runs(id),
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    begun_at TEXT NOT NULL,
    ended_at TEXT,
    code INTEGER,
    seconds REAL,
    detail TEXT,
    PRIMARY KEY (run, number)
) STRICT, WITHOUT ROWID;
CREATE TABLE archives (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    run INTEGER NOT NULL REFERENCES runs(id),
    name TEXT,
    begun_at TEXT NOT NULL,
    ended_at TEXT,
    partial TEXT,
    validator TEXT,
    expected INTEGER,
    path TEXT,
    size INTEGER,
    sha256 TEXT,
    whole INTEGER,
    detail TEXT
) STRICT;
CREATE INDEX archives_by_run ON archives(run);
CREATE INDEX archives_by_path ON archives(path);
)"};

constexpr char kRunColumns[] =
    "id, command, tool_version, continues, channel, host, port, user, log_kind, export_uri, "
    "output, begun_at, ended_at, exit_code, outcome, reason, address, service_version, vendor, "
    "product, model, firmware, serial, uuid, certificate, host_key, task, task_state, bmc_path";
constexpr char kArchiveColumns[] =
    "archives.id, run, name, archives.begun_at, archives.ended_at, partial, validator, expected, "
    "path, size, sha256, whole, detail";
constexpr char kOfBmc[] = "(?1 IS NULL OR host = ?1 OR address = ?1 OR serial = ?2)";

// Binds the values of a statement one after the other. Empty texts and zero numbers are null: what
// is not known.
class Values {
public:
    explicit Values(SQLite::Statement& statement) : m_statement(statement) {}

    Values& Text(const std::string& text) {
        ++m_index;
        if (!text.empty()) m_statement.bind(m_index, Varnex::WithoutHiddenSecrets(text));
        return *this;
    }
    Values& Known(std::int64_t number) {
        ++m_index;
        if (number != 0) m_statement.bind(m_index, number);
        return *this;
    }
    Values& Bytes(std::uint64_t bytes) { return Known(static_cast<std::int64_t>(bytes)); }
    Values& Number(std::int64_t number) {
        m_statement.bind(++m_index, number);
        return *this;
    }
    Values& Seconds(double seconds) {
        m_statement.bind(++m_index, seconds);
        return *this;
    }
    Values& MaybeTrue(const std::optional<bool>& value) {
        ++m_index;
        if (value) m_statement.bind(m_index, *value ? 1 : 0);
        return *this;
    }

private:
    SQLite::Statement& m_statement;
    int m_index = 0;
};

// Reads the columns of a row one after the other, null as what Values wrote as null.
class Row {
public:
    explicit Row(const SQLite::Statement& statement) : m_statement(statement) {}

    std::string Text() { return m_statement.getColumn(m_index++).getString(); }
    std::int64_t Number() { return m_statement.getColumn(m_index++).getInt64(); }
    int Int(int none = 0) {
        const SQLite::Column column = m_statement.getColumn(m_index++);
        return column.isNull() ? none : column.getInt();
    }
    std::uint64_t Bytes() { return static_cast<std::uint64_t>(Number()); }
    double Seconds() { return m_statement.getColumn(m_index++).getDouble(); }
    std::optional<bool> MaybeTrue() {
        const SQLite::Column column = m_statement.getColumn(m_index++);
        if (column.isNull()) return {};
        return column.getInt() != 0;
    }

private:
    const SQLite::Statement& m_statement;
    int m_index = 0;
};

RunRow ReadRun(const SQLite::Statement& statement) {
    Row row(statement);
    RunRow run;
    run.id = row.Number();
    run.command = row.Text();
    run.toolVersion = row.Text();
    run.continues = row.Number();
    run.channel = row.Text();
    run.host = row.Text();
    run.port = static_cast<std::uint16_t>(row.Int());
    run.user = row.Text();
    run.logKind = row.Text();
    run.exportUri = row.Text();
    run.output = row.Text();
    run.begunAt = row.Text();
    run.endedAt = row.Text();
    run.exitCode = row.Int(-1);
    run.outcome = row.Text();
    run.reason = row.Text();
    for (std::string* text :
         {&run.bmc.address, &run.bmc.serviceVersion, &run.bmc.vendor, &run.bmc.product,
          &run.bmc.model, &run.bmc.firmware, &run.bmc.serial, &run.bmc.uuid, &run.bmc.certificate,
          &run.bmc.hostKey, &run.task, &run.taskState, &run.bmcPath}) {
        *text = row.Text();
    }
    return run;
}

ArchiveRow ReadArchive(const SQLite::Statement& statement) {
    Row row(statement);
    ArchiveRow archive;
    archive.id = row.Number();
    archive.run = row.Number();
    archive.name = row.Text();
    archive.begunAt = row.Text();
    archive.endedAt = row.Text();
    archive.partial = row.Text();
    archive.validator = row.Text();
    archive.expected = row.Bytes();
    archive.path = row.Text();
    archive.size = row.Bytes();
    archive.sha256 = row.Text();
    archive.whole = row.MaybeTrue();
    archive.detail = row.Text();
    return archive;
}

std::vector<ArchiveRow> ReadArchives(SQLite::Statement& query) {
    std::vector<ArchiveRow> archives;
    while (query.executeStep()) archives.push_back(ReadArchive(query));
    return archives;
}

// Runs `work`, and tells in whose file it failed.
template <class Work>
auto Guarded(const std::string& path, const Work& work) {
    try {
        return work();
    } catch (const SQLite::Exception& failure) {
        throw StoreError("The history " + path + " cannot be used: " + failure.what() + ".");
    }
}

int WaitForAnother(void* store, int pauses) {
    const std::atomic<bool>* hurry = *static_cast<const std::atomic<bool>* const*>(store);
    const bool hurried = hurry != nullptr && *hurry;
    if (pauses >= (hurried ? kMaxHurriedPauses : kMaxPauses)) return 0;
    std::this_thread::sleep_for(kPause);
    return 1;
}

// SQLite would make it for everybody to read.
void MakePrivateFile(const std::string& path) {
    const shared::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!file.IsOpen()) {
        throw StoreError("The history " + path + " cannot be opened: " + std::strerror(errno) +
                         ".");
    }
}

std::string LivePath(const std::string& folder) { return folder + "/history.live"; }

flock OneByte(Id at, short type) {
    flock lock{};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = at;
    lock.l_len = 1;
    return lock;
}

}  // namespace

Store::Store(const std::string& stateFolder, const std::atomic<bool>* hurry)
    : m_folder(stateFolder), m_path(stateFolder + "/history.db"), m_hurry(hurry) {
    const Outcome made = MakeStateFolder(stateFolder);
    if (!made.Ok()) throw StoreError(made.reason);
    MakePrivateFile(m_path);
    Guarded(m_path, [this] { Open(); });
}

Store::~Store() = default;

bool Store::Exists(const std::string& stateFolder) {
    struct stat found {};
    return stat((stateFolder + "/history.db").c_str(), &found) == 0;
}

void Store::Open() {
    m_database = std::make_unique<SQLite::Database>(m_path, SQLite::OPEN_READWRITE);
    sqlite3_busy_handler(m_database->getHandle(), WaitForAnother, &m_hurry);
    BringUpToDate();
    // With a write-ahead log no write waits for the disk, and a killed process loses none; a power
    // failure may lose the newest ones, and harms nothing else.
    m_database->exec("PRAGMA synchronous = NORMAL");
    m_database->exec("PRAGMA foreign_keys = ON");
}

void Store::BringUpToDate() {
    const auto version = [this] { return m_database->execAndGet("PRAGMA user_version").getInt(); };
    if (version() == kSchema) return;
    FileLock lock;  // SQLite does not wait for a process that turns the write-ahead log on
    (void)lock.Take(m_path + ".lock");
    const int found = version();
    if (found > kSchema) {
        throw StoreError("The history " + m_path + " was written by a newer kemffdc (schema " +
                         std::to_string(found) + ", this one knows " + std::to_string(kSchema) +
                         "). Choose another folder with --state-dir.");
    }
    if (found == 0 && m_database->execAndGet("SELECT count(*) FROM sqlite_master").getInt() > 0) {
        throw StoreError("The history " + m_path + " is another program's database.");
    }
    if (found < kSchema) Migrate(found);
}

void Store::Migrate(int from) {
    (void)m_database->execAndGet("PRAGMA journal_mode = WAL");
    SQLite::Transaction transaction(*m_database, SQLite::TransactionBehavior::IMMEDIATE);
    for (int schema = from; schema < kSchema; ++schema) m_database->exec(kMigrations[schema]);
    m_database->exec("PRAGMA application_id = " + std::to_string(kMark));
    m_database->exec("PRAGMA user_version = " + std::to_string(kSchema));
    transaction.commit();
}

Id Store::BeginRun(const RunRow& run) {
    return Guarded(m_path, [&] {
        SQLite::Transaction transaction(*m_database, SQLite::TransactionBehavior::IMMEDIATE);
        SQLite::Statement insert(*m_database,
                                 "INSERT INTO runs (command, tool_version, continues, channel, "
                                 "host, port, user, log_kind, export_uri, output, begun_at) "
                                 "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
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
            .Text(UtcNow());
        insert.exec();
        const Id id = m_database->getLastInsertRowid();
        LockRun(id);  // nobody may see it unlocked
        transaction.commit();
        return id;
    });
}

// The kernel unlocks it when the process ends. Where the file system has no locks the run looks
// ended, and nothing else is lost.
void Store::LockRun(Id run) {
    if (!m_live.IsOpen()) {
        m_live = shared::FileDescriptor(
            open(LivePath(m_folder).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    }
    flock lock = OneByte(run, F_WRLCK);
    (void)fcntl(m_live.Get(), F_OFD_SETLK, &lock);
}

bool Store::IsLive(Id run) const {
    // Opened anew: what holds a lock does not see it.
    const shared::FileDescriptor file(
        open(LivePath(m_folder).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    flock lock = OneByte(run, F_WRLCK);
    return file.IsOpen() && fcntl(file.Get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void Store::EndRun(Id run, int exitCode, const std::string& outcome, const std::string& reason) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
                                 "UPDATE runs SET ended_at = ?, exit_code = ?, outcome = ?, "
                                 "reason = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Number(exitCode).Text(outcome).Text(reason).Number(run);
        update.exec();
    });
}

void Store::SetWay(Id run, const std::string& channel, std::uint16_t port) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database, "UPDATE runs SET channel = ?, port = ? WHERE id = ?");
        Values(update).Text(channel).Known(port).Number(run);
        update.exec();
    });
}

void Store::SetBmc(Id run, const Bmc& bmc) {
    Guarded(m_path, [&] {
        SQLite::Statement update(
            *m_database,
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

void Store::SetTask(Id run, const std::string& uri, const std::string& state) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
                                 "UPDATE runs SET task = ?, task_state = ? WHERE id = ?");
        Values(update).Text(uri).Text(state).Number(run);
        update.exec();
    });
}

void Store::SetBmcPath(Id run, const std::string& path) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database, "UPDATE runs SET bmc_path = ? WHERE id = ?");
        Values(update).Text(path).Number(run);
        update.exec();
    });
}

void Store::BeginStep(Id run, const std::string& name) {
    Guarded(m_path, [&] {
        SQLite::Statement insert(*m_database,
                                 "INSERT INTO steps (run, name, begun_at, number) VALUES (?1, ?2, "
                                 "?3, (SELECT count(*) + 1 FROM steps WHERE run = ?1))");
        Values(insert).Number(run).Text(name).Text(UtcNow());
        insert.exec();
    });
}

void Store::EndStep(Id run, int code, double seconds, const std::string& detail) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
                                 "UPDATE steps SET ended_at = ?, code = ?, seconds = ?, detail = ? "
                                 "WHERE run = ?5 AND number = (SELECT max(number) FROM steps "
                                 "WHERE run = ?5)");
        Values(update).Text(UtcNow()).Number(code).Seconds(seconds).Text(detail).Number(run);
        update.exec();
    });
}

Id Store::BeginArchive(Id run, const std::string& name) {
    return Guarded(m_path, [&] {
        SQLite::Statement insert(*m_database,
                                 "INSERT INTO archives (run, name, begun_at) VALUES (?, ?, ?)");
        Values(insert).Number(run).Text(name).Text(UtcNow());
        insert.exec();
        return Id{m_database->getLastInsertRowid()};
    });
}

void Store::SetPartial(Id archive, const std::string& path, const std::string& validator,
                       std::uint64_t expected) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
                                 "UPDATE archives SET partial = ?, validator = ?, expected = ? "
                                 "WHERE id = ?");
        Values(update).Text(path).Text(validator).Bytes(expected).Number(archive);
        update.exec();
    });
}

void Store::Deliver(Id id, const ArchiveRow& archive) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
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

void Store::FailArchive(Id archive, const std::string& detail) {
    Guarded(m_path, [&] {
        SQLite::Statement update(*m_database,
                                 "UPDATE archives SET ended_at = ?, detail = ? WHERE id = ?");
        Values(update).Text(UtcNow()).Text(detail).Number(archive);
        update.exec();
    });
}

std::optional<RunRow> Store::FindRun(Id id) const {
    return Guarded(m_path, [&]() -> std::optional<RunRow> {
        SQLite::Statement query(*m_database,
                                std::string("SELECT ") + kRunColumns + " FROM runs WHERE id = ?");
        Values(query).Number(id);
        if (!query.executeStep()) return {};
        return ReadRun(query);
    });
}

std::vector<RunRow> Store::Runs(const std::string& bmc, int limit) const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database, std::string("SELECT ") + kRunColumns +
                                                 " FROM runs WHERE " + kOfBmc +
                                                 " ORDER BY id DESC LIMIT ?3");
        Values(query).Text(SameHost(bmc)).Text(bmc).Number(limit);
        std::vector<RunRow> runs;
        while (query.executeStep()) runs.push_back(ReadRun(query));
        return runs;
    });
}

std::vector<StepRow> Store::Steps(Id run) const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database,
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

std::vector<ArchiveRow> Store::Archives(Id run) const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database, std::string("SELECT ") + kArchiveColumns +
                                                 " FROM archives WHERE run = ? ORDER BY id");
        Values(query).Number(run);
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::ArchivesAt(const std::string& path) const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database, std::string("SELECT ") + kArchiveColumns +
                                                 " FROM archives WHERE path = ? ORDER BY id DESC");
        Values(query).Text(path);
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::Partials() const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database,
                                std::string("SELECT ") + kArchiveColumns +
                                    " FROM archives WHERE partial IS NOT NULL ORDER BY id");
        return ReadArchives(query);
    });
}

std::vector<ArchiveRow> Store::Delivered(const std::string& bmc) const {
    return Guarded(m_path, [&] {
        SQLite::Statement query(*m_database, std::string("SELECT ") + kArchiveColumns +
                                                 " FROM archives JOIN runs ON runs.id = run WHERE "
                                                 "path IS NOT NULL AND " +
                                                 kOfBmc + " ORDER BY archives.id");
        Values(query).Text(SameHost(bmc)).Text(bmc);
        return ReadArchives(query);
    });
}

}  // namespace Kemffdc::History
