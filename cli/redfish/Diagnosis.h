// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_DIAGNOSIS_H
#define KEMFFDC_REDFISH_DIAGNOSIS_H

#include <chrono>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/redfish/Events.h"

namespace Kemffdc::Redfish {

// What a step of the Redfish channel has come to, from the library's result and what the library
// logged meanwhile. Pure functions. Reasons are fit for display.

// Of the constructor, which has taken the time `waited`: the service must have answered, or the
// rest is in vain.
Outcome DiagnoseStart(const std::vector<Event>& events, std::chrono::seconds waited);

Outcome DiagnoseConnect(int code, const std::vector<Event>& events);

// `thrown`: text of the exception that left Apply; empty where none did.
Outcome DiagnoseExport(int code, const std::string& thrown, const std::vector<Event>& events);

// `asked`: how often the library asked for the task.
Outcome DiagnoseWait(bool exists, const std::string& path, const std::vector<Event>& events,
                     const Options& options, int asked);

// `lowerCaseNames`: header names come so from this BMC, or from something before it.
Outcome DiagnoseDownload(int code, const std::vector<Event>& events, bool lowerCaseNames);

}  // namespace Kemffdc::Redfish

#endif
