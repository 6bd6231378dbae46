// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TREE_COLLECT_H
#define KEMFFDC_REDFISH_TREE_COLLECT_H

#include "cli/ExitCodes.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Redfish {

// Everything that can be read of a Redfish service, as one archive of the tool's own making
// (docs/redfish-operations.md). The preflight has been made: the service answers, takes the
// credentials, and its facts stand in the report. Opens a session, reads, closes it, delivers. What
// is read when a bound is reached, or when the BMC answers no more, is delivered too, with
// kIncomplete.
Outcome CollectTree(Context& run);

}  // namespace Kemffdc::Redfish

#endif
