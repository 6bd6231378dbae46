// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_RUN_H
#define KEMFFDC_RUN_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Carries out what `options` say and returns the exit code. Results go to `out`, progress and
// reasons to `err`; with options.events results go to the process's standard output. Blocks for as
// long as the BMC takes, but not beyond options.deadline; that and the signals of Interrupt.h end
// the process from within. Changes the process: those signals stay blocked; the variables that hold
// passwords, and with noProxy those that name proxies, are removed from its environment; the
// library's log is set up.
int Run(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
