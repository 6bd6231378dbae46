// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_OPTIONS_H
#define KEMFFDC_REDFISH_OPTIONS_H

#include "cli/OptionTable.h"
#include "cli/redfish/Operation.h"

namespace Kemffdc::Redfish {

// What only this channel has.
struct ChannelOptions {
    Operation operation = Operation::kAuto;

    // Of the standard's action; empty: the tool chooses (standard/Selection.h).
    std::string diagnosticType;
    std::string oemType;
    std::string logService;    // path of a log service
    bool allTypes = false;     // each that is offered, one after the other
    bool deleteAfter = false;  // what was fetched is deleted on the BMC

    bool miniLog = false;  // the logs alone
    int tries = 120;       // questions for the task's state
    int interval = 5;      // seconds between them
};

inline const ChannelOptions& Own(const Options& options) { return Part<ChannelOptions>(options); }

const OptionGroup& OwnOptions();
const OptionGroup& OperationOptions();

}  // namespace Kemffdc::Redfish

#endif
