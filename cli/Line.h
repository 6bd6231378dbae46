// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_LINE_H
#define KEMFFDC_LINE_H

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Kemffdc {

// The command line, taken apart: nothing of it is understood yet.
struct Line {
    std::map<std::string, std::string> options;  // by name; a flag's text is "true" or "false"
    std::optional<std::string> argument;
    std::vector<std::string> more;  // arguments behind it, where the command takes several
};

}  // namespace Kemffdc

#endif
