// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_COLLECTIONS_H
#define KEMFFDC_FLEET_COLLECTIONS_H

#include <string>
#include <vector>

#include "cli/history/FleetJournal.h"

namespace Kemffdc::Fleet {

// Which host of any run an archive is of: one of another name or address is another one.
std::string HostKey(const std::string& name, const std::string& host);

// What one attempt of a host has brought, and nobody of us has removed: an archive, or several
// files.
struct Collection {
    History::Id fleet = 0;
    std::string name;  // of the host
    std::string key;   // HostKey()
    int exitCode = -1;
    std::vector<History::ArchiveRow> files;  // at least one

    std::uint64_t Bytes() const;
    // Everything came, could be read, and lies where it was put, of the size that it had.
    bool IsGood() const;
};

// Whether the file is there as it was delivered: a plain file of that size.
bool IsThere(const History::ArchiveRow& file);

// Of all fleet runs in the history, the newest first. Throws StoreError.
std::vector<Collection> CollectionsOf(const History::FleetJournal& journal);

}  // namespace Kemffdc::Fleet

#endif
