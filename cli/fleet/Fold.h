// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_FOLD_H
#define KEMFFDC_FLEET_FOLD_H

#include <cstddef>
#include <string>
#include <vector>

#include "cli/fleet/Scene.h"

namespace Kemffdc::Fleet {

// Hosts that have the same outcome.
struct OutcomeGroup {
    std::string outcome;             // a word of docs/json.md, "login-refused"
    std::vector<std::size_t> hosts;  // their places, in order
};

// Of hosts with these outcomes. The largest group first; of two that are alike, the one whose
// outcome came first.
std::vector<OutcomeGroup> GroupByOutcome(const std::vector<std::string>& outcomes);

// The outcome of a host of a run, also where it has none of its own: "not-tried" for one that
// nobody has begun with, "not-ended" for one in the middle. `written`: that of its latest attempt.
std::string OutcomeOf(History::HostState state, const std::string& written);
inline std::string OutcomeOf(const SceneHost& host) { return OutcomeOf(host.state, host.outcome); }

// Whether it is one with which the run has got what it was for.
bool IsGood(const std::string& outcome);

// "41 wrong password: bmc[003,017-020]", fit for display. A list of hosts that fills screens is cut
// and ends with "...": reports have all of it.
std::string FoldedLine(const std::string& outcome, const std::vector<std::string>& hosts);

}  // namespace Kemffdc::Fleet

#endif
