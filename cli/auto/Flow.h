// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_AUTO_FLOW_H
#define KEMFFDC_AUTO_FLOW_H

#include "cli/ExitCodes.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Auto {

// Asks all candidates at once and takes the first that answers. Where that one finds, before
// anything is started on the BMC, that it would get nothing, the next one is taken. A refused
// password ends the search, because accounts lock, and so does a certificate or host key that is
// not to be trusted. Every attempt is told in the report.
Outcome Collect(Context& run);
Outcome Check(Context& run);

}  // namespace Kemffdc::Auto

#endif
