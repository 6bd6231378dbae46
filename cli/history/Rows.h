// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_ROWS_H
#define KEMFFDC_HISTORY_ROWS_H

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <optional>
#include <string>

#include "LogSink.h"
#include "cli/history/Store.h"

namespace Kemffdc::History {

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
    // One of the tool's own words, whatever passwords there are.
    Values& Word(const char* word) {
        m_statement.bind(++m_index, word);
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
    Values& MaybeNumber(const std::optional<int>& value) {
        ++m_index;
        if (value) m_statement.bind(m_index, *value);
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
    std::optional<int> MaybeNumber() {
        const SQLite::Column column = m_statement.getColumn(m_index++);
        if (column.isNull()) return {};
        return column.getInt();
    }
    std::optional<bool> MaybeTrue() {
        const SQLite::Column column = m_statement.getColumn(m_index++);
        if (column.isNull()) return {};
        return column.getInt() != 0;
    }

private:
    const SQLite::Statement& m_statement;
    int m_index = 0;
};

// Of the table runs, for ReadRun().
extern const char kRunColumns[];
RunRow ReadRun(const SQLite::Statement& statement);

// Of the table archives, for ReadArchive(), which reads them from where the row is.
extern const char kArchiveColumns[];
ArchiveRow ReadArchive(Row& row);

}  // namespace Kemffdc::History

#endif
