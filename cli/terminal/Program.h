// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_PROGRAM_H
#define KEMFFDC_TERMINAL_PROGRAM_H

#include <chrono>
#include <string>
#include <vector>

namespace Kemffdc {

// Programs that the operator has named: `words` are the program, searched in $PATH, and its
// arguments. No shell takes part, so nothing in them has a meaning of its own.
//
// A program has nothing to read (/dev/null), this process's standard error and terminal to speak
// and ask with, and its environment without the variables that hold passwords. It is killed where
// it has not ended within `limit`; what it has left running is not waited for. Both return what was
// wrong, as it follows the program's name (" ended with exit code 1."), and block for `limit` at
// most. One program at a time.

// Runs a program; what it prints goes to this process's standard error. Empty: it has ended well.
std::string RunProgram(const std::vector<std::string>& words, std::chrono::milliseconds limit);

// Runs a program and takes what it prints on its standard output. It is killed where that is more
// than `most` bytes. Empty: `printed` has it all, in one piece of memory that has never moved.
std::string TakeOutput(const std::vector<std::string>& words, std::size_t most,
                       std::chrono::milliseconds limit, std::string& printed);

// Kills the program that is running, if there is one: for a process that ends meanwhile. Any
// thread, any time.
void KillProgram();

}  // namespace Kemffdc

#endif
