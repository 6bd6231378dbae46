// SPDX-License-Identifier: Apache-2.0
//
// varnex_manual NAME [FILE ...]: a page of the manual in Markdown, on standard output. What a page
// says of commands and options comes from the tables that the tool works with; what the FILEs,
// pages of docs/, say is taken over.
#include <algorithm>
#include <cctype>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/Channels.h"
#include "cli/Commands.h"
#include "cli/Help.h"

namespace {

using namespace Kemffdc;

constexpr char kFleet[] = "fleet ";

using Chosen = std::vector<const CommandEntry*>;

Chosen CommandsOf(bool fleet) {
    Chosen chosen;
    for (const CommandEntry& command : Commands()) {
        const bool isFleet = std::string(command.name).rfind(kFleet, 0) == 0;
        if (isFleet == fleet) chosen.push_back(&command);
    }
    return chosen;
}

// A text without anything that Markdown would take for its own.
std::string Plain(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([\\`*_{}\[\]<>#|~])"), "\\$&");
}

std::string Section(const std::string& title) { return "# " + title + "\n\n"; }

// A term and what it means, as a definition list has them.
std::string Entry(const std::string& term, const std::string& meaning) {
    return term + "\n: " + meaning + "\n\n";
}

std::string Verbatim(const std::string& text) {
    std::string block = "```\n";
    block += text;
    return block + "```\n\n";
}

std::string Bold(const std::string& text) { return "**" + Plain(text) + "**"; }

// "**--port** *N*"
std::string BoldFirstWord(const std::string& text) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string rest = text.substr(end);
    return Bold(text.substr(0, end)) + (rest.empty() ? "" : " *" + Plain(rest.substr(1)) + "*");
}

// The commands that know the option, where not all of them do.
std::string Takers(const Option& option, const Chosen& commands) {
    std::vector<std::string> takers;
    for (const CommandEntry* command : commands) {
        if (LineOptions(*command).count(option.name) > 0) takers.emplace_back(command->name);
    }
    return takers.size() == commands.size() ? "" : " (" + Joined(takers, ", ") + ")";
}

std::string Groups(const Chosen& commands) {
    std::vector<const OptionGroup*> groups;
    for (const CommandEntry* command : commands) {
        for (const OptionGroup* group : AllGroups(*command)) {
            const bool isNew = std::find(groups.begin(), groups.end(), group) == groups.end();
            if (isNew) groups.push_back(group);
        }
    }
    std::string text;
    for (const OptionGroup* group : groups) {
        std::string entries;
        for (const Option& option : group->options) {
            if (!option.OnLine()) continue;
            entries += Entry(BoldFirstWord(OptionName(option)),
                             Plain(OptionMeaning(option) + Takers(option, commands)));
        }
        if (!entries.empty()) text += "## " + Plain(GroupTitle(*group)) + "\n\n" + entries;
    }
    return text;
}

std::string Synopses(const Chosen& commands) {
    std::string text;
    for (const CommandEntry* command : commands) text += Synopsis(*command) + " [OPTION ...]\n";
    return Verbatim(text);
}

std::string Briefs(const Chosen& commands) {
    std::string text;
    for (const CommandEntry* command : commands) {
        text += Entry(Bold(command->name), Plain(std::string(command->brief) + "."));
    }
    return text;
}

std::string ChannelEntries() {
    std::string text;
    for (const Channel* channel : Channels()) {
        text += Entry(Bold(channel->name), Plain(std::string(channel->brief) + "."));
    }
    return text;
}

std::string Variables(const Chosen& commands) {
    std::map<std::string, std::string> variables;
    for (const CommandEntry* command : commands) {
        for (const auto& [name, option] : LineOptions(*command)) {
            if (*option->variable != '\0') {
                variables[option->variable] = "Stands for " + name + ".";
            }
            if (*option->secretVariable != '\0') {
                variables[option->secretVariable] =
                    "The password itself, in place of " + name + ".";
            }
        }
    }
    std::string text;
    for (const auto& [name, meaning] : variables) text += Entry(Bold(name), Plain(meaning));
    return text;
}

// The text of a topic of `kemffdc help`, without its headline.
std::string Topic(const std::string& name) {
    const std::string text = HelpOnTopic(name);
    return Verbatim(text.substr(text.find('\n') + 1));
}

std::string Examples(const Chosen& commands) {
    std::string text;
    for (const CommandEntry* command : commands) text += command->examples;
    return Verbatim(text);
}

std::string CommandPage(const Chosen& commands) {
    return Section("SYNOPSIS") + Synopses(commands) + Section("COMMANDS") + Briefs(commands) +
           Section("CHANNELS") + ChannelEntries() + Section("OPTIONS") +
           Entry(BoldFirstWord("--help"), "Help on the command.") + Groups(commands) +
           Section("EXIT STATUS") + Topic("exit-codes") + Section("PASSWORDS") +
           Topic("passwords") + Section("ENVIRONMENT") + Variables(commands) + Section("EXAMPLES") +
           Examples(commands);
}

using Files = std::vector<std::string>;

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The cells of a table's row, "| a | b |"; a bar in a cell is written "\\|".
std::vector<std::string> Cells(const std::string& row) {
    std::vector<std::string> cells;
    std::string cell;
    for (std::size_t i = 1; i < row.size(); ++i) {
        if (row[i] == '|' && row[i - 1] != '\\') {
            const std::size_t begin = std::min(cell.find_first_not_of(' '), cell.size());
            cells.push_back(cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin));
            cell.clear();
        } else {
            cell += row[i];
        }
    }
    return cells;
}

// A row as an entry of a list, because terminals are too narrow for tables with sentences: the last
// cell says what the first one means, and those in between are called as their columns are.
std::string RowEntry(const std::vector<std::string>& columns, const std::string& row) {
    const std::vector<std::string> cells = Cells(row);
    if (cells.size() < 2 || cells[0].empty()) return Joined(cells, " ") + "\n\n";
    std::vector<std::string> between;
    for (std::size_t i = 1; i + 1 < cells.size(); ++i) {
        if (cells[i].empty()) continue;
        const bool named = i < columns.size() && !columns[i].empty();
        between.push_back((named ? columns[i] + ": " : "") + cells[i]);
    }
    return Entry(cells[0],
                 cells.back() + (between.empty() ? "" : " (" + Joined(between, "; ") + ")"));
}

// A page of docs/ under a headline, or under its own if that is empty: its sections one level up,
// and of links to its neighbours the text alone.
std::string Taken(const std::string& path, const std::string& headline) {
    static const std::regex kNeighbour(R"(\[([^\]]*)\]\((?!https?:)[^)]*\))");
    static const std::regex kRule(R"(\|[-:| ]+\|)");
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    std::string text;
    std::vector<std::string> columns;  // of the table that is being read
    bool code = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("```", 0) == 0) code = !code;
        if (code) {
            text += line + "\n";
            continue;
        }
        line = std::regex_replace(line, kNeighbour, "$1");
        if (line.rfind('|', 0) != 0) {
            columns.clear();
        } else if (columns.empty()) {
            columns = Cells(line);
            continue;
        } else {
            if (!std::regex_match(line, kRule)) text += RowEntry(columns, line);
            continue;
        }
        if (line.rfind("# ", 0) == 0) {
            line = "# " + (headline.empty() ? Upper(line.substr(2)) : headline);
        } else if (line.rfind("## ", 0) == 0) {
            line = "# " + Upper(line.substr(3));
        } else if (line.rfind("###", 0) == 0) {
            line.erase(0, 1);
        }
        text += line + "\n";
    }
    return text + "\n";
}

std::string AllTaken(const Files& files) {
    std::string text;
    for (const std::string& file : files) text += Taken(file, text.empty() ? "DESCRIPTION" : "");
    return text;
}

std::string Library(const Files& files) {
    return Section("SYNOPSIS") +
           Verbatim(
               "#include <varnex/KEMFfdc.h>\n\nc++ host.cpp $(pkg-config --cflags --libs varnex-ffdc)\n") +
           AllTaken(files);
}

struct Page {
    const char* name;
    const char* brief;
    std::function<std::string(const Files& files)> body;
    const char* seeAlso;
};

std::vector<Page> Pages() {
    return {
        {"kemffdc", "get the service data (FFDC) out of a server's BMC",
         [](const Files& /*files*/) { return CommandPage(CommandsOf(false)); },
         "kemffdc-fleet(1), kemffdc.conf(5), emulated-bmc(1), varnex-ffdc(3)"},
        {"kemffdc-fleet", "get the service data of many BMCs",
         [](const Files& files) { return CommandPage(CommandsOf(true)) + AllTaken(files); },
         "kemffdc(1), kemffdc.conf(5)"},
        {"kemffdc.conf", "settings of kemffdc", AllTaken, "kemffdc(1)"},
        {"varnex-ffdc", "library that gets the service data (FFDC) out of a server's BMC", Library,
         "kemffdc(1)"},
        {"emulated-bmc", "a BMC made of software", AllTaken, "kemffdc(1)"},
    };
}

}  // namespace

int main(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "";
    const Files files(argv + std::min(argc, 2), argv + argc);
    try {
        for (const Page& page : Pages()) {
            if (name != page.name) continue;
            std::cout << Section("NAME") << Plain(page.name) << " - " << Plain(page.brief) << "\n\n"
                      << page.body(files) << Section("SEE ALSO") << Plain(page.seeAlso) << "\n";
            return std::cout.flush() ? 0 : 1;
        }
        std::cerr << "varnex_manual: there is no page \"" << name << "\"\n";
    } catch (const std::exception& error) {
        std::cerr << "varnex_manual: " << error.what() << "\n";
    }
    return 1;
}
