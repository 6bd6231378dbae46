// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Options.h"

namespace Kemffdc::Redfish {

const OptionGroup& OperationOptions() {
    static const OptionGroup group{
        "Operation",
        {{"--operation", "HOW",
          "The BMC's own export (oem), the standard's action (standard), all that can be read "
          "(tree), or the first of them that it has (auto)",
          Choice(&ChannelOptions::operation, {{"auto", Operation::kAuto},
                                              {"oem", Operation::kOem},
                                              {"standard", Operation::kStandard},
                                              {"tree", Operation::kTree}}),
          Where::kAnyhow}}};
    return group;
}

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
