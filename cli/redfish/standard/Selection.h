// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_SELECTION_H
#define KEMFFDC_REDFISH_STANDARD_SELECTION_H

#include <string>
#include <vector>

#include "cli/redfish/Options.h"
#include "cli/redfish/standard/LogServices.h"

namespace Kemffdc::Redfish {

// What is to be asked of a log service.
struct Collection {
    LogService service;
    std::string type;     // DiagnosticDataType
    std::string oemType;  // OEMDiagnosticDataType; empty unless the type is OEM
};

struct Selection {
    std::vector<Collection> collections;  // in the order in which they are taken
    std::string fault;                    // why there are none: a whole sentence, fit for display
    std::string note;  // what the operator should know of the choice; may be empty
};

// Which data is to be collected, of what the services offer. Named by place, type or OEM type, that
// is taken; else the first that is offered of
//   full: OEM (its first OEM type), Manager, OS, PreOS, any other
//   mini: Manager, PreOS, OS, any other, OEM
// from the first service that offers it. A service that does not tell is taken to offer Manager,
// and what is named. With allTypes: each type of each service that fits. Pure.
Selection Select(const LogServices& services, const ChannelOptions& wishes);

}  // namespace Kemffdc::Redfish

#endif
