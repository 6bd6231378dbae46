// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETRUN_H
#define KEMFFDC_COMMANDS_FLEETRUN_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// `fleet collect` and `fleet check`: works on all BMCs that the options choose, and returns the
// exit code of the whole (ExitCodes.h). Everything that can be refused is refused before the first
// BMC is asked anything: the inventory, passwords, the folder, what the machine has for so many.
int RunFleet(const Options& options, std::ostream& out, std::ostream& err);

// `fleet resume`: goes on with an earlier run, by the journal alone; without a run, with the newest
// one that has not ended well.
int ResumeFleet(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
