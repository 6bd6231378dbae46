// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_KNOCK_H
#define KEMFFDC_CIM_KNOCK_H

#include "cli/ExitCodes.h"
#include "cli/Options.h"

namespace Kemffdc::Cim {

// Channel::knock: enumerates the service class without credentials, which servers ask for then.
Outcome Knock(const Options& options);

}  // namespace Kemffdc::Cim

#endif
