// SPDX-License-Identifier: Apache-2.0
#include "cli/Channels.h"

#include "cli/cim/Flow.h"
#include "cli/ipmi/Flow.h"
#include "cli/redfish/Flow.h"

namespace Kemffdc {
namespace {

constexpr Channel kChannels[] = {
    {"redfish", 443, 0, Redfish::Collect, Redfish::Check},
    {"cim", 5989, 5988, Cim::Collect, Cim::Check},
    {"ipmi", 623, 0, Ipmi::Collect, Ipmi::Check},
    {"kcs", 0, 0, Ipmi::Collect, Ipmi::Check},
};

}  // namespace

const Channel* FindChannel(const std::string& name) {
    for (const Channel& channel : kChannels) {
        if (name == channel.name) return &channel;
    }
    return nullptr;
}

std::vector<std::string> ChannelNames() {
    std::vector<std::string> names;
    for (const Channel& channel : kChannels) names.emplace_back(channel.name);
    return names;
}

}  // namespace Kemffdc
