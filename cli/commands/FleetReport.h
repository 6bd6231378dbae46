// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETREPORT_H
#define KEMFFDC_COMMANDS_FLEETREPORT_H

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/OptionTable.h"

namespace Kemffdc {

// What a report looks like, and where it goes; JSON is options.json.
struct FleetReportOptions {
    bool html = false;
    bool csv = false;
    std::string output;             // empty: standard output
    std::vector<std::string> runs;  // that are merged: folders, report.json files or numbers
};
const OptionGroup& ReportOptions();

// `take` of a command whose arguments are runs, one call for each.
std::string TakeReported(const std::string& text, Options& options);

// Writes the report of the fleet run of options.subject from the history, also while it works or
// after it was killed: in one form, to `out` or a file, or in all three into a folder. kUsage,
// kLocalFile with the reason on `err`.
int ReportFleet(const Options& options, std::ostream& out, std::ostream& err);

// The same for several runs as one.
int MergeFleets(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
