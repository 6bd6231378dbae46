// SPDX-License-Identifier: Apache-2.0
#include "cli/Settle.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "cli/Channels.h"
#include "cli/CommonOptions.h"
#include "cli/UserFolders.h"

namespace Kemffdc {
namespace {

constexpr char kFileName[] = "/kemffdc/kemffdc.conf";

Outcome Usage(const std::string& text) { return Failure(kUsage, text); }

std::string CheckVia(const std::string& via) {
    return FindChannel(via) != nullptr ? "" : NoneOf(via, ChannelNames());
}

Config::Member MemberOf(const Option& option) {
    Config::Member member;
    member.name = option.Member();
    member.path = option.reading.path;
    member.command = option.reading.takeWords != nullptr;
    member.oneOf = option.oneOf;
    member.check = [&option](const std::vector<std::string>& words) {
        Options scratch;
        if (option.reading.takeWords) return option.reading.takeWords(words, scratch);
        const std::string fault = option.reading.take(words.front(), scratch);
        return fault.empty() && !scratch.via.empty() ? CheckVia(scratch.via) : fault;
    };
    return member;
}

std::vector<Config::Member> FileMembers() {
    std::vector<Config::Member> members;
    for (const auto& [name, option] : FileOptions()) members.push_back(MemberOf(*option));
    return members;
}

// One command's options, as they are settled.
class Settler {
public:
    Settler(const CommandEntry& command, const Line& line, const Sources& sources, Options& options)
        : m_command(command),
          m_line(line),
          m_sources(sources),
          m_options(options),
          m_groups(command.on == On::kFleet ? OwnGroups(command) : AllGroups(command)),
          m_fitting(OwnGroups(command)) {}

    // The order is that of an operator's reading: first what cannot stand there at all.
    Outcome Settle() {
        m_options.command = m_command.command;
        Outcome outcome = TakeLine();
        if (outcome.Ok()) HoldFiles();
        if (outcome.Ok() && IsOnOneBmc(m_command)) outcome = FindWay();
        if (outcome.Ok()) outcome = RefuseForeign();
        if (outcome.Ok()) outcome = CheckArgument();
        if (outcome.Ok()) outcome = TakeOptions();
        if (outcome.Ok()) outcome = CheckForm();
        if (outcome.Ok() && m_channel != nullptr) outcome = Complete();
        if (m_command.command == Command::kConfig) m_options.held = HeldBy(m_command, m_options);
        return outcome;
    }

    // What can be said of the command line by itself.
    Outcome TakeLine() {
        const Outcome outcome = RefuseEmpty();
        return outcome.Ok() ? TakeArgument() : outcome;
    }

private:
    using On = CommandEntry::On;

    // No option means anything by an empty text; where one stands, a variable was not set.
    Outcome RefuseEmpty() const {
        for (const auto& [name, text] : m_line.options) {
            if (text.empty()) return Usage(name + " is empty.");
        }
        return {};
    }

    Outcome TakeArgument() {
        if (!m_line.argument) return {};
        std::string fault = m_command.take(*m_line.argument, m_options);
        for (const std::string& argument : m_line.more) {
            if (fault.empty()) fault = m_command.take(argument, m_options);
        }
        return fault.empty() ? Outcome{} : Usage(m_command.argument + fault);
    }

    Outcome CheckForm() const {
        const bool both = m_options.json && m_options.events;
        return both ? Usage(
                          "--json and --events exclude each other: the last line of --events is "
                          "the object of --json.")
                    : Outcome{};
    }

    void HoldFiles() {
        for (const auto& [origin, file] : m_sources.files) {
            m_options.configFiles.push_back({file.path, file.exists});
            m_files.push_back(
                {origin, file.path, Config::Holding(file, m_sources.members, m_options.host)});
        }
    }

    Outcome FindWay() {
        for (const Option& option : ViaOptions().options) {
            Outcome outcome = Take(option);
            if (!outcome.Ok()) return outcome;
        }
        const std::string& via = m_options.via;
        m_channel = via.empty() ? DefaultChannel() : FindChannel(via);
        if (m_channel == nullptr) return Usage("--via" + NoneOf(via, ChannelNames()));
        m_options.via = m_channel->name;
        const OptionGroups groups = m_channel->options();
        m_fitting.insert(m_fitting.end(), groups.begin(), groups.end());
        return {};
    }

    // Who gives an option expects something of it. Those of a fleet's BMCs are judged with them.
    Outcome RefuseForeign() const {
        if (m_command.on == On::kFleet) return {};
        for (const auto& [name, text] : m_line.options) {
            if (Fits(name)) continue;
            std::vector<std::string> takers;
            for (const Channel* channel : Channels()) {
                if (channel == DefaultChannel()) continue;
                if (Holds(channel->options(), name)) takers.emplace_back(channel->name);
            }
            return Usage(name + " is an option of --via " + Listed(takers) + ".");
        }
        return {};
    }

    bool Fits(const std::string& name) const { return Holds(m_fitting, name); }

    Outcome CheckArgument() const {
        const std::string name = m_command.argument;
        const bool given = m_line.argument.has_value();
        bool required = m_command.takesArgument == CommandEntry::Argument::kRequired ||
                        m_command.takesArgument == CommandEntry::Argument::kSeveral;
        if (m_channel != nullptr) {
            required = required && m_channel->host == Channel::Host::kRequired;
        }
        return required && !given ? Usage(name + " is required.") : Outcome{};
    }

    Outcome TakeOptions() {
        for (const OptionGroup* group : m_groups) {
            for (const Option& option : group->options) {
                Outcome outcome = Take(option);
                if (!outcome.Ok()) return outcome;
            }
        }
        return {};
    }

    Outcome Take(const Option& option) {
        const std::optional<Said> found = Find(option);
        if (!found || IsOutdone(option, found->setting.origin)) return {};
        if (!TakesOption(m_command, option) || !Fits(option.name)) {
            m_options.ignored[option.name] = found->setting;
            return {};
        }
        const std::string fault = TakeWords(option, found->words);
        if (!fault.empty()) return Usage(found->setting.place + fault);
        m_options.settings[option.name] = found->setting;
        return {};
    }

    std::string TakeWords(const Option& option, const std::vector<std::string>& words) {
        if (words.empty()) return "";
        if (option.reading.takeWords) return option.reading.takeWords(words, m_options);
        return option.reading.take(words.front(), m_options);
    }

    std::optional<Said> Find(const Option& option) const {
        const auto given = m_line.options.find(option.name);
        if (given != m_line.options.end()) {
            return Said{{Origin::kCommandLine, option.name, ""}, {given->second}};
        }
        const auto ofFleet = m_sources.inventory.find(option.name);
        if (ofFleet != m_sources.inventory.end()) return ofFleet->second;
        for (const char* variable : {option.variable, option.secretVariable}) {
            const char* text = *variable == '\0' ? nullptr : m_sources.from.variable(variable);
            if (text == nullptr || *text == '\0') continue;
            Said found{{Origin::kEnvironment, variable, ""}, {}};
            if (variable == option.variable) found.words.emplace_back(text);
            return found;
        }
        for (const FileValues& file : m_files) {
            const auto value = file.values.find(option.Member());
            if (value == file.values.end()) continue;
            return Said{{file.origin, file.path + ":" + std::to_string(value->second.line),
                         value->second.section},
                        value->second.words};
        }
        return std::nullopt;
    }

    // Whether a rival is said nearer to the command line. In one file only one of them is left.
    bool IsOutdone(const Option& option, Origin origin) const {
        const std::string word = option.oneOf;
        if (word.empty()) return false;
        for (const OptionGroup* group : m_groups) {
            for (const Option& other : group->options) {
                if (word != other.oneOf || &option == &other) continue;
                const std::optional<Said> found = Find(other);
                if (!found || (other.IsFlag() && found->words.front() == "false")) continue;
                if (found->setting.origin > origin) return true;
            }
        }
        return false;
    }

    // A fault of an option that a file has set is that file's.
    Outcome Complete() {
        const std::string fault = m_channel->complete(m_options);
        if (fault.empty()) return {};
        const std::string name = fault.substr(0, fault.find(' '));
        const auto setting = m_options.settings.find(name);
        const bool byFile =
            setting != m_options.settings.end() && (setting->second.origin == Origin::kUserFile ||
                                                    setting->second.origin == Origin::kSystemFile);
        const std::string text = byFile ? setting->second.place + ": " + fault : fault;
        return Refused(text);
    }

    // What collect would refuse, `config` notes.
    Outcome Refused(const std::string& text) {
        if (m_command.command != Command::kConfig) return Usage(text);
        m_options.fault = text;
        return {};
    }

    struct FileValues {
        Origin origin;
        std::string path;
        std::map<std::string, Config::Value> values;  // by member
    };

    const CommandEntry& m_command;
    const Line& m_line;
    const Sources& m_sources;
    Options& m_options;
    const OptionGroups m_groups;         // whose options are settled
    OptionGroups m_fitting;              // of these the command's own, then the channel's too
    std::vector<FileValues> m_files;     // what counts more first
    const Channel* m_channel = nullptr;  // null until it is found, and where the command has none
};

}  // namespace

Surroundings SurroundingsOfProcess() {
    Surroundings surroundings;
    surroundings.variable = [](const char* name) -> const char* { return std::getenv(name); };
    surroundings.home = HomeFolder();
    const std::string folder = XdgFolder("XDG_CONFIG_HOME", "/.config");
    if (!folder.empty()) surroundings.userFile = folder + kFileName;
    surroundings.systemFile = std::string("/etc") + kFileName;
    return surroundings;
}

// Every option that kemffdc.conf may hold, whichever command knows it, by its member.
std::map<std::string, const Option*> FileOptions() {
    std::map<std::string, const Option*> options;
    for (const CommandEntry& command : Commands()) {
        for (const OptionGroup* group : AllGroups(command)) {
            for (const Option& option : group->options) {
                if (!option.Member().empty()) options[option.Member()] = &option;
            }
        }
    }
    return options;
}

Outcome ReadSources(const Surroundings& surroundings, Sources& sources) {
    sources.from = surroundings;
    sources.members = FileMembers();
    for (const auto& [origin, path] : {std::pair(Origin::kUserFile, surroundings.userFile),
                                       std::pair(Origin::kSystemFile, surroundings.systemFile)}) {
        if (path.empty()) continue;
        Config::File file;
        Outcome outcome = Config::Read(path, surroundings.home, sources.members, file);
        if (!outcome.Ok()) return outcome;
        sources.files.emplace_back(origin, std::move(file));
    }
    return {};
}

std::vector<HeldSetting> HeldBy(const CommandEntry& command, const Options& options) {
    OptionGroups fitting = OwnGroups(command);
    const Channel* channel = FindChannel(options.via);
    const OptionGroups ofChannel = channel == nullptr ? OptionGroups() : channel->options();
    fitting.insert(fitting.end(), ofChannel.begin(), ofChannel.end());
    std::vector<HeldSetting> held;
    for (const OptionGroup* group : AllGroups(command)) {
        for (const Option& option : group->options) {
            const auto set = options.settings.find(option.name);
            const auto ignored = options.ignored.find(option.name);
            if (ignored != options.ignored.end()) {
                held.push_back({option.Label(), "", ignored->second, true});
            } else if (set != options.settings.end()) {
                held.push_back({option.Label(), option.reading.show(options), set->second});
            } else if (option.where != Where::kLine && TakesOption(command, option) &&
                       Holds(fitting, option.name)) {
                held.push_back({option.Label(), option.reading.show(options), {}});
            }
        }
    }
    return held;
}

Outcome Settle(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
               Options& options) {
    Sources sources;
    Options scratch;
    Outcome outcome = Settler(command, line, sources, scratch).TakeLine();
    if (outcome.Ok()) outcome = ReadSources(surroundings, sources);
    return outcome.Ok() ? Settle(command, line, sources, options) : outcome;
}

Outcome Settle(const CommandEntry& command, const Line& line, const Sources& sources,
               Options& options) {
    return Settler(command, line, sources, options).Settle();
}

std::vector<std::string> HostsInFiles(const Surroundings& surroundings) {
    std::vector<std::string> hosts;
    for (const std::string& path : {surroundings.userFile, surroundings.systemFile}) {
        Config::File file;
        if (!Config::Read(path, surroundings.home, FileMembers(), file).Ok()) continue;
        for (const Config::Section& section : file.sections) {
            std::istringstream words(section.patterns);
            for (std::string word; words >> word;) {
                if (word.find_first_of("*?[") == std::string::npos) hosts.push_back(word);
            }
        }
    }
    return hosts;
}

}  // namespace Kemffdc
