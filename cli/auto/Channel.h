// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_AUTO_CHANNEL_H
#define KEMFFDC_AUTO_CHANNEL_H

#include "cli/Channel.h"

namespace Kemffdc::Auto {

// The first channel that answers and can export, in the order of Candidates().
extern const Channel kChannel;

}  // namespace Kemffdc::Auto

#endif
