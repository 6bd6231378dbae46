// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_CHANNEL_H
#define KEMFFDC_REDFISH_CHANNEL_H

#include "cli/Channel.h"

namespace Kemffdc::Redfish {

extern const Channel kChannel;

// The same with one operation alone (Operation.h), for who tries other channels in between. Their
// `complete` refuses options that ask for another one.
extern const Channel kOemChannel;
extern const Channel kStandardChannel;
extern const Channel kTreeChannel;

}  // namespace Kemffdc::Redfish

#endif
