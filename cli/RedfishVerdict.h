// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISHVERDICT_H
#define KEMFFDC_REDFISHVERDICT_H

#include <chrono>
#include <string>
#include <vector>

#include "ExitCodes.h"
#include "Options.h"
#include "RedfishRecords.h"

namespace Kemffdc {

// What a step of the Redfish channel has come to, from the library's result and what the library
// logged meanwhile. Pure functions. Reasons are fit for display.

// Of the constructor, which has taken the time `waited`: the service must have answered, or the
// rest is in vain.
Outcome JudgeStart(const std::vector<Finding>& findings, std::chrono::seconds waited);

Outcome JudgeConnect(int code, const std::vector<Finding>& findings);

// `thrown`: text of the exception that left Apply; empty where none did.
Outcome JudgeExport(int code, const std::string& thrown, const std::vector<Finding>& findings);

// `asked`: how often the library asked for the task.
Outcome JudgeWait(bool exists, const std::string& path, const std::vector<Finding>& findings,
                  const Options& options, int asked);

// `lowerCaseNames`: header names come so from this BMC, or from something before it.
Outcome JudgeDownload(int code, const std::vector<Finding>& findings, bool lowerCaseNames);

}  // namespace Kemffdc

#endif
