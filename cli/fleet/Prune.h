// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_PRUNE_H
#define KEMFFDC_FLEET_PRUNE_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"

namespace Kemffdc::Fleet {

// What a removal of older archives does, or would do.
struct Pruning {
    struct File {
        std::string host;  // its name
        std::string path;
        std::uint64_t size = 0;
    };
    std::vector<File> files;           // archives that go
    std::vector<std::string> folders;  // of runs of which nothing stays; their reports go too
    std::vector<std::string> notes;    // what was left where it is, and why

    std::uint64_t Bytes() const;
};

// Removes what is older than the `keep` newest good archives of each host, with the records beside
// them; `keep` is 1 at least, so that the newest good one always stays. Only files that the journal
// has written down go, from the folder of their run, and only if they are as they came. Runs that
// are at work are left alone. The history keeps the rows and says when the file was removed; the
// reports of runs that lose some of theirs are written again.
//
// `dryRun`: nothing is removed. Throws StoreError.
Pruning Prune(History::Store& store, const History::FleetJournal& journal, int keep, bool dryRun);

}  // namespace Kemffdc::Fleet

#endif
