// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_DIAGNOSIS_H
#define KEMFFDC_CIM_DIAGNOSIS_H

#include <string>

#include "cli/ExitCodes.h"
#include "cli/cim/Events.h"

namespace Kemffdc::Cim {

// What a step of the CIM channel has come to, from the library's result and what the library logged
// meanwhile. Pure functions. Reasons are fit for display.

Outcome DiagnoseConnect(int code, const RunEvents& events);

// Of the whole export. Exporting nothing is no success to the tool, unlike to the library: there is
// no archive at the export URI then.
Outcome DiagnoseExport(int code, const RunEvents& events);

}  // namespace Kemffdc::Cim

#endif
