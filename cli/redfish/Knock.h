// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_KNOCK_H
#define KEMFFDC_REDFISH_KNOCK_H

#include "cli/ExitCodes.h"
#include "cli/Options.h"

namespace Kemffdc::Redfish {

// Channel::knock: asks for the service root, which anybody may read (DSP0266). A BMC that is still
// starting answers.
Outcome Knock(const Options& options);

}  // namespace Kemffdc::Redfish

#endif
