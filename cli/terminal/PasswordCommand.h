// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_PASSWORDCOMMAND_H
#define KEMFFDC_TERMINAL_PASSWORDCOMMAND_H

#include <chrono>
#include <string>
#include <vector>

namespace Kemffdc {

// Runs a program and takes what it prints on its standard output: `words` are the program, searched
// in $PATH, and its arguments. No shell takes part, so nothing in them has a meaning of its own.
//
// The program has nothing to read (/dev/null), this process's standard error and terminal to speak
// and ask with, and its environment without the variables that hold passwords.
// It is killed where it has not ended within `limit`, or prints more than `most` bytes; what it
// has left running is not waited for.
//
// Returns why there is nothing to take, as it follows the program's name (" ended with exit code
// 1."); empty: `printed` has it all, in one piece of memory that has never moved. Blocks for
// `limit` at most.
std::string RunPasswordCommand(const std::vector<std::string>& words, std::size_t most,
                               std::chrono::milliseconds limit, std::string& printed);

// Kills the program that is running, if there is one: for a process that ends meanwhile. Any
// thread, any time.
void KillPasswordCommand();

}  // namespace Kemffdc

#endif
