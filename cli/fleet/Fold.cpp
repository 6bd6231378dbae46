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

std::vector<OutcomeGroup> GroupByOutcome(const std::vector<HostOutcome>& hosts) {
    std::vector<OutcomeGroup> groups;
    std::map<std::string, std::size_t> places;
    for (const HostOutcome& host : hosts) {
        const auto [place, isNew] = places.emplace(host.outcome, groups.size());
        if (isNew) groups.push_back({host.outcome, {}});
        groups[place->second].hosts.push_back(host.host);
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

std::string FoldedLine(const OutcomeGroup& group) {
    const std::string hosts = Clean(CutList(FoldHosts(group.hosts)), kLongestList + 100);
    return std::to_string(group.hosts.size()) + " " + MeaningOf(group.outcome).title + ": " + hosts;
}

}  // namespace Kemffdc::Fleet
