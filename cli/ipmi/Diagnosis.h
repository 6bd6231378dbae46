// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_DIAGNOSIS_H
#define KEMFFDC_IPMI_DIAGNOSIS_H

#include "cli/ExitCodes.h"
#include "cli/Options.h"
#include "cli/ipmi/Events.h"
#include "cli/ipmi/Preflight.h"

namespace Kemffdc::Ipmi {

// What a step of the IPMI channel has come to, from the library's result and what the library
// logged and transferred meanwhile. Pure functions. Reasons are fit for display.

// Unlike over Redfish, the library's Connect knows whether there is a session.
Outcome DiagnoseConnect(int code, const RunEvents& events, const Options& options);

// In band, for a device behind which no BMC answers.
Outcome DiagnoseSilentBmc(const std::string& silence);

// Of the look at the file service before anything is gathered. kLimited where its files could not
// be fetched, kNotConnected where it is not the one that is known.
Outcome DiagnoseFileService(const FileService& found, const std::string& host,
                            const RunEvents& events);

// "Passed over: a is a folder of the BMC." Empty where there is none.
std::string FoldersPassedOver(const RunEvents& events);

// Of the whole run. The library goes on where the BMC refuses to gather, cannot be asked whether it
// is done, or is not done in time: files that come then may be old or unfinished, so the run is no
// success to the tool, though they are kept. What went wrong first decides the exit code, but for a
// lost connection and trouble on this machine, which decide it always.
Outcome DiagnoseCollect(int code, const RunEvents& events, const Options& options);

// Of archives that were fetched and cannot be read to their end.
Outcome DiagnoseUnreadable(const RunEvents& events);

}  // namespace Kemffdc::Ipmi

#endif
