// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Reports.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <utility>

#include "cli/WholeFile.h"
#include "cli/fleet/Metrics.h"
#include "cli/fleet/Prune.h"
#include "cli/fleet/ReportPage.h"
#include "cli/fleet/ResultsCsv.h"
#include "cli/fleet/ResultsJournal.h"
#include "cli/fleet/ResultsJson.h"
#include "cli/terminal/Program.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::minutes kProgramLimit{5};

Results ReadRun(const History::FleetJournal& journal, History::Id fleet) {
    const std::optional<History::FleetRunRow> run = journal.Find(fleet);
    if (!run) throw History::StoreError("The history knows no fleet run of that number.");
    return ReadResults(journal, *run);
}

std::string Removed(const Pruning& pruning) {
    const std::size_t count = pruning.files.size();
    return std::to_string(count) + (count == 1 ? " older archive was" : " older archives were") +
           " removed (" + HumanBytes(pruning.Bytes()) + ").";
}

}  // namespace

Outcome WriteReports(const Results& results, const std::string& folder) {
    Outcome first;
    for (const auto& [name, text] :
         {std::pair<const char*, std::string>{kJsonName, ReportJson(results)},
          {kCsvName, ReportCsv(results)},
          {kPageName, ReportPage(results, folder)}}) {
        const Outcome outcome = WriteWholeFile((fs::path(folder) / name).string(), text, kForOwner);
        if (first.Ok()) first = outcome;
    }
    return first;
}

std::string WriteReports(const History::FleetJournal& journal, History::Id fleet,
                         const std::string& folder) {
    try {
        const Outcome outcome = WriteReports(ReadRun(journal, fleet), folder);
        return outcome.Ok() ? "" : "A report is missing: " + outcome.reason;
    } catch (const History::StoreError& failure) {
        return std::string("There are no reports: ") + failure.what();
    }
}

std::vector<std::string> AfterRun(History::Store& store, const History::FleetJournal& journal,
                                  History::Id fleet, const Aftermath& aftermath) {
    std::vector<std::string> notes;
    try {
        if (aftermath.keep > 0) {
            const Pruning pruning = Prune(store, journal, aftermath.keep, false);
            notes = pruning.notes;
            if (!pruning.files.empty()) notes.push_back(Removed(pruning));
        }
        const Results results = ReadRun(journal, fleet);
        if (!aftermath.metrics.empty()) {
            const std::string text = MetricsText(results, NewestArchives(journal));
            const Outcome outcome = WriteWholeFile(aftermath.metrics, text, kForAll);
            if (!outcome.Ok()) notes.push_back("The metrics are missing: " + outcome.reason);
        }
        if (!aftermath.onFinish.empty()) {
            std::vector<std::string> words = aftermath.onFinish;
            words.push_back((fs::path(results.runs.front().folder) / kJsonName).string());
            const std::string why = RunProgram(words, kProgramLimit);
            if (!why.empty())
                notes.push_back("The program of --on-finish, " + words[0] + "," + why);
        }
    } catch (const History::StoreError& failure) {
        notes.emplace_back(failure.what());
    }
    return notes;
}

}  // namespace Kemffdc::Fleet
