// SPDX-License-Identifier: Apache-2.0
#include "cli/Completion.h"

#include <algorithm>
#include <set>

#include "cli/Channels.h"
#include "cli/Commands.h"
#include "cli/Help.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"

namespace Kemffdc {
namespace {

using Words = std::vector<std::string>;
using Candidate = Candidates::Candidate;

constexpr int kRuns = 200;  // of the history: more is no help

bool BeginsWith(const std::string& text, const std::string& begin) {
    return text.rfind(begin, 0) == 0;
}

// The words of a line that stand before the one that is being written, taken apart.
struct Before {
    const CommandEntry* command = nullptr;
    std::size_t commandWords = 0;
    std::string via;
    std::string stateDir;
    bool hasArgument = false;
    const Option* awaits = nullptr;  // the option whose value comes next
    bool optionsEnded = false;       // by "--"
};

Words CommandWords(const CommandEntry& command) {
    Words words;
    const std::string name = command.name;
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find(' ', begin), name.size());
        words.push_back(name.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

bool StandAtBegin(const Words& some, const Words& all) {
    return some.size() <= all.size() && std::equal(some.begin(), some.end(), all.begin());
}

void FindCommandIn(const Words& words, Before& before) {
    for (const CommandEntry& command : Commands()) {
        const Words name = CommandWords(command);
        if (name.size() <= before.commandWords || !StandAtBegin(name, words)) continue;
        before.command = &command;
        before.commandWords = name.size();
    }
}

void TakeValue(const std::string& option, const std::string& value, Before& before) {
    if (option == "--via") before.via = value;
    if (option == "--state-dir") before.stateDir = value;
}

Before TakeApart(const Words& words) {
    Before before;
    FindCommandIn(words, before);
    if (before.command == nullptr) return before;
    const auto options = LineOptions(*before.command);
    for (std::size_t i = before.commandWords; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (before.awaits != nullptr) {
            TakeValue(before.awaits->name, word, before);
            before.awaits = nullptr;
        } else if (word == "--" && !before.optionsEnded) {
            before.optionsEnded = true;
        } else if (before.optionsEnded || word.empty() || word[0] != '-') {
            before.hasArgument = true;
        } else if (const std::size_t equals = word.find('='); equals != std::string::npos) {
            TakeValue(word.substr(0, equals), word.substr(equals + 1), before);
        } else if (const auto option = options.find(word); option != options.end()) {
            if (!option->second->IsFlag()) before.awaits = option->second;
        }
    }
    return before;
}

class Finding {
public:
    Finding(const Surroundings& surroundings, std::string begin)
        : m_surroundings(surroundings), m_begin(std::move(begin)) {}

    void Add(const std::string& text, const std::string& meaning = "") {
        if (BeginsWith(text, m_begin) && m_added.insert(text).second) {
            m_found.texts.push_back({text, meaning});
        }
    }

    void AddPaths(Candidates::Paths paths) { m_found.paths = paths; }

    void AddCommands(const Words& before) {
        for (const CommandEntry& command : Commands()) {
            const Words name = CommandWords(command);
            if (name.size() <= before.size() || !StandAtBegin(before, name)) continue;
            const bool isLast = name.size() == before.size() + 1;
            Add(name[before.size()], isLast ? command.brief : "");
        }
        if (!before.empty()) return;
        Add("help", "Help on a command or a topic");
        for (const char* option : {"--help", "--version"}) AddOptionName(option);
    }

    void AddHelpTopics() {
        AddCommands({});
        for (const std::string& topic : HelpTopics()) Add(topic);
    }

    void AddOptions(const Before& before) {
        for (const auto& [name, option] : LineOptions(*before.command)) {
            if (IsOfChannel(*option, before)) AddOptionName(name, option->brief);
        }
        AddOptionName("--help", "Help on this command");
    }

    void AddValues(const Option& option, const std::string& begin) {
        m_begin = begin;
        if (std::string(option.name) == "--via") {
            for (const Channel* channel : Channels()) Add(channel->name, channel->brief);
        }
        for (const std::string& word : option.reading.words) Add(word);
        if (option.reading.path) AddPaths(PathsOf(option.value));
    }

    void AddArguments(const Before& before) {
        const std::string kinds = std::string("|") + before.command->argument + "|";
        const auto takes = [&kinds](const char* kind) {
            return kinds.find(std::string("|") + kind + "|") != std::string::npos;
        };
        if (takes("HOST")) AddHosts(before);
        if (takes("RUN")) AddRuns(before);
        if (takes("ARCHIVE") || takes("FILE")) AddPaths(Candidates::Paths::kFiles);
    }

    Candidates Take(const std::string& prefix = "") {
        for (Candidate& candidate : m_found.texts) candidate.text.insert(0, prefix);
        return std::move(m_found);
    }

private:
    static Candidates::Paths PathsOf(const std::string& value) {
        return value == "DIR" ? Candidates::Paths::kFolders : Candidates::Paths::kFiles;
    }

    void AddOptionName(const std::string& name, const std::string& meaning = "") {
        if (!m_begin.empty() && m_begin[0] == '-') Add(name, meaning);
    }

    // Where --via says which: those of other channels are refused.
    static bool IsOfChannel(const Option& option, const Before& before) {
        const Channel* channel = FindChannel(before.via);
        if (!IsOnOneBmc(*before.command) || channel == nullptr) return true;
        return Holds(channel->options(), option.name) ||
               Holds(OwnGroups(*before.command), option.name);
    }

    std::vector<History::RunRow> Runs(const Before& before) const {
        const std::string folder = History::StateFolder(before.stateDir);
        if (folder.empty() || !History::Store::Exists(folder)) return {};
        try {
            return History::Store(folder).Runs("", kRuns);
        } catch (const History::StoreError&) {
            return {};
        }
    }

    void AddHosts(const Before& before) {
        for (const std::string& host : HostsInFiles(m_surroundings)) Add(host);
        for (const History::RunRow& run : Runs(before)) {
            if (!run.host.empty()) Add(run.host, run.bmc.model);
        }
    }

    void AddRuns(const Before& before) {
        for (const History::RunRow& run : Runs(before)) {
            Add(std::to_string(run.id), run.command + " " + run.host + ", " + run.begunAt +
                                            (run.outcome.empty() ? "" : ", " + run.outcome));
        }
    }

    const Surroundings& m_surroundings;
    std::string m_begin;
    std::set<std::string> m_added;
    Candidates m_found;
};

}  // namespace

Candidates Complete(const Words& words, const Surroundings& surroundings) {
    const std::string last = words.empty() ? "" : words.back();
    const Words earlier(words.begin(), words.empty() ? words.end() : words.end() - 1);
    Finding finding(surroundings, last);
    const Before before = TakeApart(earlier);
    const std::size_t equals = last.find('=');
    if (!earlier.empty() && earlier.front() == "help") {
        finding.AddHelpTopics();
    } else if (before.command == nullptr) {
        finding.AddCommands(earlier);
    } else if (before.awaits != nullptr) {
        finding.AddValues(*before.awaits, last);
    } else if (!before.optionsEnded && equals != std::string::npos && last[0] == '-') {
        const auto options = LineOptions(*before.command);
        const auto option = options.find(last.substr(0, equals));
        if (option == options.end()) return {};
        finding.AddValues(*option->second, last.substr(equals + 1));
        return finding.Take(last.substr(0, equals + 1));
    } else if (!before.optionsEnded && !last.empty() && last[0] == '-') {
        finding.AddOptions(before);
    } else if (!before.hasArgument) {
        finding.AddArguments(before);
    }
    return finding.Take();
}

std::string Printed(const Candidates& candidates) {
    std::string text;
    for (const Candidate& candidate : candidates.texts) {
        text += candidate.text;
        if (!candidate.meaning.empty()) text += "\t" + candidate.meaning;
        text += "\n";
    }
    if (candidates.paths == Candidates::Paths::kFiles) text += ":files\n";
    if (candidates.paths == Candidates::Paths::kFolders) text += ":folders\n";
    return text;
}

}  // namespace Kemffdc
