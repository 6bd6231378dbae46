// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_RESUME_H
#define KEMFFDC_COMMANDS_RESUME_H

#include "cli/ExitCodes.h"
#include "cli/Line.h"
#include "cli/Options.h"

namespace Kemffdc {

// Puts a run of the history in the place of its number: its BMC becomes the argument, and what was
// said about that run stands on the line where the line says nothing. kUsage where it cannot be
// gone on with, and kLocalFile where the history cannot be read.
Outcome RecallRun(Line& line, Options& options);

}  // namespace Kemffdc

#endif
