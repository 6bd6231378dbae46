// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_REPORTPAGE_H
#define KEMFFDC_FLEET_REPORTPAGE_H

#include <string>

#include "cli/fleet/Results.h"

namespace Kemffdc::Fleet {

// report.html of a fleet: one file that needs nothing else, and that runs no script but its own
// (Content-Security-Policy with the sums of style and script). `folder`, absolute, is where the
// file will lie: its links to archives and records start there.
std::string ReportPage(const Results& results, const std::string& folder);

}  // namespace Kemffdc::Fleet

#endif
