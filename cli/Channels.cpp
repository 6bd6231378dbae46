// SPDX-License-Identifier: Apache-2.0
#include "Channels.h"

#include "CimFlow.h"
#include "IpmiFlow.h"
#include "RedfishFlow.h"

namespace Kemffdc {
namespace {

constexpr Channel kChannels[] = {
    {"redfish", 443, 0, CollectByRedfish, CheckByRedfish},
    {"cim", 5989, 5988, CollectByCim, CheckByCim},
    {"ipmi", 623, 0, CollectByIpmi, CheckByIpmi},
    {"kcs", 0, 0, CollectByIpmi, CheckByIpmi},
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
