// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Collections.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>

namespace Kemffdc::Fleet {

std::string HostKey(const std::string& name, const std::string& host) { return name + '\n' + host; }

std::uint64_t Collection::Bytes() const {
    std::uint64_t bytes = 0;
    for (const History::ArchiveRow& file : files) bytes += file.size;
    return bytes;
}

bool Collection::IsGood() const {
    return exitCode == 0 &&
           std::all_of(files.begin(), files.end(), [](const History::ArchiveRow& file) {
               return file.whole.value_or(true) && IsThere(file);
           });
}

bool IsThere(const History::ArchiveRow& file) {
    struct stat found {};
    return lstat(file.path.c_str(), &found) == 0 && S_ISREG(found.st_mode) &&
           static_cast<std::uint64_t>(found.st_size) == file.size;
}

std::vector<Collection> CollectionsOf(const History::FleetJournal& journal) {
    std::vector<Collection> collections;
    std::map<History::Id, std::size_t> places;  // by the run of the attempt
    for (const History::FleetArchiveRow& row : journal.Archives()) {
        if (!row.file.removedAt.empty()) continue;
        const auto [place, isNew] = places.emplace(row.file.run, collections.size());
        if (isNew) {
            collections.push_back(
                {row.fleet, row.name, HostKey(row.name, row.host), row.exitCode, {}});
        }
        collections[place->second].files.push_back(row.file);
    }
    return collections;
}

}  // namespace Kemffdc::Fleet
