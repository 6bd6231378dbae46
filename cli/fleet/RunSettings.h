// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_RUNSETTINGS_H
#define KEMFFDC_FLEET_RUNSETTINGS_H

#include <map>
#include <string>
#include <vector>

#include "cli/fleet/Options.h"
#include "cli/fleet/Scheduler.h"

namespace Kemffdc::Fleet {

// What `fleet resume` needs of a run beside its hosts: kept in the journal as a JSON object. No
// secrets, and no commands, in which somebody may have written one.
struct RunSettings {
    FleetOptions pace;  // its limits, tries, deadlines, and what follows the run
    // Files that hold passwords, by the number of the host that it is for; of hosts without a
    // named credential.
    std::map<int, std::string> passwordFiles;
    std::map<int, std::string> exportPasswordFiles;
};

std::string ToJson(const RunSettings& settings);
RunSettings SettingsFromJson(const std::string& json);  // what it does not say is so by default

// What the line of a resume says counts before what the run was begun with. The program that
// follows the run is always that of `line`.
void PreferLine(const Options& line, FleetOptions& pace);

Scheduler::Pace PaceOf(const FleetOptions& options);

}  // namespace Kemffdc::Fleet

#endif
