// SPDX-License-Identifier: Apache-2.0
#include "cli/Channels.h"

#include <algorithm>

#include "cli/auto/Channel.h"
#include "cli/cim/Channel.h"
#include "cli/history/BmcName.h"
#include "cli/ipmi/Channel.h"
#include "cli/redfish/Channel.h"

namespace Kemffdc {

const std::vector<const Channel*>& Channels() {
    static const std::vector<const Channel*> channels{&Auto::kChannel, &Redfish::kChannel,
                                                      &Cim::kChannel, &Ipmi::kLanChannel,
                                                      &Ipmi::kKcsChannel};
    return channels;
}

const Channel* DefaultChannel() { return &Auto::kChannel; }

const Channel* FindChannel(const std::string& name) {
    for (const Channel* channel : Channels()) {
        if (name == channel->name) return channel;
    }
    return nullptr;
}

std::vector<std::string> ChannelNames() {
    std::vector<std::string> names;
    for (const Channel* channel : Channels()) names.emplace_back(channel->name);
    return names;
}

std::string BmcOf(const Options& options) {
    const Channel* const way = FindChannel(options.via);
    const bool inBand = way != nullptr && way->host == Channel::Host::kOptional;
    if (options.host.empty() || inBand) return "this machine";
    // A run that is to find its way ends at a port that BMCs have by themselves.
    if (options.port == 0) return History::SameHost(options.host);
    for (const Channel* channel : Channels()) {
        Options usual = options;
        usual.port = 0;
        (void)channel->complete(usual);
        if (usual.port == options.port) return History::SameHost(options.host);
    }
    return History::SameBmc(options.host, options.port);
}

std::vector<std::string> TakersOf(const OptionGroup& group) {
    std::vector<std::string> takers;
    for (const Channel* channel : Channels()) {
        const OptionGroups groups = channel->options();
        const bool takes = std::find(groups.begin(), groups.end(), &group) != groups.end();
        if (takes && channel != DefaultChannel()) takers.emplace_back(channel->name);
    }
    return takers;
}

}  // namespace Kemffdc
