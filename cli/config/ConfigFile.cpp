// SPDX-License-Identifier: Apache-2.0
#include "cli/config/ConfigFile.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "cli/FileDescriptor.h"
#include "cli/Nearest.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Config {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxPattern = 1024;  // bytes
constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
constexpr char kDefaults[] = "defaults";
constexpr char kHosts[] = "hosts";

Outcome Unreadable(const std::string& path, const std::string& why) {
    return Failure(kLocalFile, "The configuration file " + path + " " + why);
}

// Opens nothing that could block or have an effect: a pipe, a device.
Outcome ReadText(const std::string& path, File& file, struct stat& status, std::string& text) {
    const FileDescriptor open(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!open.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) return {};
    if (!open.IsOpen() || fstat(open.Get(), &status) != 0) {
        return Unreadable(path, std::string("cannot be read: ") + std::strerror(errno) + ".");
    }
    file.exists = true;
    if (!S_ISREG(status.st_mode)) return Unreadable(path, "is not a plain file.");
    text.resize(kMaxBytes + 1);
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = read(open.Get(), &text[size], text.size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            return Unreadable(path, std::string("cannot be read: ") + std::strerror(errno) + ".");
        }
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    if (size > kMaxBytes) return Unreadable(path, "is larger than 1 MiB.");
    text.resize(size);
    return {};
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What is wrong, and in which line, counted from 1.
struct Fault {
    int line;
    std::string text;
};

int LineOf(const YAML::Mark& mark) { return mark.line < 0 ? 1 : mark.line + 1; }

// Walks the tree that the YAML library has read. Throws Fault.
class Walker {
public:
    Walker(const std::string& home, const std::vector<Member>& members, File& file)
        : m_home(home), m_members(members), m_file(file) {}

    void Walk(const YAML::Node& root) {
        if (root.IsNull()) return;
        std::vector<std::string> seen;
        for (const auto& entry : MapOf(root, "The file")) {
            const std::string key = KeyOf(entry.first, "", seen);
            if (key == kDefaults) {
                WalkSection(entry.second, kDefaults, "");
            } else if (key == kHosts) {
                WalkHosts(entry.second);
            } else {
                throw Fault{LineOf(entry.first.Mark()), UnknownAtTop(key)};
            }
        }
        std::stable_partition(m_file.sections.begin(), m_file.sections.end(),
                              [](const Section& section) { return section.patterns.empty(); });
    }

private:
    static const YAML::Node& MapOf(const YAML::Node& node, const std::string& name) {
        if (!node.IsMap()) {
            throw Fault{LineOf(node.Mark()), name + " holds no members (NAME: VALUE)."};
        }
        return node;
    }

    // The library would take the first of two equal keys.
    static std::string KeyOf(const YAML::Node& node, const std::string& below,
                             std::vector<std::string>& seen) {
        const std::string where = below.empty() ? "a member" : "a member of " + below;
        if (!node.IsScalar() || HasControl(node.Scalar())) {
            throw Fault{LineOf(node.Mark()), "The name of " + where + " is no plain word."};
        }
        const std::string& key = node.Scalar();
        if (std::find(seen.begin(), seen.end(), key) != seen.end()) {
            throw Fault{LineOf(node.Mark()),
                        (below.empty() ? "" : below + ".") + key + " stands there twice."};
        }
        seen.push_back(key);
        return key;
    }

    std::string UnknownAtTop(const std::string& key) const {
        if (!FindMember(key) && !IsGroup(key)) {
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
                throw Fault{LineOf(entry.first.Mark()),
                            blank ? "A pattern of hosts is empty." : "A pattern is too long."};
            }
            WalkSection(entry.second, std::string(kHosts) + ".\"" + patterns + "\"", patterns);
        }
    }

    void WalkSection(const YAML::Node& node, const std::string& name, const std::string& patterns) {
        Section section;
        section.patterns = patterns;
        if (!node.IsNull()) WalkMembers(MapOf(node, name), name, "", section);
        for (const auto& [member, value] : section.values) RefuseRivals(name, section, member);
        m_file.sections.push_back(section);
    }

    // `prefix` is "export." below `export:`.
    void WalkMembers(const YAML::Node& map, const std::string& below, const std::string& prefix,
                     Section& section) {
        std::vector<std::string> seen;
        for (const auto& entry : map) {
            const std::string key = KeyOf(entry.first, below, seen);
            const std::string shown = below + "." + key;
            if (prefix.empty() && IsGroup(key)) {
                WalkMembers(MapOf(entry.second, shown), shown, key + ".", section);
                continue;
            }
            const Member* member = FindMember(prefix + key);
            const int line = LineOf(entry.first.Mark());
            if (member == nullptr) throw Fault{line, shown + Unknown(prefix, key)};
            Value value;
            value.line = line;
            value.section = section.patterns.empty() ? kDefaults : section.patterns;
            value.words = WordsOf(*member, entry.second, line, shown);
            const std::string fault = member->check ? member->check(value.words) : "";
            if (!fault.empty()) throw Fault{line, shown + fault};
            section.values.emplace_back(member->name, value);
        }
    }

    std::string Unknown(const std::string& prefix, const std::string& key) const {
        if (EndsWith(key, "password") || EndsWith(key, "passwd")) {
            return ": a password does not belong in this file. Put it into a file of its own that "
                   "only you can read, and name that with password_file, or let a program print "
                   "it with password_command.";
        }
        std::vector<std::string> known;
        for (const Member& member : m_members) {
            if (member.name.compare(0, prefix.size(), prefix) != 0) continue;
            known.push_back(member.name.substr(prefix.size()));
        }
        return ": unknown member." + DidYouMean(key, known);
    }

    std::vector<std::string> WordsOf(const Member& member, const YAML::Node& node, int line,
                                     const std::string& shown) const {
        if (node.IsNull()) throw Fault{line, shown + " has no value."};
        std::vector<std::string> words;
        if (member.command) {
            if (!node.IsSequence()) {
                throw Fault{line, shown +
                                      " is a list, as no shell takes it apart: [PROGRAM, "
                                      "ARGUMENT, ...]."};
            }
            for (const YAML::Node& word : node) words.push_back(WordOf(word, line, shown));
            if (words.empty() || words.front().empty()) throw Fault{line, shown + " is empty."};
        } else {
            words.push_back(WordOf(node, line, shown));
            if (words.front().empty()) throw Fault{line, shown + " is empty."};
            if (member.path) words.front() = FullPath(words.front(), line, shown);
        }
        return words;
    }

    static std::string WordOf(const YAML::Node& node, int line, const std::string& shown) {
        if (!node.IsScalar()) throw Fault{line, shown + " is one value, no list and no members."};
        if (HasControl(node.Scalar())) throw Fault{line, shown + " holds control bytes."};
        return node.Scalar();
    }

    // The value is not repeated: it may be a password in the wrong place.
    std::string FullPath(const std::string& path, int line, const std::string& shown) const {
        if (path.front() == '/') return path;
        if (path.rfind("~/", 0) != 0) {
            throw Fault{line, shown + " is no absolute path, and does not begin with ~/."};
        }
        if (m_home.empty()) throw Fault{line, shown + ": this user has no home folder for ~/."};
        return m_home + path.substr(1);
    }

    void RefuseRivals(const std::string& name, const Section& section,
                      const std::string& member) const {
        const std::string& rival = FindMember(member)->rival;
        for (const auto& [other, value] : section.values) {
            if (other == rival) {
                throw Fault{value.line, name + ": of " + member + " and " + rival +
                                            " only one can stand in a section."};
            }
        }
    }

    const Member* FindMember(const std::string& name) const {
        for (const Member& member : m_members) {
            if (member.name == name) return &member;
        }
        return nullptr;
    }

    bool IsGroup(const std::string& key) const {
        return std::any_of(m_members.begin(), m_members.end(), [&key](const Member& member) {
            return member.name.rfind(key + ".", 0) == 0;
        });
    }

    const std::string& m_home;
    const std::vector<Member>& m_members;
    File& m_file;
};

// Returns what is wrong, with its line; empty: nothing is.
std::string Parse(const std::string& text, const std::string& home,
                  const std::vector<Member>& members, File& file) {
    const std::string begin = file.path + ":";
    try {
        const std::vector<YAML::Node> documents = YAML::LoadAll(text);
        if (documents.size() > 1) {
            return begin + std::to_string(LineOf(documents[1].Mark())) +
                   ": a second document (---) begins; only one is read.";
        }
        if (!documents.empty()) Walker(home, members, file).Walk(documents.front());
    } catch (const Fault& fault) {
        return begin + std::to_string(fault.line) + ": " + fault.text;
    } catch (const YAML::Exception& error) {
        return begin + std::to_string(LineOf(error.mark)) + ": no YAML: " + error.msg + ".";
    }
    return "";
}

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

// Whoever could write to the file could have any program run.
Outcome CheckOwner(const File& file, const struct stat& status) {
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        return Unreadable(file.path,
                          "belongs to another user, so its password_command is not run.");
    }
    if ((status.st_mode & kOthersWrite) != 0) {
        return Unreadable(file.path,
                          "can be written by others, so its password_command is not run. Take "
                          "that right away: chmod go-w " +
                              file.path);
    }
    return {};
}

// "[fe80::1]" is an address and no set of letters.
std::string WithoutBrackets(const std::string& pattern) {
    const bool address = pattern.size() > 2 && pattern.front() == '[' &&
                         pattern.find(']') == pattern.size() - 1 &&
                         pattern.find(':') != std::string::npos;
    return address ? pattern.substr(1, pattern.size() - 2) : pattern;
}

}  // namespace

Outcome Read(const std::string& path, const std::string& home, const std::vector<Member>& members,
             File& file) {
    file = File();
    file.path = path;
    if (path.empty()) return {};
    struct stat status {};
    std::string text;
    Outcome outcome = ReadText(path, file, status, text);
    if (!outcome.Ok() || !file.exists) return outcome;
    const std::string fault = Parse(text, home, members, file);
    if (!fault.empty()) return Failure(kUsage, fault);
    return HoldsCommand(file, members) ? CheckOwner(file, status) : outcome;
}

std::map<std::string, Value> Holding(const File& file, const std::vector<Member>& members,
                                     const std::string& host) {
    std::map<std::string, Value> holding;
    for (const Section& section : file.sections) {
        if (!section.patterns.empty() && !Matches(section.patterns, host)) continue;
        for (const auto& [name, value] : section.values) {
            holding[name] = value;
            for (const Member& member : members) {
                if (member.rival == name) holding.erase(member.name);
            }
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
