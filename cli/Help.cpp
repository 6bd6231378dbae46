// SPDX-License-Identifier: Apache-2.0
#include "cli/Help.h"

#include <sstream>

#include "cli/Channels.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kOptionColumn = 24;  // where the explanation of an option begins
constexpr std::size_t kNameColumn = 12;    // that of a channel

constexpr char kFleetBrief[] = "Many BMCs at once, out of an inventory";
constexpr char kInventories[] =
    "\n"
    "An inventory is a spreadsheet as CSV, with a column \"name\" and others: address,\n"
    "group, credential, and settings by their names in kemffdc.conf; or YAML:\n"
    "  credentials: accounts.yaml\n"
    "  defaults: {via: redfish, credential: lab}\n"
    "  groups:\n"
    "    rack3:\n"
    "      hosts: bmc[001-040].example\n"
    "Both, and the file of credentials: docs/fleet.md\n";

struct Topic {
    const char* name;
    const char* text;
};

const Topic kTopics[] = {
    {"exit-codes",
     "Exit codes of kemffdc:\n"
     "  0    archive obtained, or left at the export URI; ipmi, kcs: all files\n"
     "       obtained; check: the BMC can be used\n"
     "  2    usage, also in kemffdc.conf; no password\n"
     "  3    could not connect or authenticate; certificate or host key not trusted\n"
     "  4    the BMC refused the export or to gather, or an export failed\n"
     "  5    the task failed, was killed or ended in an unknown state\n"
     "  6    not finished within the tries or the --deadline; ipmi and kcs: within\n"
     "       900 seconds\n"
     "  7    download failed, or it was larger than --max-size\n"
     "  8    local file trouble, or less free than --keep-free\n"
     "  9    some files are missing or do not unpack, the others were obtained;\n"
     "       verify: not as recorded\n"
     "  10   the BMC was reached, but nothing can be gathered this way: nothing was\n"
     "       started\n"
     "  20   fleet: some BMCs did not end well\n"
     "  21   fleet: none did\n"
     "  130  interrupted by Ctrl-C or another signal that asks a process to end\n"
     "\n"
     "By ipmi and kcs, files may have come with 4, 5, 6 and 8 too: old or unfinished\n"
     "ones, perhaps. They are kept, and the reason says so.\n"
     "\n"
     "Results go to standard output, progress and reasons to standard error.\n"},
    {"modes",
     "Modes of ipmi and kcs (--mode):\n"
     "  2      the BMC hands out an account over the open session; all files of\n"
     "         /download/ffdc/\n"
     "  3      the account comes from this machine's own BMC, else --user and the\n"
     "         password hold; files of /download/ffdc/kem_dump/ that end with .tzz\n"
     "  other  as 3, but all files of that folder\n"},
    {"passwords",
     "The BMC's password comes from the first of these that there is:\n"
     "  --password-file FILE                   - is standard input\n"
     "  KEMFFDC_PASSWORD                       in the environment\n"
     "  password_file, password_command        in kemffdc.conf\n"
     "  a prompt                               where there is a terminal\n"
     "The file store's comes from --export-password-file, KEMFFDC_EXPORT_PASSWORD,\n"
     "`export:` in kemffdc.conf, or a prompt if --export-user is given.\n"
     "\n"
     "A password is never the value of an option: other users of this machine could\n"
     "read it.\n"},
    {"configuration",
     "Each setting comes from the first of these that has it:\n"
     "  the command line                   --cipher-suite 3\n"
     "  the environment                    VARNEX_CA_FILE and others\n"
     "  ~/.config/kemffdc/kemffdc.conf     $XDG_CONFIG_HOME/kemffdc/kemffdc.conf\n"
     "  /etc/kemffdc/kemffdc.conf\n"
     "  the default\n"
     "\n"
     "In a file, options stand without dashes in front, with _ between words:\n"
     "  defaults:\n"
     "    user: service\n"
     "    password_file: ~/.bmc-password\n"
     "  hosts:\n"
     "    \"10.1.*\":\n"
     "      via: ipmi\n"
     "      cipher_suite: 3\n"
     "\n"
     "What holds for a BMC, and from where: kemffdc config HOST\n"
     "All members of the files, and all variables of the environment:\n"
     "docs/configuration.md\n"},
};

// The text broken at blanks; every line but the first begins with that many blanks. `column` is
// where the first one begins.
std::string Wrapped(const std::string& text, std::size_t column, std::size_t indent) {
    std::istringstream words(text);
    std::string wrapped;
    std::string word;
    while (words >> word) {
        const bool first = wrapped.empty();
        if (!first && column + 1 + word.size() > kColumns) {
            wrapped += "\n" + std::string(indent, ' ') + word;
            column = indent + word.size();
            continue;
        }
        wrapped += (first ? "" : " ") + word;
        column += (first ? 0 : 1) + word.size();
    }
    return wrapped;
}

// "  --port N      Port of the BMC's service"
std::string Entry(const std::string& name, const std::string& text, std::size_t indent) {
    std::string line = "  " + name;
    if (line.size() + 2 > indent) {
        line += "\n" + std::string(indent, ' ');
    } else {
        line.resize(indent, ' ');
    }
    return line + Wrapped(text, indent, indent) + "\n";
}

// "redfish 443, cim 5989, ipmi 623"
std::string DefaultPorts() {
    std::vector<std::string> ports;
    for (const Channel* channel : Channels()) {
        Options options;
        (void)channel->complete(options);
        if (options.port != 0) {
            ports.push_back(std::string(channel->name) + " " + std::to_string(options.port));
        }
    }
    return Joined(ports, ", ");
}

// What holds without the option.
std::string DefaultOf(const Option& option) {
    if (option.IsFlag()) return "";
    const std::string shown = option.reading.show(Options());
    return std::string(option.name) == "--port" ? DefaultPorts() : shown;
}

std::string OptionEntry(const Option& option) {
    return Entry(OptionName(option), OptionMeaning(option), kOptionColumn);
}

std::string UsageLine(const CommandEntry& command) {
    return "Usage: " + Synopsis(command) + " [OPTION ...]\n" + Wrapped(command.brief, 0, 0) + "\n";
}

std::string ChannelEntries() {
    std::string text;
    for (const Channel* channel : Channels()) {
        text += Entry(channel->name, channel->brief, kNameColumn);
    }
    return text;
}

}  // namespace

std::string Synopsis(const CommandEntry& command) {
    std::string line = std::string("kemffdc ") + command.name;
    if (*command.argument == '\0') return line;
    const std::string argument = command.argument;
    switch (command.takesArgument) {
        case CommandEntry::Argument::kOptional:
            return line + " [" + argument + "]";
        case CommandEntry::Argument::kSeveral:
            return line + " " + argument + "...";
        default:
            return line + " " + argument;
    }
}

std::string OptionName(const Option& option) {
    const std::string letter = option.letter;
    return (letter.empty() ? "" : letter + ", ") + option.name +
           (option.IsFlag() ? "" : std::string(" ") + option.value);
}

std::string OptionMeaning(const Option& option) {
    std::string text = option.brief;
    const std::string preset = DefaultOf(option);
    if (!preset.empty()) text += " [" + preset + "]";
    for (const char* variable : {option.variable, option.secretVariable}) {
        if (*variable != '\0') text += std::string(" [environment: ") + variable + "]";
    }
    return text;
}

std::string GroupTitle(const OptionGroup& group) {
    const std::vector<std::string> takers = TakersOf(group);
    const bool all = takers.empty() || takers.size() == Channels().size();
    return std::string(group.title) + (all ? "" : " (" + Joined(takers, ", ") + ")");
}

std::string Help() {
    std::string text =
        "kemffdc fetches the service data (FFDC) of a server's BMC.\n"
        "Usage: kemffdc COMMAND [HOST] [OPTION ...]\n"
        "\n"
        "Commands:\n";
    for (const CommandEntry& command : Commands()) {
        if (FamilyOf(command).empty()) text += Entry(command.name, command.brief, kNameColumn);
    }
    text += Entry("fleet", kFleetBrief, kNameColumn);
    text += Entry("help", "Help on a command, " + Listed(HelpTopics(), " or "), kNameColumn);
    text += "\nChannels (--via):\n" + ChannelEntries();
    return text +
           "\n"
           "Example: kemffdc collect --via redfish bmc7.example --password-file ~/.bmc7\n"
           "Files and variables that set options: kemffdc help configuration\n";
}

std::string FamilyHelp(const std::string& family) {
    std::string text =
        "Usage: kemffdc " + family + " COMMAND [OPTION ...]\n" + kFleetBrief + "\n\nCommands:\n";
    for (const CommandEntry& command : Commands()) {
        if (FamilyOf(command) != family) continue;
        text +=
            Entry(std::string(command.name).substr(family.size() + 1), command.brief, kNameColumn);
    }
    return text + kInventories + "\nOptions of a command: kemffdc help " + family + " COMMAND\n";
}

std::string ShortHelp(const CommandEntry& command) {
    std::string text = UsageLine(command) + "\nThe usual options:\n";
    const bool fleet = command.on == CommandEntry::On::kFleet;
    for (const OptionGroup* group : fleet ? OwnGroups(command) : AllGroups(command)) {
        for (const Option& option : group->options) {
            if (option.usual && TakesOption(command, option)) text += OptionEntry(option);
        }
    }
    if (fleet) text += "\nOptions of kemffdc collect count for each BMC that they fit.\n";
    return text + "\nAll options, and examples: kemffdc help " + command.name + "\n";
}

std::string LongHelp(const CommandEntry& command) {
    std::string text = UsageLine(command);
    if (command.on != CommandEntry::On::kRecord) text += "\nChannels (--via):\n" + ChannelEntries();
    for (const OptionGroup* group : AllGroups(command)) {
        std::string entries;
        for (const Option& option : group->options) {
            if (option.OnLine() && TakesOption(command, option)) entries += OptionEntry(option);
        }
        if (!entries.empty()) text += "\n" + GroupTitle(*group) + ":\n" + entries;
    }
    if (*command.examples != '\0') text += std::string("\nExamples:\n") + command.examples;
    return text + "\nMore: kemffdc help " + Listed(HelpTopics(), " or ") + ".\n";
}

std::vector<std::string> HelpTopics() {
    std::vector<std::string> names;
    for (const Topic& topic : kTopics) names.emplace_back(topic.name);
    return names;
}

std::string HelpOnTopic(const std::string& name) {
    for (const Topic& topic : kTopics) {
        if (name == topic.name) return topic.text;
    }
    return "";
}

}  // namespace Kemffdc
