// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "cli/history/FileLock.h"
#include "cli/history/Schema.h"
#include "cli/history/StateFolder.h"
#include "shared/FileDescriptor.h"

namespace Kemffdc::History {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kMark = 0x4B464643;  // SQLite's application_id: whose file it is
constexpr milliseconds kPatience{15000};
constexpr milliseconds kHurriedPatience{200};
constexpr int kLongestPause = 80;  // milliseconds, as the next
constexpr int kHurriedPause = 10;

// SQLite would make it for everybody to read. One that exists is never opened here: closing it
// again would take away the locks that this process's other connections hold (POSIX record locks),
// and another process that ends would then remove the log they write to.
void MakePrivateFile(const std::string& path) {
    const shared::FileDescriptor file(
        open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.IsOpen() && errno != EEXIST) {
        throw StoreError("The history " + path + " cannot be opened: " + std::strerror(errno) +
                         ".");
    }
}

void Migrate(SQLite::Database& connection, int from) {
    (void)connection.execAndGet("PRAGMA journal_mode = WAL");
    SQLite::Transaction transaction(connection, SQLite::TransactionBehavior::IMMEDIATE);
    for (int schema = from; schema < kSchema; ++schema) connection.exec(kMigrations[schema]);
    connection.exec("PRAGMA application_id = " + std::to_string(kMark));
    connection.exec("PRAGMA user_version = " + std::to_string(kSchema));
    transaction.commit();
}

}  // namespace

Database::Database(const std::string& stateFolder, const std::atomic<bool>* hurry)
    : m_folder(stateFolder),
      m_path(stateFolder + "/history.db"),
      m_hurry(hurry),
      m_random(static_cast<unsigned>(getpid())) {
    const Outcome made = MakeStateFolder(stateFolder);
    if (!made.Ok()) throw StoreError(made.reason);
    MakePrivateFile(m_path);
    try {
        m_connection.emplace(m_path, SQLite::OPEN_READWRITE);
    } catch (const SQLite::Exception& failure) {
        throw StoreError("The history " + m_path + " cannot be used: " + failure.what() + ".");
    }
    Do([this](SQLite::Database& connection) { Open(connection); });
}

// Most writers are done in a millisecond. Where there are many, it is their pauses that keep them
// from spending their time on looking: they grow, and are not those of the others.
int Database::WaitForAnother(void* database, int pauses) {
    auto& self = *static_cast<Database*>(database);
    const steady_clock::time_point now = steady_clock::now();
    if (pauses == 0) self.m_waitsSince = now;
    const bool hurried = self.m_hurry != nullptr && *self.m_hurry;
    if (now - self.m_waitsSince >= (hurried ? kHurriedPatience : kPatience)) return 0;
    const int longest =
        std::min(hurried ? kHurriedPause : kLongestPause, 2 << std::min(pauses, 10));
    const int pause = std::uniform_int_distribution<int>(1, longest)(self.m_random);
    std::this_thread::sleep_for(milliseconds(pause));
    return 1;
}

void Database::Open(SQLite::Database& connection) {
    sqlite3_busy_handler(connection.getHandle(), WaitForAnother, this);
    BringUpToDate(connection);
    // With a write-ahead log no write waits for the disk, and a killed process loses none; a power
    // failure may lose the newest ones, and harms nothing else.
    connection.exec("PRAGMA synchronous = NORMAL");
    connection.exec("PRAGMA foreign_keys = ON");
}

void Database::BringUpToDate(SQLite::Database& connection) {
    const auto version = [&] { return connection.execAndGet("PRAGMA user_version").getInt(); };
    if (version() == kSchema) return;
    FileLock lock;  // SQLite does not wait for a process that turns the write-ahead log on
    (void)lock.Take(m_path + ".lock");
    const int found = version();
    if (found > kSchema) {
        throw StoreError("The history " + m_path + " was written by a newer kemffdc (schema " +
                         std::to_string(found) + ", this one knows " + std::to_string(kSchema) +
                         "). Choose another folder with --state-dir.");
    }
    if (found == 0 && connection.execAndGet("SELECT count(*) FROM sqlite_master").getInt() > 0) {
        throw StoreError("The history " + m_path + " is another program's database.");
    }
    if (found < kSchema) Migrate(connection, found);
}

}  // namespace Kemffdc::History
