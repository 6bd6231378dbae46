// SPDX-License-Identifier: Apache-2.0
#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <vector>

#include "cli/Commands.h"
#include "cli/Completion.h"
#include "cli/ExitCodes.h"
#include "cli/Help.h"
#include "cli/Nearest.h"
#include "cli/SettleFleet.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr int kMostArguments = 10000;        // of a command that takes several
constexpr std::size_t kLongestFault = 2000;  // bytes; the rest is of no use to anybody

using Words = std::vector<std::string>;

Parsed Answer(const std::string& text) {
    Parsed parsed;
    parsed.out = text;
    return parsed;
}

Parsed AnswerVersion() {
    Parsed parsed;
    parsed.asksForVersion = true;
    return parsed;
}

// `command` is empty where none is known.
Parsed Fault(const Outcome& outcome, const std::string& command) {
    Outcome clean = outcome;
    clean.reason = Clean(outcome.reason, kLongestFault);
    Parsed parsed;
    parsed.exitCode = clean.code;
    parsed.fault = clean;
    parsed.err = "kemffdc: " + clean.reason + "\n";
    parsed.out = JsonText(FaultObject(clean, command)) + "\n";
    return parsed;
}

Parsed UsageError(const std::string& text, const std::string& command = "") {
    Parsed parsed = Fault(Failure(kUsage, text), command);
    parsed.err += "Try 'kemffdc " + command + (command.empty() ? "" : " ") + "--help'.\n";
    return parsed;
}

// Whatever else stands there.
bool AsksForJson(const Words& words) {
    return std::any_of(
        words.begin(), std::find(words.begin(), words.end(), "--"),
        [](const std::string& word) { return word == "--json" || word == "--events"; });
}

// Help on the command line would not help there.
bool ByFile(const Outcome& outcome, const Surroundings& surroundings) {
    if (outcome.code != kUsage) return true;
    const std::string& reason = outcome.reason;
    return reason.rfind(surroundings.userFile + ":", 0) == 0 ||
           reason.rfind(surroundings.systemFile + ":", 0) == 0;
}

bool IsHelp(const std::string& word) { return word == "--help" || word == "-h"; }

// "collect" ... and "fleet"; behind `family` the second words: "hosts" ...
Words CommandNames(const std::string& family = "") {
    Words names;
    for (const CommandEntry& command : Commands()) {
        const std::string name = command.name;
        const std::size_t blank = name.find(' ');
        if (family != FamilyOf(command) && !family.empty()) continue;
        const std::string word = family.empty() ? name.substr(0, blank) : name.substr(blank + 1);
        if (std::find(names.begin(), names.end(), word) == names.end()) names.push_back(word);
    }
    return names;
}

// Of "fleet", as it stands in front of two-word commands.
bool IsFamily(const std::string& word) {
    return std::any_of(Commands().begin(), Commands().end(), [&word](const CommandEntry& command) {
        return !word.empty() && FamilyOf(command) == word;
    });
}

Words NamesOf(const std::map<std::string, const Option*>& options) {
    Words names{"--help"};
    for (const auto& [name, option] : options) names.push_back(name);
    return names;
}

// The commands that know the option: of this family, and where it is of none of these, all.
Words CommandsWith(const std::string& option, const std::string& family) {
    Words near;
    Words far;
    for (const CommandEntry& command : Commands()) {
        if (LineOptions(command).count(option) == 0) continue;
        (FamilyOf(command) == family ? near : far).emplace_back(command.name);
    }
    return near.empty() ? far : near;
}

std::string UnknownOption(const std::string& name, const CommandEntry& command,
                          const Words& known) {
    if (name.rfind("--pass", 0) == 0 || name == "-p") {
        return "Unknown option: " + name +
               ". A password is never given on the command line, where other users of this machine "
               "could read it: use --password-file, or see 'kemffdc help passwords'.";
    }
    const Words commands = CommandsWith(name, FamilyOf(command));
    if (!commands.empty()) return name + " is an option of kemffdc " + Listed(commands) + ".";
    return "Unknown option: " + name + "." + DidYouMean(name, known);
}

// Names the option alone: what stands beside it may be a password that somebody has tried to give
// on the command line.
std::string UnknownWord(const CommandEntry& command, const Words& words,
                        const std::map<std::string, const Option*>& options) {
    for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
        const std::string& word = words[i];
        if (word.size() < 2 || word[0] != '-') continue;
        const bool isLong = word[1] == '-';
        const std::string name = isLong ? word.substr(0, word.find('=')) : word.substr(0, 2);
        const auto option = options.find(name);
        if (option == options.end()) return UnknownOption(name, command, NamesOf(options));
        if (!option->second->IsFlag() && name == word) ++i;  // what follows is its value
    }
    return "";
}

std::string TooMany(const CommandEntry& command) {
    const std::string only = command.argument;
    return "Too many arguments: kemffdc " + std::string(command.name) + " takes " +
           (only.empty() ? "none." : "one " + only + ".");
}

// An option whose value is missing: CLI11 would take the next word for it, whatever that is.
std::string MissingValue(const Words& words, const std::map<std::string, const Option*>& options) {
    for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
        const std::string& word = words[i];
        const bool empty = word.rfind("--", 0) == 0 && word.find('=') == word.size() - 1;
        if (empty) {
            return word.substr(0, word.size() - 1) + " is empty: nothing stands behind its =.";
        }
        const auto option = options.find(word);
        if (option == options.end() || option->second->IsFlag()) continue;
        if (i + 1 == words.size()) return word + " has no value: nothing stands behind it.";
        const bool isOption = options.count(words[++i]) > 0;
        if (isOption) return word + " has no value: " + words[i] + " stands behind it.";
    }
    return "";
}

// Takes the words behind a command apart. Returns what is wrong; empty: nothing is.
std::string Split(const CommandEntry& command, const Words& words, Line& line) {
    const std::map<std::string, const Option*> options = LineOptions(command);
    CLI::App app("", command.name);
    app.set_help_flag();
    app.allow_extras();
    for (const auto& [name, option] : options) {
        if (name == option->letter) continue;
        std::string names = name;
        if (*option->letter != '\0') names.append(",").append(option->letter);
        CLI::Option* added = option->IsFlag() ? app.add_flag(names) : app.add_option(names);
        added->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    const bool takesArgument = *command.argument != '\0';
    if (takesArgument) {
        const bool several = command.takesArgument == CommandEntry::Argument::kSeveral;
        app.add_option(command.argument)
            ->expected(1, several ? kMostArguments : 1)
            ->allow_extra_args(several);
    }
    std::string fault = UnknownWord(command, words, options);
    if (fault.empty()) fault = MissingValue(words, options);
    if (!fault.empty()) return fault;

    try {
        app.parse(Words(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
        return error.what();
    }
    Words rest = app.remaining();
    const auto end = std::find(rest.begin(), rest.end(), "--");
    if (end != rest.end()) rest.erase(end);
    if (!rest.empty()) return TooMany(command);

    for (const auto& [name, option] : options) {
        if (name == option->letter) continue;
        const CLI::results_t& given = app.get_option(name)->results();
        if (given.empty()) continue;
        if (given.size() > 1 && !option->IsFlag()) return name + " is given twice.";
        line.options[name] = given.back();
    }
    if (takesArgument && app.get_option(command.argument)->count() > 0) {
        const CLI::results_t& given = app.get_option(command.argument)->results();
        line.argument = given.front();
        line.more.assign(given.begin() + 1, given.end());
    }
    return "";
}

Parsed UnknownCommand(const std::string& word) {
    if (word.empty() || word[0] != '-') {
        return UsageError("Unknown command: " + word + "." + DidYouMean(word, CommandNames()));
    }
    const Words commands = CommandsWith(word.substr(0, word.find('=')), "");
    if (commands.empty())
        return UsageError("Unknown option: " + word.substr(0, word.find('=')) + ".");
    return UsageError("Options stand behind the command: kemffdc " + commands.front() + " " +
                      word.substr(0, word.find('=')) + " ...");
}

Parsed ParseCommand(const CommandEntry& command, const Words& words,
                    const Surroundings& surroundings) {
    // Who asks for help has to get it, whatever else is wrong.
    const auto end = std::find(words.begin(), words.end(), "--");
    if (std::any_of(words.begin(), end, IsHelp)) return Answer(ShortHelp(command));
    Line line;
    Options options;
    const std::string fault = Split(command, words, line);
    if (!fault.empty()) return UsageError(fault, command.name);
    Outcome settled;
    if (command.recall != nullptr && line.argument) settled = command.recall(line, options);
    if (settled.Ok()) {
        settled = command.on == CommandEntry::On::kFleet
                      ? SettleFleet(command, line, surroundings, options)
                      : Settle(command, line, surroundings, options);
    }
    if (!settled.Ok()) {
        return ByFile(settled, surroundings) ? Fault(settled, command.name)
                                             : UsageError(settled.reason, command.name);
    }
    Parsed parsed;
    parsed.options = options;
    return parsed;
}

// "fleet hosts ...".
Parsed ParseFamily(const std::string& family, const Words& words,
                   const Surroundings& surroundings) {
    const Words names = CommandNames(family);
    if (words.empty()) {
        return UsageError(
            "A command is missing: kemffdc " + family + " " + Listed(names, " or ") + ".", family);
    }
    const std::string& second = words.front();
    if (IsHelp(second)) return Answer(FamilyHelp(family));
    const CommandEntry* command = FindCommand(family + " " + second);
    if (command != nullptr) {
        return ParseCommand(*command, Words(words.begin() + 1, words.end()), surroundings);
    }
    if (!second.empty() && second[0] == '-') {
        return UsageError("Options stand behind the command: kemffdc " + family + " " +
                              names.front() + " " + second.substr(0, second.find('=')) + " ...",
                          family);
    }
    return UsageError("Unknown command: " + family + " " + second + "." + DidYouMean(second, names),
                      family);
}

Parsed NoHelp(const std::string& topic, const std::string& word, const Words& known) {
    return UsageError("No help on \"" + topic + "\"; there is some on " + Listed(known) + "." +
                      DidYouMean(word, known));
}

// `topics` begin with "fleet".
Parsed AnswerFamilyHelp(const Words& topics) {
    const std::string& family = topics.front();
    if (topics.size() == 1) return Answer(FamilyHelp(family));
    const std::string name = family + " " + topics[1];
    const CommandEntry* command = FindCommand(name);
    return command == nullptr ? NoHelp(name, topics[1], CommandNames(family))
                              : Answer(LongHelp(*command));
}

Parsed AnswerHelp(const Words& topics) {
    if (topics.empty()) return Answer(Help());
    if (IsFamily(topics.front())) return AnswerFamilyHelp(topics);
    const CommandEntry* command = FindCommand(topics.front());
    if (command != nullptr) return Answer(LongHelp(*command));
    const std::string text = HelpOnTopic(topics.front());
    if (!text.empty()) return Answer(text);
    Words known = CommandNames();
    for (const std::string& topic : HelpTopics()) known.push_back(topic);
    return NoHelp(topics.front(), topics.front(), known);
}

Parsed Parse(const Words& words, const Surroundings& surroundings) {
    if (words.empty()) {
        return UsageError("A command is missing: " + Listed(CommandNames(), " or ") + ".");
    }
    const std::string& first = words.front();
    if (IsHelp(first)) return Answer(Help());
    if (first == "--version") return AnswerVersion();
    const Words rest(words.begin() + 1, words.end());
    if (first == "help") return AnswerHelp(rest);
    if (first == "complete") return Answer(Printed(Complete(rest, surroundings)));
    if (IsFamily(first)) return ParseFamily(first, rest, surroundings);
    const CommandEntry* command = FindCommand(first);
    return command == nullptr ? UnknownCommand(first) : ParseCommand(*command, rest, surroundings);
}

}  // namespace

Parsed FaultOf(const Outcome& outcome) { return Fault(outcome, ""); }

Parsed ParseOptions(int argc, const char* const* argv, const Surroundings& surroundings) {
    const Words words(argv + 1, argv + std::max(argc, 1));
    Parsed parsed = Parse(words, surroundings);
    if (parsed.exitCode != kDone && !AsksForJson(words)) parsed.out.clear();
    return parsed;
}

}  // namespace Kemffdc
