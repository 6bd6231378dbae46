// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_EARLIER_H
#define KEMFFDC_REDFISH_EARLIER_H

#include <string>

#include "cli/Context.h"
#include "cli/redfish/Preflight.h"

namespace Kemffdc::Redfish {

// What the history knows of the run that a resumed one goes on with.
struct Earlier {
    std::string host;       // as the history spells it
    std::string task;       // path on the BMC; empty: it knew none
    std::string begun;      // UTC
    std::string part;       // file with what has come of its archive; empty: there is none
    std::string validator;  // of that part

    // Brings the part into the working folder of this run, as that of `name`. Gives the validator;
    // empty: there is no part, or it cannot be had.
    std::string TakeOverPart(const Context& run, const std::string& name) const;
};

// kLocalFile where the history cannot be read.
Outcome Recall(const Context& run, Earlier& earlier);

// Where the earlier run was ended before it knew its task: looks for it among the BMC's, as a step
// of this run. What was asked for is as the options say. `earlier.task` stays empty where there is
// none. kLocalFile where the history cannot be read.
Outcome Adopt(Context& run, Operation operation, Earlier& earlier);

// The preflight of a resumed run, as a step of it; the BMC must be ready.
Outcome ReachAgain(Context& run, Operation operation, Preflight& found);

}  // namespace Kemffdc::Redfish

#endif
