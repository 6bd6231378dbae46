// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RESULTSJOURNAL_H
#define KEMFFDC_FLEET_RESULTSJOURNAL_H

#include "cli/fleet/Results.h"
#include "cli/history/FleetJournal.h"

namespace Kemffdc::Fleet {

// What a fleet run of the history has come to, up to now: also while it works, and where it was
// killed. Whether a record lies beside an archive is looked up on the disk. Throws StoreError.
Results ReadResults(const History::FleetJournal& journal, const History::FleetRunRow& run);

}  // namespace Kemffdc::Fleet

#endif
