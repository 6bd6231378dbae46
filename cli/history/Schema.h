// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_SCHEMA_H
#define KEMFFDC_HISTORY_SCHEMA_H

namespace Kemffdc::History {

constexpr int kSchema = 2;  // kept as SQLite's user_version

// What leads from one schema to the next: the first entry from an empty file to schema 1. Entries
// are never changed once they are released; a new schema is a new entry.
extern const char* const kMigrations[kSchema];

}  // namespace Kemffdc::History

#endif
