// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_SETTLE_H
#define KEMFFDC_SETTLE_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/ExitCodes.h"
#include "cli/Line.h"

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

// Fills `options` with what holds. Of each option the first counts that is said at all: on the
// command line, in the environment, in the user's file, in the machine's; else it is so by default.
// What only the files say, and what does not fit the command or the channel, is left out.
// Reads the environment and the files that `surroundings` names, and nothing else. The reason of a
// failure is a whole sentence for the operator; where a file is at fault it begins with
// "FILE:LINE:". kLocalFile: a file cannot be read. kUsage: all others.
Outcome Settle(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
               Options& options);

}  // namespace Kemffdc

#endif
