// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_CHANNEL_H
#define KEMFFDC_REDFISH_CHANNEL_H

#include "cli/Channel.h"

namespace Kemffdc::Redfish {

extern const Channel kChannel;

}  // namespace Kemffdc::Redfish

#endif
