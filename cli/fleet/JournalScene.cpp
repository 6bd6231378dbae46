// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/JournalScene.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

#include "cli/Utc.h"

namespace Kemffdc::Fleet {
namespace {

using History::FleetHostRow;
using History::FleetStateRow;
using History::HostState;

WallTime FromSeconds(double seconds) {
    return WallTime(
        std::chrono::duration_cast<WallTime::duration>(std::chrono::duration<double>(seconds)));
}

WallTime FromText(const std::string& utc) {
    return std::chrono::system_clock::from_time_t(ReadUtc(utc));
}

// What the timeline says of the run as a whole and of each host.
struct Times {
    WallTime begun;  // or resumed
    WallTime last;
    std::map<int, WallTime> firstTry;  // since then
};

// Hosts that a resumption tries again are queued once more.
Times TimesOf(const std::vector<FleetStateRow>& states, WallTime begun) {
    Times times{begun, begun, {}};
    for (const FleetStateRow& row : states) {
        const WallTime at = FromSeconds(row.at);
        times.last = std::max(times.last, at);
        if (row.state == HostState::kQueued) times.begun = std::max(times.begun, at);
    }
    for (const FleetStateRow& row : states) {
        const WallTime at = FromSeconds(row.at);
        const bool tried = row.state == HostState::kStarting && at >= times.begun;
        if (tried) times.firstTry.emplace(row.number, at);
    }
    return times;
}

// The bytes of all files that are on their way, or have come.
void AddBytes(const std::vector<History::ArchiveRow>& archives, SceneHost& host) {
    for (const History::ArchiveRow& archive : archives) {
        std::error_code gone;
        const auto size = std::filesystem::file_size(archive.partial, gone);
        host.bytes += archive.partial.empty() || gone ? archive.size : size;
        host.expected += archive.expected;
    }
}

SceneHost HostOf(const FleetHostRow& row, const Times& times, const History::Store& store) {
    SceneHost host;
    host.name = row.name;
    host.channel = row.channel;
    host.operation = row.operation;
    host.state = row.state;
    if (row.changedAt > 0) host.since = FromSeconds(row.changedAt);
    const auto firstTry = times.firstTry.find(row.number);
    if (firstTry != times.firstTry.end()) host.begun = firstTry->second;
    host.attempts = row.attempts;
    if (row.state == HostState::kGathering) host.percent = row.taskPercent;
    host.bytes = row.size;
    host.outcome = row.outcome;
    host.reason = row.state == HostState::kDone ? "" : row.reason;
    if (row.state == HostState::kTransferring) AddBytes(store.Archives(row.run), host);
    return host;
}

}  // namespace

Scene ReadScene(const History::Store& store, const History::FleetJournal& journal,
                const History::FleetRunRow& run, WallTime now) {
    Scene scene;
    scene.fleet = run.id;
    scene.command = run.command;
    scene.folder = run.folder;
    scene.ended = !run.endedAt.empty();
    scene.live = journal.IsLive(run.id);
    const Times times = TimesOf(journal.States(run.id), FromText(run.begunAt));
    scene.begun = times.begun;
    scene.now = scene.live ? now : times.last;
    if (scene.ended) scene.now = FromText(run.endedAt);
    for (const FleetHostRow& row : journal.Hosts(run.id)) {
        scene.hosts.push_back(HostOf(row, times, store));
    }
    return scene;
}

}  // namespace Kemffdc::Fleet
