// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_CHANNEL_H
#define KEMFFDC_IPMI_CHANNEL_H

#include "cli/Channel.h"

namespace Kemffdc::Ipmi {

extern const Channel kLanChannel;  // "ipmi": a BMC over the LAN
extern const Channel kKcsChannel;  // "kcs": the BMC of this machine, in band

}  // namespace Kemffdc::Ipmi

#endif
