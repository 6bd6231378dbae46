// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_KNOCK_H
#define KEMFFDC_IPMI_KNOCK_H

#include "cli/ExitCodes.h"
#include "cli/Options.h"

namespace Kemffdc::Ipmi {

// Channel::knock: asks for the authentication capabilities of the BMC's LAN channel, the request
// with which every session begins (IPMI v2.0, sections 13.2 and 22.13).
Outcome Knock(const Options& options);

}  // namespace Kemffdc::Ipmi

#endif
