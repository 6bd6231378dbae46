// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HELP_H
#define KEMFFDC_HELP_H

#include <string>
#include <vector>

#include "cli/Commands.h"

namespace Kemffdc {

// Texts for standard output, made from the tables of commands, channels and options. No line is
// longer than 80 columns, and the two short ones fit a screen of 24 lines.
std::string Help();                                  // kemffdc --help
std::string ShortHelp(const CommandEntry& command);  // kemffdc COMMAND --help
std::string FamilyHelp(const std::string& family);   // kemffdc fleet --help, kemffdc help fleet
std::string LongHelp(const CommandEntry& command);   // kemffdc help COMMAND

// The same in pieces, for the manual. "kemffdc collect HOST", "--port N", what stands behind that,
// and "Download (redfish, ipmi, kcs)".
std::string Synopsis(const CommandEntry& command);
std::string OptionName(const Option& option);
std::string OptionMeaning(const Option& option);
std::string GroupTitle(const OptionGroup& group);

// What else `kemffdc help` knows: "exit-codes" and others.
std::vector<std::string> HelpTopics();
std::string HelpOnTopic(const std::string& topic);  // empty for one that there is not

}  // namespace Kemffdc

#endif
