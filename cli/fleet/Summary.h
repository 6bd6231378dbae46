// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_SUMMARY_H
#define KEMFFDC_FLEET_SUMMARY_H

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/fleet/Fold.h"
#include "cli/fleet/Scene.h"

namespace Kemffdc::Fleet {

// What a run has come to, for people: how many hosts are done, the others folded by the reason with
// what to do about it, where the reports are, and the next command.
void WriteSummary(const Scene& scene, std::ostream& out);

// Why the run did not end with 0, in a sentence; empty where it did, and where the run itself could
// not be worked on.
std::string ReasonOf(const Scene& scene, int exitCode);

// "kemffdc fleet resume 12"; empty where there is nothing left to do, or the run is at work.
std::string ResumeCommand(const Scene& scene);

// The hosts by their outcomes.
std::vector<OutcomeGroup> GroupsOf(const Scene& scene);
std::vector<std::string> NamesOf(const Scene& scene, const OutcomeGroup& group);

}  // namespace Kemffdc::Fleet

#endif
