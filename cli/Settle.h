// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_SETTLE_H
#define KEMFFDC_SETTLE_H

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "cli/Commands.h"

namespace Kemffdc {

// The command line, taken apart: nothing of it is understood yet.
struct Line {
    std::map<std::string, std::string> options;  // by name; a flag's text is "true" or "false"
    std::optional<std::string> argument;
};

// Where else options come from. By default nowhere.
struct Surroundings {
    // Of the environment; null where it is not set.
    std::function<const char*(const char* name)> variable = [](const char* /*name*/) {
        return static_cast<const char*>(nullptr);
    };
};

// Fills `options` with what holds: of each option what the command line says, else the environment,
// else what is so by default. Returns what is wrong, a whole sentence for the operator; empty: all
// is well. Reads nothing but its arguments.
std::string Settle(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
                   Options& options);

}  // namespace Kemffdc

#endif
