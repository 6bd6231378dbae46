// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_SETTLE_H
#define KEMFFDC_SETTLE_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/Commands.h"
#include "cli/ExitCodes.h"
#include "cli/Line.h"
#include "cli/config/ConfigFile.h"

namespace Kemffdc {

// Where else options come from. By default nowhere.
struct Surroundings {
    // Of the environment; null where it is not set.
    std::function<const char*(const char* name)> variable = [](const char* /*name*/) {
        return static_cast<const char*>(nullptr);
    };
    std::string userFile;    // kemffdc.conf of this user; empty: there is none
    std::string systemFile;  // that of the machine
    std::string home;        // what "~" stands for in them
};

// Those of this process.
Surroundings SurroundingsOfProcess();

// The hosts that these files name by themselves and not by a pattern; of a file that is at fault
// none.
std::vector<std::string> HostsInFiles(const Surroundings& surroundings);

// The same places, read: for many BMCs at once.
struct Sources {
    Surroundings from;
    std::vector<Config::Member> members;                 // what kemffdc.conf may hold
    std::vector<std::pair<Origin, Config::File>> files;  // what counts more first
    // What is said of a BMC as one of a fleet, by the option's name: between command line and
    // environment. Of it, too, what does not fit is left out.
    std::map<std::string, Said> inventory;
};

// Fails as Settle() does. Blocks on the disk.
Outcome ReadSources(const Surroundings& surroundings, Sources& sources);

// Every option that kemffdc.conf may hold, whichever command knows it, by its member.
std::map<std::string, const Option*> FileOptions();

// Every option that a run on the BMC has: what holds, who has said so, and what was left out.
std::vector<HeldSetting> HeldBy(const CommandEntry& command, const Options& options);

// Fills `options` with what holds. Of each option the first counts that is said at all: on the
// command line, in the environment, in the user's file, in the machine's; else it is so by default.
// What only the files say, and what does not fit the command or the channel, is left out.
// Reads the environment and the files that `surroundings` names, and nothing else. The reason of a
// failure is a whole sentence for the operator; where a file is at fault it begins with
// "FILE:LINE:". kLocalFile: a file cannot be read. kUsage: all others.
Outcome Settle(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
               Options& options);
// The same by what has been read.
Outcome Settle(const CommandEntry& command, const Line& line, const Sources& sources,
               Options& options);

}  // namespace Kemffdc

#endif
