// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_H
#define KEMFFDC_COMMANDS_H

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/Line.h"
#include "cli/OptionTable.h"

namespace Kemffdc {

// One command of the tool: all that parsing, help and main know of it. A further command is a file
// in commands/ and an entry in Commands.cpp.
struct CommandEntry {
    enum class Argument { kNone, kOptional, kRequired, kSeveral };

    // What it works on. Commands on BMCs take --via and the options of channels too.
    enum class On {
        kBmc,     // one: its channel decides on HOST
        kFleet,   // many: those options count for each that they fit (SettleFleet.h)
        kMember,  // one of these
        kRecord,  // what earlier runs have left
    };

    Command command;
    const char* name;   // "collect"; of two words where it is about fleets: "fleet hosts"
    const char* brief;  // for help

    const char* argument;    // its name in help, "HOST"; empty: there is none
    Argument takesArgument;  // kRequired, on a BMC: unless the channel needs none; kSeveral: one
                             // at least, and `take` is called for each
    // What is wrong with the text, as it follows the argument's name; empty: it has been taken.
    std::string (*take)(const std::string& text, Options& options);

    On on;
    Use use;                    // kGather: all options of BMCs; kReach: only those of that use
    OptionGroups (*options)();  // the others

    // Blocks for as long as the work takes; returns the exit code. Results go to `out`, progress
    // and reasons to `err`.
    int (*run)(const Options& options, std::ostream& out, std::ostream& err);

    const char* examples;  // for `help COMMAND`

    // Puts what the argument stands for in its place, before anything is settled; null: it stands
    // for itself.
    Outcome (*recall)(Line& line, Options& options) = nullptr;
};

const std::vector<CommandEntry>& Commands();               // in the order of help
const CommandEntry* FindCommand(const std::string& name);  // null for a name that no command has
const CommandEntry& EntryOf(Command command);
// The first word of a name of two; empty for a name of one.
std::string FamilyOf(const CommandEntry& command);

bool IsOnOneBmc(const CommandEntry& command);

// The options of the command whatever the channel is, and those that it has with any channel: each
// group once, in the order of help.
OptionGroups OwnGroups(const CommandEntry& command);
OptionGroups AllGroups(const CommandEntry& command);
// Whether it is of the command's use.
bool TakesOption(const CommandEntry& command, const Option& option);
// What the command knows on the line, by name and by letter.
std::map<std::string, const Option*> LineOptions(const CommandEntry& command);

// `take` of commands whose argument is a BMC: its name or address, also in brackets, into
// options.host.
std::string TakeHost(const std::string& text, Options& options);

}  // namespace Kemffdc

#endif
