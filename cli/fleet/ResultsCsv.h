// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RESULTSCSV_H
#define KEMFFDC_FLEET_RESULTSCSV_H

#include <string>

#include "cli/fleet/Results.h"

namespace Kemffdc::Fleet {

// report.csv of a fleet: a row of names and a row for each host, in UTF-8, as RFC 4180 has it. A
// text that a spreadsheet would take for a formula has an apostrophe in front: a BMC's own words
// must not start anything there.
std::string ReportCsv(const Results& results);

}  // namespace Kemffdc::Fleet

#endif
