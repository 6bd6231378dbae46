// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMPLETION_H
#define KEMFFDC_COMPLETION_H

#include <string>
#include <vector>

#include "cli/Settle.h"

namespace Kemffdc {

// What a shell may put in place of a command line's last word.
struct Candidates {
    struct Candidate {
        std::string text;
        std::string meaning;  // may be empty
    };
    enum class Paths { kNone, kFolders, kFiles };

    std::vector<Candidate> texts;
    Paths paths = Paths::kNone;  // the shell's own list of them fits as well
};

// `words` follow the program's name; the last one, perhaps empty, is still being written. Commands,
// options and their values come from the tables that parsing works with; hosts and runs from the
// history, hosts also from the files that `surroundings` names. What cannot be read gives nothing:
// a shell has no place for reasons. Blocks for as long as the history does (Store.h).
Candidates Complete(const std::vector<std::string>& words, const Surroundings& surroundings);

// As the shells' scripts read them: a line each, a tab before the meaning; ":files" or ":folders"
// as the last one.
std::string Printed(const Candidates& candidates);

}  // namespace Kemffdc

#endif
