// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_OPTIONS_H
#define KEMFFDC_IPMI_OPTIONS_H

#include <cstdint>

#include "cli/OptionTable.h"

namespace Kemffdc::Ipmi {

// The mode in which the BMC hands out an account over the open session; in others it comes in band.
constexpr int kAccountOverSession = 2;

// What only these channels have.
struct ChannelOptions {
    bool inBand = false;             // this machine's own BMC, through its KCS interface
    std::uint16_t cipherSuite = 17;  // of the session over the LAN
    int mode = kAccountOverSession;  // which account and which files; the library's own number
};

inline const ChannelOptions& Own(const Options& options) { return Part<ChannelOptions>(options); }

const OptionGroup& LanOptions();     // of sessions over the LAN
const OptionGroup& GatherOptions();  // of both

}  // namespace Kemffdc::Ipmi

#endif
