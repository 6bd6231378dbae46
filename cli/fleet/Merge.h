// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_MERGE_H
#define KEMFFDC_FLEET_MERGE_H

#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/fleet/Results.h"

namespace Kemffdc::Fleet {

// Reads the report.json of a run: `path` is that file or the folder that it lies in. Archives that
// lay in the run's folder are looked for beside the report, wherever both have been moved to.
// kLocalFile where there is none, or it cannot be read.
Outcome ReadReport(const std::string& path, Results& results);

// One result of several: all their runs, and each host once. Of a host that is in more than one,
// by name and address, the newest one that is good counts, else the newest; a note tells which.
Results Merged(const std::vector<Results>& all);

}  // namespace Kemffdc::Fleet

#endif
