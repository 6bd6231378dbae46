// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_CHANNEL_H
#define KEMFFDC_CIM_CHANNEL_H

#include "cli/Channel.h"

namespace Kemffdc::Cim {

extern const Channel kChannel;

}  // namespace Kemffdc::Cim

#endif
