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
          Where::kAnyhow},
         {"--diagnostic-type", "TYPE",
          "standard: the type of data to collect, Manager, PreOS, OS, OEM, CPER ...",
          Text(&ChannelOptions::diagnosticType), Where::kAnyhow},
         {"--oem-type", "NAME", "standard: the OEM's type of data to collect",
          Text(&ChannelOptions::oemType), Where::kAnyhow},
         {"--log-service", "PATH", "standard: the log service that is to collect",
          Text(&ChannelOptions::logService), Where::kAnyhow},
         {"--all-types", "", "standard: collect each type that is offered, one after the other",
          Flag(&ChannelOptions::allTypes), Where::kAnyhow},
         {"--delete-after", "", "standard: delete on the BMC what was fetched",
          Flag(&ChannelOptions::deleteAfter), Where::kAnyhow, Use::kGather}}};
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
