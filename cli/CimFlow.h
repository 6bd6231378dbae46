// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIMFLOW_H
#define KEMFFDC_CIMFLOW_H

#include "ExitCodes.h"

namespace Kemffdc {

struct Context;

// Probes the CIM server, connects, and makes the BMC upload an archive for each of its data objects
// to the export URI.
Outcome CollectByCim(Context& run);

// The first of these, and a look at the data objects.
Outcome CheckByCim(Context& run);

}  // namespace Kemffdc

#endif
