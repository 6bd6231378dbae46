// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_OPTIONS_H
#define KEMFFDC_FLEET_OPTIONS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/OptionTable.h"

namespace Kemffdc::Fleet {

struct HostSettling;

// One share of a fleet that several stations divide among them. 1/1: all of it.
struct Shard {
    int number = 1;  // from 1
    int of = 1;
};

// What the commands on fleets have besides the options of BMCs.
struct FleetOptions {
    // Which BMCs. Either an inventory or an expression, of HostRange.h; empty: not given.
    std::string inventory;  // path
    std::string hosts;
    std::vector<std::string> groups;  // empty: of any
    std::string limit;                // as HostFilter reads it, as the next; empty: none
    std::string exclude;
    Shard shard;
    std::string credentials;  // path; empty: the inventory's own, if it names one

    // How the run goes. Options::output is the folder that the run's own folder is made in,
    // Options::deadline counts for each try of a host.
    int gathering = 256;            // BMCs at once that are reached or gather
    int transfers = 8;              // that are downloaded from
    int startsPerSecond = 100;      // of workers
    int retries = 2;                // further tries of a host
    std::int64_t retryPause = 10;   // seconds before the first of them; it grows
    std::int64_t hostDeadline = 0;  // seconds for all tries of a host; 0: none
    std::int64_t runDeadline = 0;   // seconds for the whole run; 0: none
    int keep = 0;                   // archives of each host that stay; 0: all
    std::string metrics;            // path of a file for Prometheus; empty: none
    std::string onFinish;           // a program and its arguments, for ProgramWords(); empty: none

    // How the options of each BMC become settled; set by the parsing of the command line.
    std::shared_ptr<const HostSettling> settling;
};

inline const FleetOptions& Own(const Options& options) { return Part<FleetOptions>(options); }

// Groups of options. A command on a fleet names those that it has.
const OptionGroup& SelectionOptions();  // which BMCs of the inventory
const OptionGroup& PaceOptions();       // limits, tries and deadlines of a run
const OptionGroup& FolderOptions();     // where runs lie
const OptionGroup& EventsOptions();     // what a run prints while it works
const OptionGroup& PasswordOptions();   // where a run that goes on finds passwords
const OptionGroup& FinishOptions();     // what follows a run

// The program and its arguments that a text means: blanks part them, quotes and backslashes keep
// them. Empty where it means none.
std::vector<std::string> ProgramWords(const std::string& text);

// `take` of commands whose argument is an inventory.
std::string TakeInventory(const std::string& text, Options& options);

}  // namespace Kemffdc::Fleet

#endif
