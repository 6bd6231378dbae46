// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_REPORTS_H
#define KEMFFDC_FLEET_REPORTS_H

#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/fleet/Results.h"
#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"

namespace Kemffdc::Fleet {

// What stays of a run besides the archives, in its folder.
constexpr char kJsonName[] = "report.json";
constexpr char kCsvName[] = "report.csv";
constexpr char kPageName[] = "report.html";

// Writes the three reports into `folder`, absolute, each whole or not at all; those that were there
// are replaced. The first fault, as kLocalFile; the others are written all the same.
Outcome WriteReports(const Results& results, const std::string& folder);

// The same for a run as the journal has it now: for its conductor at the end, also of an
// interrupted run. What went wrong as a sentence; empty: nothing.
std::string WriteReports(const History::FleetJournal& journal, History::Id fleet,
                         const std::string& folder);

// What the operator wants to follow a run.
struct Aftermath {
    int keep = 0;                       // good archives of each host that stay; 0: all
    std::string metrics;                // path of a file for Prometheus; empty: none
    std::vector<std::string> onFinish;  // a program and its arguments; empty: none
};

// Removes older archives, writes the metrics, runs the program with the path of report.json behind
// its arguments; in this order, once the reports stand. Returns what an operator should know of it,
// whole sentences. Blocks for five minutes at most while the program works. Throws nothing.
std::vector<std::string> AfterRun(History::Store& store, const History::FleetJournal& journal,
                                  History::Id fleet, const Aftermath& aftermath);

}  // namespace Kemffdc::Fleet

#endif
