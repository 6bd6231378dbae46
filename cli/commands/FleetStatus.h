// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETSTATUS_H
#define KEMFFDC_COMMANDS_FLEETSTATUS_H

#include <iosfwd>

#include "cli/OptionTable.h"
#include "cli/Options.h"

namespace Kemffdc {

struct FleetStatusOptions {
    bool watch = false;
};
const OptionGroup& WatchOptions();

// Tells where the fleet run of options.subject is, from the history alone: in words or, with
// options.json, as one JSON object. 0, or kLocalFile with the reason on `err`.
//
// With `watch` it is shown until it ends, which blocks for as long; returns as the run has ended,
// kLocalFile where it was killed.
int ShowFleetStatus(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
