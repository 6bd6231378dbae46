// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Fold.h"

#include <algorithm>
#include <map>

#include "cli/fleet/HostRange.h"
#include "cli/fleet/Meaning.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using History::HostState;

// Some screens full: what is longer is read in the report.
constexpr std::size_t kLongestList = 2000;  // bytes

// Cut behind a host or a range, with a word that there are more.
std::string CutList(const std::string& list) {
    if (list.size() <= kLongestList) return list;
    const std::size_t comma = list.rfind(',', kLongestList);
    return CutUtf8(list, comma == std::string::npos ? kLongestList : comma) + ",...";
}

}  // namespace

std::vector<OutcomeGroup> GroupByOutcome(const std::vector<std::string>& outcomes) {
    std::vector<OutcomeGroup> groups;
    std::map<std::string, std::size_t> places;
    for (std::size_t host = 0; host < outcomes.size(); ++host) {
        const auto [place, isNew] = places.emplace(outcomes[host], groups.size());
        if (isNew) groups.push_back({outcomes[host], {}});
        groups[place->second].hosts.push_back(host);
    }
    std::stable_sort(groups.begin(), groups.end(),
                     [](const OutcomeGroup& a, const OutcomeGroup& b) {
                         return a.hosts.size() > b.hosts.size();
                     });
    return groups;
}

std::string OutcomeOf(HostState state, const std::string& written) {
    if (state == HostState::kQueued) return "not-tried";
    if (!HasEnded(state)) return "not-ended";
    if (written.empty()) return state == HostState::kStopped ? "not-tried" : "not-ended";
    return written;
}

bool IsGood(const std::string& outcome) {
    return outcome == "downloaded" || outcome == "exported" || outcome == "checked";
}

std::string FoldedLine(const std::string& outcome, const std::vector<std::string>& hosts) {
    const std::string list = Clean(CutList(FoldHosts(hosts)), kLongestList + 100);
    return std::to_string(hosts.size()) + " " + MeaningOf(outcome).title + ": " + list;
}

}  // namespace Kemffdc::Fleet
