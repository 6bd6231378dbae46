// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CHANNELS_H
#define KEMFFDC_CHANNELS_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"

namespace Kemffdc {

struct Context;

// One way to a BMC, as --via names it. A further channel is a folder with these two
// operations and a line in Channels.cpp.
struct Channel {
    const char* name;
    std::uint16_t defaultPort;         // 0: the channel has none, and no HOST
    std::uint16_t plainPort;           // with --plain; 0: the channel has no such option
    Outcome (*collect)(Context& run);  // gathers, and delivers the archive
    Outcome (*check)(Context& run);    // finds out whether collect would get as far as gathering
};

const Channel* FindChannel(const std::string& name);  // null for a name that no channel has
std::vector<std::string> ChannelNames();

}  // namespace Kemffdc

#endif
