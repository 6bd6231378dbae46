// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Options.h"

namespace Kemffdc::Redfish {

const OptionGroup& OwnOptions() {
    static const OptionGroup group{
        "Gathering",
        {{"--log", "KIND", "Which service data to gather: mini, the logs alone, or full",
          Choice(&ChannelOptions::miniLog, {{"mini", true}, {"full", false}}), Where::kAnyhow,
          Use::kGather, true},
         {"--tries", "N", "How often to ask whether the BMC is done",
          Number(&ChannelOptions::tries, 1, 1000000), Where::kAnyhow, Use::kGather},
         {"--interval", "SECONDS", "Seconds between two questions",
          Number(&ChannelOptions::interval, 0, 86400), Where::kAnyhow, Use::kGather}}};
    return group;
}

}  // namespace Kemffdc::Redfish
