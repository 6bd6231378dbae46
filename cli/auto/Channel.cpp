// SPDX-License-Identifier: Apache-2.0
#include "cli/auto/Channel.h"

#include <algorithm>

#include "cli/CommonOptions.h"
#include "cli/auto/Flow.h"
#include "cli/auto/Search.h"
#include "cli/report/Report.h"

namespace Kemffdc::Auto {
namespace {

// Those of all candidates; what the chosen one does not take is not used. A port belongs to one
// channel.
OptionGroups Groups() {
    OptionGroups groups;
    for (const Channel* channel : Candidates()) {
        for (const OptionGroup* group : channel->options()) {
            const bool isNew = std::find(groups.begin(), groups.end(), group) == groups.end();
            if (isNew && group != &PortOptions()) groups.push_back(group);
        }
    }
    return groups;
}

// What is wrong for every candidate is wrong at once.
std::string Complete(Options& options) {
    std::string first;
    for (const Channel* channel : Candidates()) {
        Options settled = options;
        const std::string fault = channel->complete(settled);
        if (fault.empty()) return "";
        if (first.empty()) first = fault;
    }
    return first;
}

void Outline(const Options& /*options*/, Report& report) { report.LeaveWayOpen(); }

}  // namespace

const Channel kChannel{"auto",
                       "The first of redfish, ipmi and cim that answers and can export",
                       Channel::Host::kRequired,
                       Groups,
                       Complete,
                       Outline,
                       nullptr,
                       Collect,
                       Check};

}  // namespace Kemffdc::Auto
