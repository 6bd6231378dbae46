// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETRECORDED_H
#define KEMFFDC_COMMANDS_FLEETRECORDED_H

#include <string>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/history/FleetJournal.h"

namespace Kemffdc {

// The fleet run that options.subject stands for, its number in the history or its folder; the
// newest one where it is empty. kLocalFile where there is none. Throws StoreError.
Outcome FindFleetRun(const Options& options, const History::FleetJournal& journal,
                     History::FleetRunRow& run);

}  // namespace Kemffdc

#endif
