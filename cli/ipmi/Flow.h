// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_FLOW_H
#define KEMFFDC_IPMI_FLOW_H

#include "cli/ExitCodes.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Ipmi {

// Service data by IPMI, over the LAN or in band: connect, make the BMC gather, fetch its files by
// SFTP into a folder of their own. One call of the library does it all, so what became of it is
// judged by the records and transfers meanwhile.
Outcome Collect(Context& run);

// Connects, and tells what the BMC is and whether its file service answers; gathers nothing.
Outcome Check(Context& run);

}  // namespace Kemffdc::Ipmi

#endif
