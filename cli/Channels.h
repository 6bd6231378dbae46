// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CHANNELS_H
#define KEMFFDC_CHANNELS_H

#include <string>
#include <vector>

#include "cli/Channel.h"

namespace Kemffdc {

// All there are, in the order in which help names them.
const std::vector<const Channel*>& Channels();

const Channel* FindChannel(const std::string& name);  // null for a name that no channel has
std::vector<std::string> ChannelNames();

// The channels that take the group; the default one takes what the others take.
std::vector<std::string> TakersOf(const OptionGroup& group);

// The BMC's name, the same for every run on it, whatever way it takes: its host alone, where the
// port is one that BMCs have by themselves. Another port may lead to another machine behind the
// same address.
std::string BmcOf(const Options& options);

// The channel of a run that names none.
const Channel* DefaultChannel();

}  // namespace Kemffdc

#endif
