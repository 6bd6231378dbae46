// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_PREFLIGHT_H
#define KEMFFDC_REDFISH_PREFLIGHT_H

#include <string>

#include "cli/Options.h"
#include "cli/http/Transport.h"
#include "cli/redfish/Operation.h"
#include "cli/redfish/standard/LogServices.h"
#include "cli/report/Report.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Redfish {

// What a Redfish service answered before anything was asked of the library.
struct Preflight {
    enum class State {
        kReady,     // takes the credentials
        kStarting,  // answers 503: to be waited for, by the library
        kFailed,
    };
    State state = State::kFailed;
    Stage stage = Stage::kDone;  // where it failed
    std::string reason;          // what was wrong and what to do; kFailed alone
    Cause cause = Cause::kUnnamed;
    BmcFacts facts;
    Chosen chosen;                // kReady alone
    LogServices logServices;      // looked for where the OEM's operation is not the one
    std::string limit;            // why nothing can be gathered by it, where that is sure
    bool lowerCaseNames = false;  // of headers; the library finds no session token among such
};

// Resolves, connects, agrees on TLS, reads the service root, and with the credentials the manager
// and the system that it manages, and decides which operation is to be taken. Takes at most
// `seconds` for each of the three or four requests, and looks for others than the OEM's operation
// only where that is missing. `rights`: looks besides whether it would be accepted (Rights.h),
// which else the operation itself tells.
Preflight RunPreflight(const Options& options, const Trust& trust, const Secret& password,
                       int seconds, bool rights);

}  // namespace Kemffdc::Redfish

#endif
