// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_FLOW_H
#define KEMFFDC_REDFISH_FLOW_H

#include "cli/ExitCodes.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Redfish {

// Service data through the BMC's Redfish service, by the operation that the preflight has chosen.
// The OEM's one is the library's: connect, export, wait, download. Its Connect calls most failures
// a success and its codes are few, so every step is judged by the records that the library logs
// while it works. The others are made of the tool's own requests.
Outcome Collect(Context& run);

// Goes on with the task of the earlier run that the options name: preflight, wait, download, by the
// tool's own requests.
Outcome Resume(Context& run);

// Preflight and connect, and what they found; gathers nothing.
Outcome Check(Context& run);

}  // namespace Kemffdc::Redfish

#endif
