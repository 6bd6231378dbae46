// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDLINE_H
#define KEMFFDC_COMMANDLINE_H

#include <optional>
#include <string>

#include "cli/Options.h"
#include "cli/Settle.h"

namespace Kemffdc {

// Either options to run with, or the text and the exit code to end with at once.
struct Parsed {
    std::optional<Options> options;
    bool asksForVersion = false;  // VersionText() is the answer
    int exitCode = 0;
    Outcome fault;    // what is wrong with the line; none where it asks for help
    std::string out;  // for standard output: a JSON object where the line asks for JSON
    std::string err;  // for standard error; never holds the value of an unknown option
};

// Touches nothing but its arguments, what `surroundings` names and the clock: no terminal, no
// network library.
Parsed ParseOptions(int argc, const char* const* argv, const Surroundings& surroundings = {});

// How a run ends that cannot begin: the text, and the object for standard output.
Parsed FaultOf(const Outcome& outcome);

}  // namespace Kemffdc

#endif
