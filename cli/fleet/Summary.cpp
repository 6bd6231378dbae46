// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Summary.h"

#include <unistd.h>

#include <ostream>

#include "cli/ExitCodes.h"
#include "cli/fleet/Meaning.h"
#include "cli/fleet/Picture.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

std::string Counted(const Scene& scene) {
    return std::to_string(CountDone(scene)) + " of " + std::to_string(scene.hosts.size()) +
           " hosts done";
}

void WriteGroup(const Scene& scene, const OutcomeGroup& group, std::ostream& out) {
    out << "\n" << FoldedLine(group.outcome, NamesOf(scene, group)) << "\n";
    const std::string advice = MeaningOf(group.outcome).advice;
    if (!advice.empty()) out << "    " << advice << "\n";
}

// Where to read more, and what to do next.
std::string Further(const Scene& scene) {
    std::string text;
    for (const char* const name : {"report.html", "report.csv", "report.json"}) {
        const std::string path = scene.folder + "/" + name;
        if (access(path.c_str(), R_OK) != 0) continue;
        text += (text.empty() ? "Reports: " : "         ") + Clean(path, 4096) + "\n";
    }
    const std::string resume = ResumeCommand(scene);
    return resume.empty() ? text : text + "Next:    " + resume + "\n";
}

}  // namespace

void WriteSummary(const Scene& scene, std::ostream& out) {
    const char* const killed = scene.ended || scene.live ? "" : " was killed";
    out << "Run " << scene.fleet << " (" << scene.command << ")" << killed << ": " << Counted(scene)
        << " in " << ElapsedText(scene);
    if (BytesOf(scene) > 0) out << ", " << HumanBytes(BytesOf(scene));
    out << ".\n";
    for (const OutcomeGroup& group : GroupsOf(scene)) {
        if (!IsGood(group.outcome)) WriteGroup(scene, group, out);
    }
    const std::string further = Further(scene);
    if (!further.empty()) out << "\n" << further;
    out.flush();
}

std::string ReasonOf(const Scene& scene, int exitCode) {
    constexpr int kSome = 20;
    constexpr int kNone = 21;
    if (exitCode == kInterrupted) return "Interrupted: " + Counted(scene) + ".";
    return exitCode == kSome || exitCode == kNone ? "Only " + Counted(scene) + "." : "";
}

std::string ResumeCommand(const Scene& scene) {
    if (scene.live && !scene.ended) return "";
    if (CountDone(scene) == scene.hosts.size()) return "";
    return "kemffdc fleet resume " + std::to_string(scene.fleet);
}

std::vector<OutcomeGroup> GroupsOf(const Scene& scene) {
    std::vector<std::string> outcomes;
    outcomes.reserve(scene.hosts.size());
    for (const SceneHost& host : scene.hosts) outcomes.push_back(OutcomeOf(host));
    return GroupByOutcome(outcomes);
}

std::vector<std::string> NamesOf(const Scene& scene, const OutcomeGroup& group) {
    std::vector<std::string> names;
    names.reserve(group.hosts.size());
    for (const std::size_t host : group.hosts) names.push_back(scene.hosts[host].name);
    return names;
}

}  // namespace Kemffdc::Fleet
