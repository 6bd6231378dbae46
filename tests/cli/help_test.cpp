// SPDX-License-Identifier: Apache-2.0
#include "cli/Help.h"

#include <gmock/gmock.h>

#include <sstream>

#include "cli/Channels.h"
#include "cli/command_line.h"

namespace {

using Kemffdc::Parsed;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string Output(const std::vector<std::string>& arguments) {
    const Parsed parsed = Parse(arguments);
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_THAT(parsed.err, IsEmpty());
    return parsed.out;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

void ExpectColumns(const std::string& text) {
    for (const std::string& line : LinesOf(text)) EXPECT_LE(line.size(), 80U) << line;
}

// A terminal of 24 lines shows it with the prompt below.
void ExpectScreen(const std::string& text) {
    EXPECT_LE(LinesOf(text).size(), 23U) << text;
    ExpectColumns(text);
}

// The words of a command's name, then these.
std::vector<std::string> Typed(const Kemffdc::CommandEntry& command,
                               const std::vector<std::string>& rest) {
    std::istringstream name(command.name);
    std::vector<std::string> words;
    for (std::string word; name >> word;) words.push_back(word);
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

TEST(Help, FitsAScreenAndNamesCommandsChannelsAndTopics) {
    const std::string help = Output({"--help"});
    ExpectScreen(help);
    EXPECT_EQ(Output({"-h"}), help);
    EXPECT_EQ(Output({"help"}), help);
    for (const auto& command : Kemffdc::Commands()) {
        const std::string family = FamilyOf(command);
        EXPECT_THAT(help, HasSubstr(family.empty() ? command.name : "\n  " + family + " "));
    }
    for (const auto& channel : Kemffdc::ChannelNames()) EXPECT_THAT(help, HasSubstr(channel));
    for (const auto& topic : Kemffdc::HelpTopics()) EXPECT_THAT(help, HasSubstr(topic));
}

TEST(Help, OfACommandFitsAScreenAndPointsToTheRest) {
    for (const auto& command : Kemffdc::Commands()) {
        const std::string help = Output(Typed(command, {"--help"}));
        ExpectScreen(help);
        EXPECT_THAT(help, HasSubstr(std::string("kemffdc help ") + command.name));
        EXPECT_EQ(Output(Typed(command, {"host", "--no-such-option", "-h"})), help);
    }
}

TEST(Help, OfAFamilyNamesItsCommands) {
    const std::string help = Output({"fleet", "--help"});
    ExpectScreen(help);
    EXPECT_EQ(Output({"help", "fleet"}), help);
    for (const auto& command : Kemffdc::Commands()) {
        if (FamilyOf(command) != "fleet") continue;
        const std::string second = std::string(command.name).substr(std::string("fleet ").size());
        EXPECT_THAT(help, HasSubstr("\n  " + second + " "));
    }
}

// A name that is too long for its column stands on a line of its own.
int EntriesOf(const std::string& name, const std::string& help) {
    int entries = 0;
    const std::string entry = "\n  " + name;
    for (std::size_t at = help.find(entry); at != std::string::npos;
         at = help.find(entry, at + 1)) {
        const char next = help[at + entry.size()];
        if (next == ' ' || next == '\n') ++entries;
    }
    return entries;
}

TEST(Help, OnACommandHoldsEveryOptionOnceWithWhatHoldsWithoutIt) {
    for (const auto& command : Kemffdc::Commands()) {
        std::vector<std::string> words = Typed(command, {});
        words.insert(words.begin(), "help");
        const std::string help = Output(words);
        ExpectColumns(help);
        // A fleet has options of the same name as a run on one BMC, with another meaning.
        std::map<std::string, bool> offered;
        for (const Kemffdc::OptionGroup* group : AllGroups(command)) {
            for (const Kemffdc::Option& option : group->options) {
                const std::string letter = option.letter;
                const std::string name = (letter.empty() ? "" : letter + ", ") + option.name;
                offered[name] |= option.OnLine() && TakesOption(command, option);
            }
        }
        for (const auto& [name, isOffered] : offered) {
            EXPECT_EQ(EntriesOf(name, help), isOffered ? 1 : 0) << command.name << " " << name;
        }
    }
    const std::string help = Output({"help", "collect"});
    for (const char* text :
         {"[redfish 443, cim 5989, ipmi\n", "port 5988 then", "[120]", "[16G]", "[2h]", "[admin]",
          "Download (redfish, ipmi, kcs):", "[environment: KEMFFDC_PASSWORD]"}) {
        EXPECT_THAT(help, HasSubstr(text));
    }
    EXPECT_THAT(Output({"help", "check"}), Not(HasSubstr("--tries")));
}

TEST(Help, OnTopicsHoldsEveryExitCodeAndMode) {
    for (const auto& topic : Kemffdc::HelpTopics()) ExpectColumns(Output({"help", topic}));
    const std::string codes = Output({"help", "exit-codes"});
    for (const char* line :
         {"  0    archive obtained", "  2    usage", "  3    could not connect",
          "  4    the BMC refused the export", "  5    the task failed", "  6    not finished",
          "  7    download failed", "  8    local file trouble", "  9    some files are missing",
          "  10   the BMC was reached", "  130  interrupted"}) {
        EXPECT_THAT(codes, HasSubstr(line));
    }
    EXPECT_THAT(Output({"help", "modes"}), HasSubstr("  3      the account comes from"));
    EXPECT_THAT(Output({"help", "passwords"}), HasSubstr("KEMFFDC_EXPORT_PASSWORD"));
}

}  // namespace
