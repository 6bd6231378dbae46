// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONFIG_MEMBERS_H
#define KEMFFDC_CONFIG_MEMBERS_H

#include <yaml-cpp/node/node.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Kemffdc::Config {

// One member that a file of settings may hold: kemffdc.conf, the inventory of a fleet.
struct Member {
    std::string name;      // "cipher_suite"; "export.uri" stands below `export:`
    bool path = false;     // absolute, or it begins with "~/", which is replaced
    bool command = false;  // a list of words, a program and its arguments; others are one word.
                           // Nobody but this user or root may be able to write to its file.
    std::string oneOf;     // of those with the same word the one that is said later counts; two in
                           // one section are a mistake; empty: it has no rivals
    // What is wrong with the words, as it follows the member's name; empty: nothing is.
    std::function<std::string(const std::vector<std::string>& words)> check;
};

// The others with the same `oneOf`.
std::vector<std::string> RivalsOf(const std::string& name, const std::vector<Member>& members);

// What a file says of a member.
struct Value {
    std::vector<std::string> words;  // one, but for commands
    int line = 0;                    // counted from 1
    std::string section;             // "defaults", or the pattern
};

using Values = std::vector<std::pair<std::string, Value>>;  // by member

// What is wrong in a file, and in which line, counted from 1. Thrown by all that follows.
struct Fault {
    int line;
    std::string text;
};

// Reads YAML 1.2 of one document and hands it to `walk`, unless it is empty. Returns what is wrong,
// "PATH:LINE: what"; empty: nothing is.
std::string ParseYaml(const std::string& path, const std::string& text,
                      const std::function<void(const YAML::Node&)>& walk);

int LineOf(const YAML::Node& node);
YAML::Node MapOf(const YAML::Node& node, const std::string& name);  // the same node

// A plain key that is not in `seen` yet: the library would take the first of two equal ones.
std::string KeyOf(const YAML::Node& node, const std::string& below, std::vector<std::string>& seen);

// Reads maps of settings, checked member by member.
class MemberReader {
public:
    // `home` replaces "~"; where it is empty such paths are refused. Both outlive the object.
    MemberReader(const std::string& home, const std::vector<Member>& members)
        : m_home(home), m_members(members) {}

    // The members of a map that faults call `name`; those in `others` belong to somebody else. Each
    // value gets `section`. A fault's text holds no value of an unknown member.
    Values Read(const YAML::Node& map, const std::string& name, const std::string& section,
                const std::vector<std::string>& others = {}) const;

    // The words of a member as they count: paths are whole. Throws where they are no good.
    std::vector<std::string> Checked(const Member& member, std::vector<std::string> words, int line,
                                     const std::string& shown) const;

    // Throws where two rivals stand side by side in what faults call `name`.
    void RefuseRivals(const std::string& name, const Values& values) const;

    // Whether it is a member, or stands above some ("export").
    bool Knows(const std::string& key) const { return Find(key) != nullptr || IsGroup(key); }

private:
    void ReadBelow(const YAML::Node& map, const std::string& below, const std::string& prefix,
                   const std::string& section, const std::vector<std::string>& others,
                   Values& values) const;
    std::string Unknown(const std::string& prefix, const std::string& key,
                        const std::vector<std::string>& others) const;
    std::vector<std::string> WordsOf(const Member& member, const YAML::Node& node, int line,
                                     const std::string& shown) const;
    std::string FullPath(const std::string& path, int line, const std::string& shown) const;
    const Member* Find(const std::string& name) const;
    bool IsGroup(const std::string& key) const;

    const std::string& m_home;
    const std::vector<Member>& m_members;
};

}  // namespace Kemffdc::Config

#endif
