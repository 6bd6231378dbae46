// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_DIAGNOSIS_H
#define KEMFFDC_REDFISH_STANDARD_DIAGNOSIS_H

#include <cstdint>
#include <optional>
#include <string>

#include "cli/ExitCodes.h"
#include "cli/http/Transport.h"
#include "cli/redfish/Reference.h"
#include "cli/redfish/standard/Entries.h"
#include "cli/redfish/standard/Reply.h"
#include "cli/redfish/standard/Selection.h"
#include "cli/report/Facts.h"

namespace Kemffdc::Redfish {

// What a step of the standard's action has come to. Pure functions. Reasons are fit for display.

// Of the request for the collection.
Outcome DiagnoseRequest(const Answer& answer, const Reply& reply, const Collection& wanted);

// Of a task monitor that has ended with an error; `task`: what it says besides.
Outcome DiagnoseError(const Answer& answer, const std::optional<Task>& task);

// Of an entry that names no data: older services say elsewhere where it is, in a form of their own.
Outcome DiagnoseNoData(const LogEntry& entry);

// Of where the data lies: on this service, and where it can be asked for.
Outcome DiagnosePlace(const LogEntry& entry, const Reference& place);

// What is wrong with what has come, as it follows "the archive"; empty: it is as announced.
std::string Difference(const LogEntry& entry, const std::string& digest, std::uint64_t size,
                       const std::string& sha256);

}  // namespace Kemffdc::Redfish

#endif
