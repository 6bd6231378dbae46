// SPDX-License-Identifier: Apache-2.0
//
// What README and the pages tell an operator to type.
#include <gmock/gmock.h>
#include <wordexp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/Commands.h"

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = VARNEX_ROOT;

std::string Content(const fs::path& page) {
    std::ostringstream content;
    content << std::ifstream(page).rdbuf();
    return content.str();
}

std::vector<fs::path> PagesBelow(const fs::path& folder) {
    std::vector<fs::path> pages;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".md") pages.push_back(entry.path());
    }
    return pages;
}

std::vector<fs::path> Pages() {
    std::vector<fs::path> pages = PagesBelow(kRoot / "docs");
    pages.push_back(kRoot / "README.md");
    return pages;
}

// Those that stand on lines of their own, without what follows a pipe, a redirection or a "#". The
// program's name with its version is what it prints.
std::vector<std::string> CommandsIn(const fs::path& page) {
    const std::string text = std::regex_replace(Content(page), std::regex(R"( \\\n +)"), " ");
    const std::regex command(R"((?:^|\n) *(?:\$ )?kemffdc (?!\d)([^\n|>#]*))");
    std::vector<std::string> commands;
    for (std::sregex_iterator i(text.begin(), text.end(), command), end; i != end; ++i) {
        commands.push_back((*i)[1]);
    }
    return commands;
}

Kemffdc::Parsed Type(const std::string& line) {
    wordexp_t words{};
    EXPECT_EQ(0, ::wordexp(("kemffdc " + line).c_str(), &words, WRDE_NOCMD)) << line;
    const Kemffdc::Parsed parsed =
        Kemffdc::ParseOptions(static_cast<int>(words.we_wordc), words.we_wordv);
    ::wordfree(&words);
    return parsed;
}

// Runs that the pages go on with are in nobody's history.
bool IsTaken(const Kemffdc::Parsed& parsed) {
    return parsed.err.empty() || parsed.err.rfind("kemffdc: There is no run ", 0) == 0;
}

TEST(Documents, CommandsAreTaken) {
    constexpr std::size_t kLeast = 10;
    ASSERT_EQ(0, ::setenv("XDG_STATE_HOME", "/nonexistent", 1));
    std::size_t typed = 0;
    for (const fs::path& page : Pages()) {
        for (const std::string& line : CommandsIn(page)) {
            const Kemffdc::Parsed parsed = Type(line);
            EXPECT_TRUE(IsTaken(parsed)) << page << ": kemffdc " << line << "\n" << parsed.err;
            ++typed;
        }
    }
    EXPECT_GE(typed, kLeast);
}

// The emulated BMC and the scripts of this tree have options too.
bool SpeaksOfTheToolAlone(const fs::path& page) {
    const std::set<std::string> others{"developing.md", "emulator.md", "hostile.md",
                                       "performance.md"};
    return others.count(page.filename()) == 0;
}

std::set<std::string> Options() {
    std::set<std::string> names{"--help", "--version"};
    for (const Kemffdc::CommandEntry& command : Kemffdc::Commands()) {
        for (const Kemffdc::OptionGroup* group : Kemffdc::AllGroups(command)) {
            for (const Kemffdc::Option& option : group->options) names.insert(option.name);
        }
    }
    return names;
}

TEST(Documents, OptionsAreThere) {
    const std::set<std::string> known = Options();
    const std::regex option("`(--[a-z][a-z-]*)");
    for (const fs::path& page : Pages()) {
        if (!SpeaksOfTheToolAlone(page)) continue;
        const std::string text = Content(page);
        for (std::sregex_iterator i(text.begin(), text.end(), option), end; i != end; ++i) {
            EXPECT_EQ(1U, known.count((*i)[1])) << page << ": " << (*i)[1];
        }
    }
}

TEST(Documents, MembersOfFleetsAreTold) {
    const std::string page = Content(kRoot / "docs" / "configuration.md");
    for (const Kemffdc::CommandEntry& command : Kemffdc::Commands()) {
        if (FamilyOf(command) != "fleet") continue;
        for (const Kemffdc::OptionGroup* group : Kemffdc::OwnGroups(command)) {
            for (const Kemffdc::Option& option : group->options) {
                const std::string row = "\n| `" + option.Member() + "` |";
                const bool told = page.find(row) != std::string::npos;
                EXPECT_TRUE(told || option.Member().empty()) << row;
            }
        }
    }
}

}  // namespace
