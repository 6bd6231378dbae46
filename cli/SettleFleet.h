// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_SETTLEFLEET_H
#define KEMFFDC_SETTLEFLEET_H

#include "cli/Settle.h"

namespace Kemffdc {

// Settle() for a command on a fleet: its own options. What the line says of BMCs is checked, and
// counts for each of them that it fits; with them it becomes settled when Fleet::MakePlan() reads
// the inventory, by the hook that is left in Fleet::FleetOptions.
Outcome SettleFleet(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
                    Options& options);

}  // namespace Kemffdc

#endif
