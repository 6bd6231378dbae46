// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_LOGSERVICES_H
#define KEMFFDC_REDFISH_STANDARD_LOGSERVICES_H

#include <boost/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/redfish/standard/Walk.h"

namespace Kemffdc::Redfish {

// A log service that offers LogService.CollectDiagnosticData (DSP0268, schema LogService). Paths
// are on the same service; the other texts are fit for display.
struct LogService {
    std::string path;
    std::string name;                               // its Id
    std::string target;                             // of the action
    std::string entries;                            // where collected data is entered; may be empty
    std::optional<std::vector<std::string>> types;  // DiagnosticDataType; none: it does not tell
    std::vector<std::string> oemTypes;              // OEMDiagnosticDataType
};

struct LogServices {
    std::vector<LogService> found;  // those of managers first, then of systems and of chassis
    std::string gap;                // why not all could be looked at (Walk::Gap)
};

// Those below the managers, systems and chassis that the service root names.
LogServices FindLogServices(Walk& walk, const boost::json::object& root);

// "/redfish/v1/Managers/1/LogServices/Dump: Manager, OEM (Everything, Registers)"
std::string Described(const LogService& service);

}  // namespace Kemffdc::Redfish

#endif
