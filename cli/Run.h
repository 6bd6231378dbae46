// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_RUN_H
#define KEMFFDC_RUN_H

#include <iosfwd>

#include "cli/Options.h"
#include "cli/TurnGate.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc {

// Carries out what `options` say and returns the exit code. Results go to `out`, progress and
// reasons to `err`; with options.events results go to the process's standard output. Blocks for as
// long as the BMC takes, but not beyond options.deadline; that and the signals of Interrupt.h end
// the process from within. Changes the process: those signals stay blocked; the variables that hold
// passwords, and with noProxy those that name proxies, are removed from its environment; the
// library's log is set up.
int Run(const Options& options, std::ostream& out, std::ostream& err);

// Passwords that are there already; empty: none.
struct GivenPasswords {
    Secret password;        // of options.user, on the BMC
    Secret exportPassword;  // of options.exportUser, on the file store
};

// The same as an attempt of a fleet run (options.attempt), where nobody is asked for a password.
// `turns`: what a download waits for; null: for nothing. It outlives the call.
int RunAttempt(const Options& options, GivenPasswords passwords, TurnGate* turns, std::ostream& out,
               std::ostream& err);

}  // namespace Kemffdc

#endif
