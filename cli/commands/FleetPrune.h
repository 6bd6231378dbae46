// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETPRUNE_H
#define KEMFFDC_COMMANDS_FLEETPRUNE_H

#include <iosfwd>

#include "cli/OptionTable.h"

namespace Kemffdc {

struct FleetPruneOptions {
    int keep = 0;  // 0: not given
    bool dryRun = false;
};
const OptionGroup& PruneOptions();

// Removes older archives of fleet runs, as Fleet::Prune() does, and tells each; in words or, with
// options.json, as one JSON object. kUsage without --keep; kLocalFile where the history cannot be
// used, or a file stays that should go.
int PruneFleets(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
