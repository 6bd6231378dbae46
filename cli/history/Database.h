// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_DATABASE_H
#define KEMFFDC_HISTORY_DATABASE_H

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <random>
#include <string>

#include "cli/history/Store.h"

namespace Kemffdc::History {

// The open database of the history: what Store and FleetJournal write through. Blocks and throws as
// they promise.
class Database {
public:
    // As Store's.
    Database(const std::string& stateFolder, const std::atomic<bool>* hurry);

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& Folder() const { return m_folder; }

    // Runs `work` on the connection; SQLite's errors leave as StoreError.
    template <class Work>
    auto Do(const Work& work) {
        try {
            return work(*m_connection);
        } catch (const SQLite::Exception& failure) {
            throw StoreError("The history " + m_path + " cannot be used: " + failure.what() + ".");
        }
    }

    // The same in one transaction, which is there as a whole or not at all.
    template <class Work>
    auto Change(const Work& work) {
        return Do([&](SQLite::Database& connection) {
            SQLite::Transaction transaction(connection, SQLite::TransactionBehavior::IMMEDIATE);
            if constexpr (std::is_void_v<decltype(work(connection))>) {
                work(connection);
                transaction.commit();
            } else {
                auto result = work(connection);
                transaction.commit();
                return result;
            }
        });
    }

private:
    static int WaitForAnother(void* database, int pauses);  // as sqlite3_busy_handler() wants it

    void Open(SQLite::Database& connection);
    void BringUpToDate(SQLite::Database& connection);

    const std::string m_folder;
    const std::string m_path;
    const std::atomic<bool>* m_hurry;
    std::chrono::steady_clock::time_point m_waitsSince;
    std::minstd_rand m_random;
    std::optional<SQLite::Database> m_connection;
};

}  // namespace Kemffdc::History

#endif
