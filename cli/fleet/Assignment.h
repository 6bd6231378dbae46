// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_ASSIGNMENT_H
#define KEMFFDC_FLEET_ASSIGNMENT_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/history/Store.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// What a conductor gives a worker to do, as one line of JSON:
//   {"arguments":["collect","--via","redfish","10.0.0.1", ...], "password":"...",
//    "export_password":"...", "fleet":12, "number":17, "gate":true, "conductor":4711}
struct Assignment {
    std::vector<std::string> arguments;  // as on the command line: "collect" or "check" first
    Secret password;                     // "" and null: none, as the next
    Secret exportPassword;
    History::Id fleet = 0;
    int number = 0;       // of the host, from 1
    bool gate = false;    // a download waits for "go"; left out: it does not
    pid_t conductor = 0;  // who has written it; left out: 0
};

// Reads the line, and nothing behind it, from a pipe. kUsage: it is none of the above (a member is
// missing, of another type or unknown), longer than 64 KiB, or does not come within half a minute.
// Reasons name no value. What was read is wiped.
Outcome ReadAssignment(int descriptor, Assignment& assignment);

// The same from the text of a line.
Outcome ParseAssignment(const std::string& line, Assignment& assignment);

}  // namespace Kemffdc::Fleet

#endif
