// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/ResultsJournal.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <map>

#include "cli/Archive.h"
#include "cli/Utc.h"
#include "cli/fleet/Fold.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

using History::FleetHostRow;

std::string ThisMachine() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

RunResult RunOf(const History::FleetRunRow& row, bool live) {
    RunResult run;
    run.station = ThisMachine();
    run.fleet = row.id;
    run.command = row.command;
    run.toolVersion = row.toolVersion;
    run.inventory = row.inventory;
    run.shard = row.shard;
    run.folder = row.folder;
    run.started = static_cast<double>(ReadUtc(row.begunAt));
    run.ended = static_cast<double>(ReadUtc(row.endedAt));
    run.live = live;
    run.exitCode = row.exitCode;
    return run;
}

std::string RecordOf(const std::string& archive) {
    std::error_code gone;
    const std::string record = RecordPath(archive);
    return !archive.empty() && fs::is_regular_file(record, gone) ? record : "";
}

HostResult HostOf(const FleetHostRow& row) {
    HostResult host;
    host.number = row.number;
    host.name = row.name;
    host.host = row.host;
    host.channel = row.channel;
    host.operation = row.operation;
    host.group = row.group;
    host.credential = row.credential;
    host.state = row.state;
    host.outcome = OutcomeOf(row.state, row.outcome);
    host.exitCode = row.exitCode;
    host.reason = host.Succeeded() ? "" : row.reason;
    host.attempts = row.attempts;
    host.task = row.task;
    host.archive = row.archive;
    host.exportUri = row.exportUri;
    host.record = RecordOf(row.archive);
    host.size = row.size;
    host.sha256 = row.sha256;
    host.bmc = row.bmc;
    return host;
}

// When the file, or the last one of a folder of files, was removed; by the path that hosts know.
std::map<std::string, std::string> RemovedOf(const std::vector<History::FleetArchiveRow>& files) {
    std::map<std::string, std::string> removed;
    for (const History::FleetArchiveRow& row : files) {
        if (row.file.removedAt.empty()) continue;
        removed[row.file.path] = row.file.removedAt;
        removed[fs::path(row.file.path).parent_path()] = row.file.removedAt;
    }
    return removed;
}

}  // namespace

Results ReadResults(const History::FleetJournal& journal, const History::FleetRunRow& run) {
    Results results;
    results.written = static_cast<double>(std::time(nullptr));
    results.runs.push_back(RunOf(run, run.endedAt.empty() && journal.IsLive(run.id)));
    const auto removed = RemovedOf(journal.Archives(run.id));
    for (const FleetHostRow& row : journal.Hosts(run.id)) {
        results.hosts.push_back(HostOf(row));
        HostResult& host = results.hosts.back();
        const auto found = removed.find(host.archive);
        if (found != removed.end()) host.removed = found->second;
    }
    for (const History::FleetStateRow& row : journal.States(run.id)) {
        const auto place = static_cast<std::size_t>(row.number) - 1;
        if (place < results.hosts.size())
            results.hosts[place].states.push_back({row.at, row.state});
    }
    return results;
}

}  // namespace Kemffdc::Fleet
