// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIMVERDICT_H
#define KEMFFDC_CIMVERDICT_H

#include <string>

#include "CimRecords.h"
#include "ExitCodes.h"

namespace Kemffdc {

// What a step of the CIM channel has come to, from the library's result and what the library logged
// meanwhile. Pure functions. Reasons are fit for display.

Outcome JudgeCimConnect(int code, const CimAccount& account);

// Of the whole export. Exporting nothing is no success to the tool, unlike to the library: there is
// no archive at the export URI then.
Outcome JudgeCimExport(int code, const CimAccount& account);

}  // namespace Kemffdc

#endif
