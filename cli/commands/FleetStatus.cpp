// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetStatus.h"

#include <chrono>
#include <memory>
#include <ostream>
#include <thread>
#include <utility>

#include "cli/ExitCodes.h"
#include "cli/commands/FleetRecorded.h"
#include "cli/fleet/JournalScene.h"
#include "cli/fleet/Picture.h"
#include "cli/fleet/SceneJson.h"
#include "cli/fleet/Summary.h"
#include "cli/fleet/View.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using namespace std::chrono_literals;
using Fleet::Scene;

constexpr auto kBetweenLooks = 500ms;

// What the commands read: one database, and in it one run.
struct Source {
    const History::Store& store;
    const History::FleetJournal& journal;

    Scene Read(const History::FleetRunRow& run) const {
        return Fleet::ReadScene(store, journal, run, std::chrono::system_clock::now());
    }
};

void WriteWords(const Scene& scene, std::ostream& out) {
    if (!scene.live) {
        Fleet::WriteSummary(scene, out);
        return;
    }
    constexpr TerminalSize kPage{100, 60};
    for (const std::string& line : Fleet::Table(scene, std::nullopt, kPage)) out << line << "\n";
    out << "Folder: " << Clean(scene.folder, 4096) << "\n";
}

bool HasMoved(const Fleet::SceneHost& before, const Fleet::SceneHost& now) {
    return before.state != now.state || before.attempts != now.attempts ||
           before.bytes != now.bytes || before.outcome != now.outcome;
}

// Until nobody works on it any more; `run` and `scene` are then as it has ended.
void Follow(const Source& source, Fleet::Audience& audience, History::FleetRunRow& run,
            Scene& scene) {
    audience.Begun(scene);
    while (scene.live && !scene.ended) {
        std::this_thread::sleep_for(kBetweenLooks);
        run = source.journal.Find(run.id).value_or(run);
        const Scene before = std::exchange(scene, source.Read(run));
        for (std::size_t i = 0; i < scene.hosts.size(); ++i) {
            if (HasMoved(before.hosts.at(i), scene.hosts[i])) audience.Changed(scene, i);
        }
        audience.Tick(scene);
    }
}

int Watch(const Options& options, const Source& source, History::FleetRunRow& run,
          std::ostream& out, std::ostream& err) {
    const std::unique_ptr<Fleet::Audience> audience =
        Fleet::MakeAudience({options.liveProgress, options.json, false}, out);
    Scene scene = source.Read(run);
    Follow(source, *audience, run, scene);
    audience->Ended(scene, run.exitCode);
    if (run.exitCode >= 0) return run.exitCode;
    const Outcome killed = Failure(kLocalFile, "Nobody works on this run any more: it was killed.");
    WriteReason(killed, err);
    return killed.code;
}

Outcome Tell(const Options& options, std::ostream& out, std::ostream& err, int& code) {
    const std::string folder = History::StateFolder(options.stateDir);
    if (!History::Store::Exists(folder)) return Failure(kLocalFile, "No fleet run is known.");
    const History::Store store(folder);
    const History::FleetJournal journal(store);
    const Source source{store, journal};
    History::FleetRunRow run;
    Outcome found = FindFleetRun(options, journal, run);
    if (!found.Ok()) return found;
    if (Part<FleetStatusOptions>(options).watch) {
        code = Watch(options, source, run, out, err);
        return {};
    }
    const Scene scene = source.Read(run);
    if (options.json) {
        out << JsonText(Fleet::SceneObject(scene, run.exitCode)) << "\n";
    } else {
        WriteWords(scene, out);
    }
    return {};
}

}  // namespace

const OptionGroup& WatchOptions() {
    static const OptionGroup group{
        "Watching",
        {{"--watch", "", "Show the run until it ends, and end as it does",
          Flag(&FleetStatusOptions::watch), Where::kLine, Use::kReach, true}}};
    return group;
}

int ShowFleetStatus(const Options& options, std::ostream& out, std::ostream& err) {
    int code = kDone;
    Outcome outcome;
    try {
        outcome = Tell(options, out, err, code);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    if (outcome.Ok()) return code;
    WriteReason(outcome, err);
    if (options.json) out << JsonText(FaultObject(outcome, "fleet status")) << "\n";
    return outcome.code;
}

}  // namespace Kemffdc
