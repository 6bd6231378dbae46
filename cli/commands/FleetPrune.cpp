// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetPrune.h"

#include <boost/json.hpp>
#include <ostream>
#include <set>

#include "cli/ExitCodes.h"
#include "cli/fleet/Prune.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;
using Fleet::Pruning;

constexpr char kCommand[] = "fleet prune";
constexpr std::size_t kLongPath = 4096;

std::string Counted(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

Outcome Work(const FleetPruneOptions& own, const std::string& stateFolder, Pruning& pruning) {
    if (own.keep == 0) {
        return Failure(kUsage, "--keep N is required: how many good archives of each BMC stay.");
    }
    if (!History::Store::Exists(stateFolder)) return {};
    History::Store store(stateFolder);
    pruning = Fleet::Prune(store, History::FleetJournal(store), own.keep, own.dryRun);
    if (pruning.notes.empty()) return {};
    return Failure(kLocalFile, Counted(pruning.notes.size(), "file") + " could not be removed. " +
                                   pruning.notes.front());
}

void WriteWords(const FleetPruneOptions& own, const Pruning& pruning, std::ostream& out) {
    const std::string removed = own.dryRun ? "would remove " : "removed ";
    std::set<std::string> hosts;
    for (const Pruning::File& file : pruning.files) {
        out << removed << Clean(file.path, kLongPath) << " (" << HumanBytes(file.size) << ")\n";
        hosts.insert(file.host);
    }
    for (const std::string& folder : pruning.folders) {
        out << removed << Clean(folder, kLongPath) << "\n";
    }
    for (const std::string& note : pruning.notes) out << note << "\n";
    if (pruning.files.empty()) {
        out << "Nothing is older than the newest " << own.keep << " of its BMC.\n";
        return;
    }
    out << Counted(pruning.files.size(), "file") << " of " << Counted(hosts.size(), "BMC") << ", "
        << HumanBytes(pruning.Bytes()) << (own.dryRun ? ". Nothing was removed.\n" : ".\n");
}

json::object ObjectOf(const FleetPruneOptions& own, const Pruning& pruning,
                      const Outcome& outcome) {
    json::array files;
    for (const Pruning::File& file : pruning.files) {
        files.push_back(json::object{
            {"host", TextValue(file.host)}, {"path", TextValue(file.path)}, {"size", file.size}});
    }
    json::array folders;
    for (const std::string& folder : pruning.folders) folders.push_back(TextValue(folder));
    json::array notes;
    for (const std::string& note : pruning.notes) notes.push_back(TextValue(note));
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", kCommand},
            {"exit_code", static_cast<int>(outcome.code)},
            {"reason", TextOrNull(outcome.reason)},
            {"dry_run", own.dryRun},
            {"keep", own.keep},
            {"bytes", pruning.Bytes()},
            {"files", std::move(files)},
            {"folders", std::move(folders)},
            {"notes", std::move(notes)}};
}

}  // namespace

const OptionGroup& PruneOptions() {
    static const OptionGroup group{
        "Removing",
        {{"--keep", "N", "Good archives of each BMC that stay, the newest ones",
          Number(&FleetPruneOptions::keep, 1, 1000000), Where::kLine, Use::kReach, true},
         {"--dry-run", "", "Tell what would go, and remove nothing",
          Flag(&FleetPruneOptions::dryRun), Where::kLine, Use::kReach, true}}};
    return group;
}

int PruneFleets(const Options& options, std::ostream& out, std::ostream& err) {
    const auto& own = Part<FleetPruneOptions>(options);
    Outcome outcome;
    Pruning pruning;
    try {
        outcome = Work(own, History::StateFolder(options.stateDir), pruning);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    if (options.json) {
        out << JsonText(ObjectOf(own, pruning, outcome)) << "\n";
    } else if (own.keep > 0) {
        WriteWords(own, pruning, out);
    }
    out.flush();
    WriteReason(outcome, err);
    return outcome.code;
}

}  // namespace Kemffdc
