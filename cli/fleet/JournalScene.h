// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_JOURNALSCENE_H
#define KEMFFDC_FLEET_JOURNALSCENE_H

#include "cli/fleet/Scene.h"
#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"

namespace Kemffdc::Fleet {

// A fleet run as the history has it: beside its conductor, or after it. What workers tell their
// conductor alone, the BMC's percentage and its messages, is not in it; bytes are those on the
// disk. A run that has ended, or was killed, is shown as it was at its last moment. Throws
// StoreError.
Scene ReadScene(const History::Store& store, const History::FleetJournal& journal,
                const History::FleetRunRow& run, WallTime now);

}  // namespace Kemffdc::Fleet

#endif
