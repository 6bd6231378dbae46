// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_FLOW_H
#define KEMFFDC_CIM_FLOW_H

#include "cli/ExitCodes.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Cim {

// Probes the CIM server, connects, and makes the BMC upload an archive for each of its data objects
// to the export URI.
Outcome Collect(Context& run);

// The first of these, and a look at the data objects.
Outcome Check(Context& run);

}  // namespace Kemffdc::Cim

#endif
