// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISHFLOW_H
#define KEMFFDC_REDFISHFLOW_H

#include "ExitCodes.h"

namespace Kemffdc {

struct Context;

// Service data through the BMC's Redfish service: preflight, connect, export, wait, download. The
// library's Connect calls most failures a success and its codes are few, so every step is judged
// by the records that the library logs while it works.
Outcome CollectByRedfish(Context& run);

// Preflight and connect, and what they found; gathers nothing.
Outcome CheckByRedfish(Context& run);

}  // namespace Kemffdc

#endif
