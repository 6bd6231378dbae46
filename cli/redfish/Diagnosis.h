// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_DIAGNOSIS_H
#define KEMFFDC_REDFISH_DIAGNOSIS_H

#include <chrono>
#include <optional>
#include <string>
#include <system_error>

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/http/Transport.h"
#include "cli/redfish/Events.h"
#include "cli/report/Facts.h"

namespace Kemffdc::Redfish {

// What a step of the Redfish channel has come to, from the library's result and what the library
// logged meanwhile. Pure functions. Reasons are fit for display.

// Of the constructor, which has taken the time `waited`: the service must have answered, or the
// rest is in vain.
Outcome DiagnoseStart(const Events& events, std::chrono::seconds waited);

// Of a BMC that is asked by the tool alone, and has not got ready.
Outcome DiagnoseStarting();

Outcome DiagnoseConnect(int code, const Events& events);

// `thrown`: text of the exception that left Apply; empty where none did.
Outcome DiagnoseExport(int code, const std::string& thrown, const Events& events);

// How the wait for the task has ended.
struct Waited {
    bool exists = false;         // the library's word: it is completed
    std::string path;            // of the archive
    int asked = 0;               // how often the library asked for the task
    std::optional<Task> task{};  // as the BMC shows it afterwards, where it was asked
};
Outcome DiagnoseWait(const Waited& waited, const Events& events, const Options& options);

// Of a task that the tool follows by itself: whether it has ended badly (DSP0268, TaskState). Well
// also where it is completed, or goes on.
Outcome DiagnoseTask(const Task& task);
// Where it was asked for, and the BMC has not answered with it.
Outcome DiagnoseLostTask(const Answer& answer);

// How a download has ended.
struct Downloaded {
    int code = 0;                 // the library's
    std::error_code error{};      // of the transfer; none where it never began
    std::string errorText{};      // to it
    bool lowerCaseNames = false;  // so header names come from this BMC, or from something before it
};
Outcome DiagnoseDownload(const Downloaded& downloaded, const Events& events);

}  // namespace Kemffdc::Redfish

#endif
