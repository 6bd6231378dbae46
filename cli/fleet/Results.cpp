// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Results.h"

#include <algorithm>
#include <map>
#include <utility>

#include "cli/fleet/Fold.h"
#include "cli/fleet/HostRange.h"

namespace Kemffdc::Fleet {
namespace {

using History::HostState;

// Whether somebody is at work on the host, or will be again.
bool IsBusy(HostState state) { return state != HostState::kQueued && !History::HasEnded(state); }

// The sentences by how many hosts have them.
std::vector<std::string> MostFrequentFirst(const std::map<std::string, std::size_t>& counts) {
    std::vector<std::string> reasons;
    reasons.reserve(counts.size());
    for (const auto& entry : counts) reasons.push_back(entry.first);
    std::stable_sort(reasons.begin(), reasons.end(),
                     [&counts](const std::string& a, const std::string& b) {
                         return counts.at(a) > counts.at(b);
                     });
    return reasons;
}

double MedianOf(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

double HostResult::Started() const {
    const auto first = std::find_if(states.begin(), states.end(),
                                    [](const StateChange& change) { return IsBusy(change.state); });
    return first == states.end() ? 0 : first->at;
}

double HostResult::Ended() const {
    return states.empty() || !History::HasEnded(states.back().state) ? 0 : states.back().at;
}

double HostResult::Seconds() const {
    double seconds = 0;
    for (std::size_t i = 0; i + 1 < states.size(); ++i) {
        if (IsBusy(states[i].state)) seconds += std::max(0.0, states[i + 1].at - states[i].at);
    }
    return seconds;
}

double Results::Started() const {
    double started = 0;
    for (const RunResult& run : runs) {
        if (started == 0 || run.started < started) started = run.started;
    }
    return started;
}

double Results::Ended() const {
    double ended = 0;
    for (const RunResult& run : runs) ended = std::max(ended, run.live ? written : run.ended);
    for (const HostResult& host : hosts) {
        if (!host.states.empty()) ended = std::max(ended, host.states.back().at);
    }
    return ended;
}

Totals TotalsOf(const Results& results) {
    Totals totals;
    std::vector<double> seconds;
    for (const HostResult& host : results.hosts) {
        ++totals.hosts;
        if (!History::HasEnded(host.state)) ++totals.open;
        if (host.state == HostState::kFailed) ++totals.failed;
        if (host.state == HostState::kStopped) ++totals.stopped;
        if (!host.Succeeded()) continue;
        ++totals.done;
        if (host.HasArchive()) ++totals.archives;
        totals.bytes += host.size;
        seconds.push_back(host.Seconds());
        totals.slowest = std::max(totals.slowest, seconds.back());
    }
    totals.median = MedianOf(std::move(seconds));
    return totals;
}

std::vector<Failures> FailuresOf(const Results& results) {
    std::vector<std::size_t> failed;
    std::vector<std::string> outcomes;
    for (std::size_t i = 0; i < results.hosts.size(); ++i) {
        if (results.hosts[i].Succeeded()) continue;
        failed.push_back(i);
        outcomes.push_back(results.hosts[i].outcome);
    }
    std::vector<Failures> groups;
    for (const OutcomeGroup& group : GroupByOutcome(outcomes)) {
        std::map<std::string, std::size_t> counts;
        Failures failures{group.outcome, {}, {}};
        for (const std::size_t place : group.hosts) {
            const std::string& reason = results.hosts[failed[place]].reason;
            failures.hosts.push_back(failed[place]);
            if (!reason.empty()) ++counts[reason];
        }
        failures.reasons = MostFrequentFirst(counts);
        groups.push_back(std::move(failures));
    }
    return groups;
}

std::string FoldedNames(const Results& results, const std::vector<std::size_t>& hosts) {
    std::vector<std::string> names;
    names.reserve(hosts.size());
    for (const std::size_t host : hosts) names.push_back(results.hosts[host].name);
    return FoldHosts(names);
}

}  // namespace Kemffdc::Fleet
