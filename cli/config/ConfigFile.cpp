// SPDX-License-Identifier: Apache-2.0
#include "cli/config/ConfigFile.h"

#include <fnmatch.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <sstream>

#include "cli/Nearest.h"
#include "cli/config/TextFile.h"
#include "shared/HostName.h"

namespace Kemffdc::Config {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxPattern = 1024;  // bytes
constexpr char kDefaults[] = "defaults";
constexpr char kHosts[] = "hosts";

// Walks the tree that the YAML library has read. Throws Fault.
class Walker {
public:
    Walker(const std::string& home, const std::vector<Member>& members, File& file)
        : m_reader(home, members), m_file(file) {}

    void Walk(const YAML::Node& root) {
        std::vector<std::string> seen;
        for (const auto& entry : MapOf(root, "The file")) {
            const std::string key = KeyOf(entry.first, "", seen);
            if (key == kDefaults) {
                WalkSection(entry.second, kDefaults, "");
            } else if (key == kHosts) {
                WalkHosts(entry.second);
            } else {
                throw Fault{LineOf(entry.first), UnknownAtTop(key)};
            }
        }
        std::stable_partition(m_file.sections.begin(), m_file.sections.end(),
                              [](const Section& section) { return section.patterns.empty(); });
    }

private:
    std::string UnknownAtTop(const std::string& key) const {
        if (!m_reader.Knows(key)) {
            return key + ": unknown member." + DidYouMean(key, {kDefaults, kHosts});
        }
        return key + " stands at the top: it belongs below defaults: or a pattern of hosts:.";
    }

    void WalkHosts(const YAML::Node& hosts) {
        if (hosts.IsNull()) return;
        std::vector<std::string> seen;
        for (const auto& entry : MapOf(hosts, kHosts)) {
            const std::string patterns = KeyOf(entry.first, kHosts, seen);
            const bool blank = patterns.find_first_not_of(' ') == std::string::npos;
            if (blank || patterns.size() > kMaxPattern) {
                throw Fault{LineOf(entry.first),
                            blank ? "A pattern of hosts is empty." : "A pattern is too long."};
            }
            WalkSection(entry.second, std::string(kHosts) + ".\"" + patterns + "\"", patterns);
        }
    }

    void WalkSection(const YAML::Node& node, const std::string& name, const std::string& patterns) {
        m_file.sections.push_back(
            {patterns, m_reader.Read(node, name, patterns.empty() ? kDefaults : patterns)});
    }

    const MemberReader m_reader;
    File& m_file;
};

bool HoldsCommand(const File& file, const std::vector<Member>& members) {
    for (const Section& section : file.sections) {
        for (const auto& [name, value] : section.values) {
            const std::string& wanted = name;
            const bool command =
                std::any_of(members.begin(), members.end(), [&wanted](const Member& member) {
                    return member.command && member.name == wanted;
                });
            if (command) return true;
        }
    }
    return false;
}

// "[fe80::1]" is an address and no set of letters.
std::string WithoutBrackets(const std::string& pattern) {
    const bool set =
        pattern.find(':') == std::string::npos || pattern.find(']') != pattern.size() - 1;
    return set ? pattern : shared::WithoutBrackets(pattern);
}

}  // namespace

Outcome Read(const std::string& path, const std::string& home, const std::vector<Member>& members,
             File& file) {
    file = File();
    file.path = path;
    if (path.empty()) return {};
    TextFile read;
    read.what = "configuration file";
    read.path = path;
    Outcome outcome = ReadTextFile(kMaxBytes, read);
    file.exists = read.exists;
    if (!outcome.Ok() || !file.exists) return outcome;
    const std::string fault = ParseYaml(
        path, read.text, [&](const YAML::Node& root) { Walker(home, members, file).Walk(root); });
    if (!fault.empty()) return Failure(kUsage, fault);
    // Whoever could write to the file could have any program run.
    return HoldsCommand(file, members)
               ? RefuseForeignFile(read, "so its password_command is not run")
               : outcome;
}

std::map<std::string, Value> Holding(const File& file, const std::vector<Member>& members,
                                     const std::string& host) {
    std::map<std::string, Value> holding;
    for (const Section& section : file.sections) {
        if (!section.patterns.empty() && !Matches(section.patterns, host)) continue;
        for (const auto& [name, value] : section.values) {
            for (const std::string& rival : RivalsOf(name, members)) holding.erase(rival);
            holding[name] = value;
        }
    }
    return holding;
}

bool Matches(const std::string& patterns, const std::string& host) {
    std::istringstream words(patterns);
    std::string pattern;
    while (words >> pattern) {
        if (fnmatch(WithoutBrackets(pattern).c_str(), host.c_str(), FNM_CASEFOLD) == 0) return true;
    }
    return false;
}

}  // namespace Kemffdc::Config
