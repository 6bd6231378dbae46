// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetReport.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <ostream>

#include "cli/ExitCodes.h"
#include "cli/WholeFile.h"
#include "cli/commands/FleetRecorded.h"
#include "cli/commands/Recorded.h"
#include "cli/fleet/Merge.h"
#include "cli/fleet/ReportPage.h"
#include "cli/fleet/Reports.h"
#include "cli/fleet/ResultsCsv.h"
#include "cli/fleet/ResultsJournal.h"
#include "cli/fleet/ResultsJson.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;
using Fleet::Results;

constexpr std::size_t kLongPath = 4096;

int FormsOf(const Options& options) {
    const auto& own = Part<FleetReportOptions>(options);
    return static_cast<int>(own.html) + static_cast<int>(own.csv) + static_cast<int>(options.json);
}

Outcome CheckForm(const Options& options) {
    const int forms = FormsOf(options);
    if (forms > 1) return Failure(kUsage, "--html, --csv and --json exclude each other.");
    if (forms == 0 && Part<FleetReportOptions>(options).output.empty()) {
        return Failure(kUsage,
                       "Which report? --html, --csv or --json; or --output FOLDER for all three.");
    }
    return {};
}

// `folder`: where a page will lie.
std::string Text(const Options& options, const Results& results, const std::string& folder) {
    if (options.json) return ReportJson(results);
    if (Part<FleetReportOptions>(options).csv) return ReportCsv(results);
    return ReportPage(results, folder);
}

Outcome WriteFolder(const Results& results, const std::string& output) {
    if (mkdir(output.c_str(), 0777) != 0 && errno != EEXIST) {
        return Failure(kLocalFile, "The folder " + Clean(output, kLongPath) +
                                       " cannot be made: " + std::strerror(errno) + ".");
    }
    std::error_code error;
    return WriteReports(results, fs::absolute(output, error).lexically_normal().string());
}

Outcome Write(const Options& options, const Results& results, std::ostream& out) {
    const std::string& output = Part<FleetReportOptions>(options).output;
    if (FormsOf(options) == 0) return WriteFolder(results, output);
    std::error_code error;
    if (!output.empty()) {
        const fs::path file = fs::absolute(output, error).lexically_normal();
        const std::string text = Text(options, results, file.parent_path().string());
        return WriteWholeFile(file.string(), text, kForAll);
    }
    // As if it were redirected to where the reports of the run lie.
    const std::string folder =
        results.runs.size() == 1 ? results.runs[0].folder : fs::current_path(error).string();
    out << Text(options, results, folder) << std::flush;
    return {};
}

Outcome ReadRun(const Options& options, Results& results) {
    const std::string folder = History::StateFolder(options.stateDir);
    if (!History::Store::Exists(folder)) return Failure(kLocalFile, "No fleet run is known.");
    const History::FleetJournal journal(folder);
    History::FleetRunRow run;
    Outcome found = FindFleetRun(options, journal, run);
    if (found.Ok()) results = Fleet::ReadResults(journal, run);
    return found;
}

Outcome ReadAll(const Options& options, Results& results) {
    std::vector<Results> all;
    for (const std::string& run : Part<FleetReportOptions>(options).runs) {
        Options one = options;
        one.subject = run;
        Results read;
        Outcome outcome = RunNumber(run) > 0 ? ReadRun(one, read) : Fleet::ReadReport(run, read);
        if (!outcome.Ok()) return outcome;
        all.push_back(std::move(read));
    }
    results = Fleet::Merged(all);
    return {};
}

using Read = std::function<Outcome(const Options& options, Results& results)>;

int Report(const Options& options, const char* command, const Read& read, std::ostream& out,
           std::ostream& err) {
    Outcome outcome = CheckForm(options);
    try {
        Results results;
        if (outcome.Ok()) outcome = read(options, results);
        if (outcome.Ok()) outcome = Write(options, results, out);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    WriteReason(outcome, err);
    if (!outcome.Ok() && options.json) out << JsonText(FaultObject(outcome, command)) << "\n";
    return outcome.code;
}

}  // namespace

const OptionGroup& ReportOptions() {
    static const OptionGroup group{
        "Report",
        {{"--html", "", "As a page: one file, for any browser", Flag(&FleetReportOptions::html),
          Where::kLine, Use::kReach, true},
         {"--csv", "", "As a table for spreadsheets: a row for each BMC",
          Flag(&FleetReportOptions::csv), Where::kLine, Use::kReach, true},
         {"--json", "", "As JSON, with all that is known", Flag(&Options::json), Where::kLine,
          Use::kReach, true},
         {"--output", "FILE", "Into this file; in no form alone: all three into this folder",
          Path(&FleetReportOptions::output), Where::kLine, Use::kReach, true}}};
    return group;
}

std::string TakeReported(const std::string& text, Options& options) {
    if (text.empty()) return " is empty.";
    if (HasControl(text)) return " holds control bytes.";
    Part<FleetReportOptions>(options).runs.push_back(text);
    return "";
}

int ReportFleet(const Options& options, std::ostream& out, std::ostream& err) {
    return Report(options, "fleet report", ReadRun, out, err);
}

int MergeFleets(const Options& options, std::ostream& out, std::ostream& err) {
    return Report(options, "fleet merge", ReadAll, out, err);
}

}  // namespace Kemffdc
