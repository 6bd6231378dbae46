// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/SceneJson.h"

#include <algorithm>

#include "cli/Utc.h"
#include "cli/fleet/Fold.h"
#include "cli/fleet/HostRange.h"
#include "cli/fleet/Meaning.h"
#include "cli/fleet/Summary.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace json = boost::json;
using History::HostState;

// What a BMC said is free of secrets.
json::value Shown(const std::string& text) { return TextOrNull(Clean(text, 1000)); }

json::value TimeOrNull(WallTime time) {
    if (time == WallTime()) return nullptr;
    return json::value(UtcText(std::chrono::system_clock::to_time_t(time)));
}

json::object StatesOf(const Scene& scene) {
    json::object states;
    for (int i = 0; i <= static_cast<int>(HostState::kStopped); ++i) {
        const auto state = static_cast<HostState>(i);
        states[NameOf(state)] =
            std::count_if(scene.hosts.begin(), scene.hosts.end(),
                          [state](const SceneHost& host) { return host.state == state; });
    }
    return states;
}

json::array OutcomesOf(const Scene& scene) {
    json::array outcomes;
    for (const OutcomeGroup& group : GroupsOf(scene)) {
        outcomes.push_back(json::object{{"outcome", group.outcome},
                                        {"title", MeaningOf(group.outcome).title},
                                        {"count", group.hosts.size()},
                                        {"hosts", TextValue(FoldHosts(NamesOf(scene, group)))}});
    }
    return outcomes;
}

json::array HostsOf(const Scene& scene) {
    json::array hosts;
    for (const SceneHost& host : scene.hosts) hosts.push_back(SceneHostObject(host));
    return hosts;
}

}  // namespace

json::object SceneObject(const Scene& scene, int exitCode) {
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "fleet " + scene.command},
            {"fleet", scene.fleet},
            {"folder", TextOrNull(scene.folder)},
            {"started", TimeOrNull(scene.begun)},
            {"time", TimeOrNull(scene.now)},
            {"live", scene.live},
            {"exit_code", exitCode >= 0 ? json::value(exitCode) : nullptr},
            {"reason", TextOrNull(ReasonOf(scene, exitCode))},
            {"resume", TextOrNull(ResumeCommand(scene))},
            {"states", StatesOf(scene)},
            {"outcomes", OutcomesOf(scene)},
            {"hosts", HostsOf(scene)}};
}

json::object SceneHostObject(const SceneHost& host) {
    return {{"name", TextValue(host.name)},
            {"channel", TextOrNull(host.channel)},
            {"operation", TextOrNull(host.operation)},
            {"state", NameOf(host.state)},
            {"since", TimeOrNull(host.since)},
            {"begun", TimeOrNull(host.begun)},
            {"attempts", host.attempts},
            {"percent", host.percent ? json::value(*host.percent) : nullptr},
            {"message", Shown(host.message)},
            {"bytes", host.bytes},
            {"expected", host.expected > 0 ? json::value(host.expected) : nullptr},
            {"outcome", TextOrNull(host.outcome)},
            {"reason", Shown(host.reason)}};
}

}  // namespace Kemffdc::Fleet
