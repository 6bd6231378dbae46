// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Earlier.h"

#include <optional>
#include <set>
#include <vector>

#include "cli/ExitCodes.h"

namespace Kemffdc::Fleet {
namespace {

using History::RunRow;
using History::Store;

// A run whose task has come to nothing, or whose archive is no good.
bool IsSpent(const RunRow& run) {
    return run.exitCode == kDone || run.exitCode == kTaskFailed || run.exitCode == kIncomplete;
}

// It has gone on with a run that knew no task, and nothing ever came of that one's request.
bool HasWaitedInVain(const RunRow& run) {
    return run.exitCode == kNotFinished && run.task.empty() && run.continues != 0;
}

// Its archive, as far as nothing is known to be wrong with it. A folder of files has no sum.
bool IsWhole(const Store& store, const History::FleetHostRow& host) {
    if (host.archive.empty() || host.sha256.empty()) return false;
    const std::vector<History::ArchiveRow> rows = store.ArchivesAt(host.archive);
    return !rows.empty() && rows.front().sha256 == host.sha256 && rows.front().whole.value_or(true);
}

std::string GathersAgain(const RunRow& run) {
    return "An earlier attempt had made the BMC gather (run " + std::to_string(run.id) + "); " +
           (run.several ? "of several types of data" : "over " + run.channel) +
           " nobody can go on with that, so it gathers again.";
}

std::string ReadsAnew(const RunRow& run) {
    return "An earlier attempt was reading the BMC's Redfish tree (run " + std::to_string(run.id) +
           "); nothing of that is kept, so it is read anew.";
}

}  // namespace

Earlier LookBack(const Store& store, History::Id fleet, int number,
                 const std::function<bool(const RunRow& run)>& canGoOn) {
    const History::FleetJournal journal(store);
    Earlier earlier;
    const std::optional<History::FleetHostRow> host = journal.Host(fleet, number);
    if (host && IsWhole(store, *host)) {
        earlier.archive = host->archive;
        earlier.size = host->size;
        earlier.sha256 = host->sha256;
        return earlier;
    }
    std::set<History::Id> inVain;
    for (const RunRow& run : journal.Attempts(fleet, number)) {
        if (IsSpent(run) || inVain.count(run.id) > 0) break;
        if (HasWaitedInVain(run)) inVain.insert(run.continues);
        if (run.operation == "tree") {
            earlier.note = ReadsAnew(run);
            break;
        }
        // One that did not get so far leaves what was before.
        if (run.task.empty() && store.AskedAt(run.id).empty()) continue;
        if (canGoOn(run)) {
            earlier.run = run;
        } else {
            earlier.note = GathersAgain(run);
        }
        break;
    }
    return earlier;
}

}  // namespace Kemffdc::Fleet
