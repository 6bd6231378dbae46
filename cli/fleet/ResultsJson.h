// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RESULTSJSON_H
#define KEMFFDC_FLEET_RESULTSJSON_H

#include <string>

#include "cli/ExitCodes.h"
#include "cli/fleet/Results.h"

namespace Kemffdc::Fleet {

// report.json of a fleet, as docs/json.md promises it.

// Raised when a member goes, or comes to mean another thing. A number of its own: that of the
// tool's other objects (report/Json.h) stands in docs/schema/kemffdc-1.json.
constexpr int kReportSchema = 1;

// With its line end. A host stands on a line of its own, so that two reports can be compared.
std::string ReportJson(const Results& results);

// Reads it back, for `results` that are new. `shown` names the file in sentences. kLocalFile: it is
// no report of a fleet, or of a newer schema.
Outcome ReadReportJson(const std::string& text, const std::string& shown, Results& results);

}  // namespace Kemffdc::Fleet

#endif
