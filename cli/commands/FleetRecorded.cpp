// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetRecorded.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <vector>

#include "cli/commands/Recorded.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;

// The newest one that lies there.
std::optional<History::FleetRunRow> FindInFolder(const std::string& folder,
                                                 const History::FleetJournal& journal) {
    std::error_code none;
    const std::vector<History::FleetRunRow> runs = journal.Fleets(std::numeric_limits<int>::max());
    const auto found = std::find_if(runs.begin(), runs.end(), [&](const auto& run) {
        return fs::equivalent(run.folder, folder, none);
    });
    if (found == runs.end()) return std::nullopt;
    return *found;
}

std::optional<History::FleetRunRow> Find(const std::string& subject,
                                         const History::FleetJournal& journal) {
    if (subject.empty()) return journal.Latest();
    const History::Id number = RunNumber(subject);
    return number > 0 ? journal.Find(number) : FindInFolder(subject, journal);
}

}  // namespace

Outcome FindFleetRun(const Options& options, const History::FleetJournal& journal,
                     History::FleetRunRow& run) {
    const std::optional<History::FleetRunRow> found = Find(options.subject, journal);
    if (found) {
        run = *found;
        return {};
    }
    if (options.subject.empty()) return Failure(kLocalFile, "No fleet run is known.");
    return Failure(kLocalFile,
                   "No fleet run " + Clean(options.subject, 4096) +
                       " is known. Without a number or a folder the newest one is taken.");
}

}  // namespace Kemffdc
