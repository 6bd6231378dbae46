// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONFIG_CONFIGFILE_H
#define KEMFFDC_CONFIG_CONFIGFILE_H

#include <map>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/config/Members.h"

namespace Kemffdc::Config {

struct Section {
    std::string patterns;  // separated by blanks; empty: the defaults
    Values values;
};

// One kemffdc.conf, in the order of the file but for the defaults, which stand first.
struct File {
    std::string path;
    bool exists = false;
    std::vector<Section> sections;
};

// Reads a file of YAML 1.2: `defaults:` with members, and `hosts:` with host patterns, each with
// members. A file that does not exist is no failure.
// kUsage: something is wrong in it; "FILE:LINE: MEMBER: what". Nothing of it can be used then, also
// where what is wrong does not concern the host. The text holds no value of an unknown member.
// kLocalFile: it cannot be read, is larger than 1 MiB, or holds a command and is not safe from
// others.
// `home` replaces "~"; where it is empty such paths are refused.
Outcome Read(const std::string& path, const std::string& home, const std::vector<Member>& members,
             File& file);

// What the file says for a host (without brackets; empty: this machine's own BMC), by member. Of
// several sections that match the later one counts, member by member; the defaults come first.
std::map<std::string, Value> Holding(const File& file, const std::vector<Member>& members,
                                     const std::string& host);

// Whether one of the patterns, separated by blanks, matches: "*" any letters, "?" one, "[abc]" one
// of these; without regard to case, as host names are.
bool Matches(const std::string& patterns, const std::string& host);

}  // namespace Kemffdc::Config

#endif
