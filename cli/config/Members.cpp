// SPDX-License-Identifier: Apache-2.0
#include "cli/config/Members.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <sstream>

#include "cli/Nearest.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Config {
namespace {

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

int LineOf(const YAML::Mark& mark) { return mark.line < 0 ? 1 : mark.line + 1; }

std::string WordOf(const YAML::Node& node, int line, const std::string& shown) {
    if (!node.IsScalar()) throw Fault{line, shown + " is one value, no list and no members."};
    if (HasControl(node.Scalar())) throw Fault{line, shown + " holds control bytes."};
    return node.Scalar();
}

// Looks where documents begin, and throws at the second one.
class DocumentCount : public YAML::EventHandler {
public:
    void OnDocumentStart(const YAML::Mark& mark) override {
        if (m_begun) throw Fault{LineOf(mark), "a second document begins here; only one is read."};
        m_begun = true;
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                  const std::string&) override {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                         YAML::EmitterStyle::value) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                    YAML::EmitterStyle::value) override {}
    void OnMapEnd() override {}

private:
    bool m_begun = false;
};

// The library reads one document and passes over what stands behind it. Its LoadAll() would tell,
// but has no end for a file that begins with a comma.
void RefuseSecondDocument(const std::string& text) {
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    DocumentCount documents;
    if (parser) parser.HandleNextDocument(documents);
    if (parser) parser.HandleNextDocument(documents);
}

}  // namespace

std::string ParseYaml(const std::string& path, const std::string& text,
                      const std::function<void(const YAML::Node&)>& walk) {
    const std::string begin = path + ":";
    try {
        RefuseSecondDocument(text);
        const YAML::Node root = YAML::Load(text);
        if (!root.IsNull()) walk(root);
    } catch (const Fault& fault) {
        return begin + std::to_string(fault.line) + ": " + fault.text;
    } catch (const YAML::Exception& error) {
        // Behind a colon the library repeats what stands there: it may be a password.
        const std::string what = error.msg.substr(0, error.msg.find(':'));
        return begin + std::to_string(LineOf(error.mark)) + ": no YAML: " + what + ".";
    }
    return "";
}

int LineOf(const YAML::Node& node) { return LineOf(node.Mark()); }

YAML::Node MapOf(const YAML::Node& node, const std::string& name) {
    if (!node.IsMap()) {
        throw Fault{LineOf(node), name + " holds no members (NAME: VALUE)."};
    }
    return node;
}

std::string KeyOf(const YAML::Node& node, const std::string& below,
                  std::vector<std::string>& seen) {
    const std::string where = below.empty() ? "a member" : "a member of " + below;
    if (!node.IsScalar() || HasControl(node.Scalar())) {
        throw Fault{LineOf(node), "The name of " + where + " is no plain word."};
    }
    const std::string& key = node.Scalar();
    if (std::find(seen.begin(), seen.end(), key) != seen.end()) {
        throw Fault{LineOf(node),
                    (below.empty() ? "" : below + ".") + key + " stands there twice."};
    }
    seen.push_back(key);
    return key;
}

Values MemberReader::Read(const YAML::Node& map, const std::string& name,
                          const std::string& section,
                          const std::vector<std::string>& others) const {
    Values values;
    if (!map.IsNull()) ReadBelow(MapOf(map, name), name, "", section, others, values);
    RefuseRivals(name, values);
    return values;
}

// `prefix` is "export." below `export:`.
void MemberReader::ReadBelow(const YAML::Node& map, const std::string& below,
                             const std::string& prefix, const std::string& section,
                             const std::vector<std::string>& others, Values& values) const {
    std::vector<std::string> seen;
    for (const auto& entry : map) {
        const std::string key = KeyOf(entry.first, below, seen);
        if (std::find(others.begin(), others.end(), prefix + key) != others.end()) continue;
        std::string shown = below;
        shown.append(".").append(key);
        if (prefix.empty() && IsGroup(key)) {
            ReadBelow(MapOf(entry.second, shown), shown, key + ".", section, others, values);
            continue;
        }
        const Member* member = Find(prefix + key);
        const int line = LineOf(entry.first);
        if (member == nullptr) throw Fault{line, shown + Unknown(prefix, key, others)};
        Value value;
        value.line = line;
        value.section = section;
        value.words = Checked(*member, WordsOf(*member, entry.second, line, shown), line, shown);
        values.emplace_back(member->name, value);
    }
}

std::string MemberReader::Unknown(const std::string& prefix, const std::string& key,
                                  const std::vector<std::string>& others) const {
    if (EndsWith(key, "password") || EndsWith(key, "passwd")) {
        return ": a password does not belong in this file. Put it into a file of its own that "
               "only you can read, and name that with password_file, or let a program print "
               "it with password_command.";
    }
    std::vector<std::string> known = prefix.empty() ? others : std::vector<std::string>();
    for (const Member& member : m_members) {
        if (member.name.compare(0, prefix.size(), prefix) != 0) continue;
        known.push_back(member.name.substr(prefix.size()));
    }
    return ": unknown member." + DidYouMean(key, known);
}

std::vector<std::string> MemberReader::WordsOf(const Member& member, const YAML::Node& node,
                                               int line, const std::string& shown) const {
    if (node.IsNull()) throw Fault{line, shown + " has no value."};
    std::vector<std::string> words;
    if (member.command) {
        if (!node.IsSequence()) {
            throw Fault{line, shown +
                                  " is a list, as no shell takes it apart: [PROGRAM, "
                                  "ARGUMENT, ...]."};
        }
        for (const YAML::Node& word : node) words.push_back(WordOf(word, line, shown));
    } else {
        words.push_back(WordOf(node, line, shown));
    }
    return words;
}

std::vector<std::string> MemberReader::Checked(const Member& member, std::vector<std::string> words,
                                               int line, const std::string& shown) const {
    if (words.empty() || words.front().empty()) throw Fault{line, shown + " is empty."};
    if (member.path) words.front() = FullPath(words.front(), line, shown);
    const std::string fault = member.check ? member.check(words) : "";
    if (!fault.empty()) throw Fault{line, shown + fault};
    return words;
}

// The value is not repeated: it may be a password in the wrong place.
std::string MemberReader::FullPath(const std::string& path, int line,
                                   const std::string& shown) const {
    if (path.front() == '/') return path;
    if (path.rfind("~/", 0) != 0) {
        throw Fault{line, shown + " is no absolute path, and does not begin with ~/."};
    }
    if (m_home.empty()) throw Fault{line, shown + ": this user has no home folder for ~/."};
    return m_home + path.substr(1);
}

void MemberReader::RefuseRivals(const std::string& name, const Values& values) const {
    for (const auto& [member, value] : values) {
        const std::vector<std::string> rivals = RivalsOf(member, m_members);
        for (const auto& [other, later] : values) {
            if (std::find(rivals.begin(), rivals.end(), other) == rivals.end()) continue;
            std::string text = name;
            text.append(": of ").append(member).append(" and ").append(other);
            throw Fault{std::max(value.line, later.line),
                        text + " only one can stand in a section."};
        }
    }
}

std::vector<std::string> RivalsOf(const std::string& name, const std::vector<Member>& members) {
    const auto named = std::find_if(members.begin(), members.end(),
                                    [&](const Member& member) { return member.name == name; });
    std::vector<std::string> rivals;
    for (const Member& member : members) {
        const bool same = named != members.end() && member.oneOf == named->oneOf;
        if (same && !member.oneOf.empty() && member.name != name) rivals.push_back(member.name);
    }
    return rivals;
}

const Member* MemberReader::Find(const std::string& name) const {
    for (const Member& member : m_members) {
        if (member.name == name) return &member;
    }
    return nullptr;
}

bool MemberReader::IsGroup(const std::string& key) const {
    return std::any_of(m_members.begin(), m_members.end(), [&key](const Member& member) {
        return member.name.rfind(key + ".", 0) == 0;
    });
}

}  // namespace Kemffdc::Config
