// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Inventory.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <sstream>
#include <unordered_map>

#include "Ipmanip.h"
#include "cli/Nearest.h"
#include "cli/config/TextFile.h"
#include "cli/fleet/Csv.h"
#include "cli/fleet/HostRange.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxBytes = std::size_t{16} << 20;
constexpr std::size_t kMaxYaml = std::size_t{4} << 20;  // a tree takes a hundred times as much
constexpr std::size_t kMaxColumns = 1000;
constexpr std::size_t kMaxName = 200;  // bytes; a folder gets that name

const std::vector<std::string> kHostMembers{"address", "credential", "group"};

std::vector<std::string> WordsIn(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsNameByte(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_' ||
           c == ':' || c == '%' || static_cast<unsigned char>(c) >= 0x80;
}

// A name becomes that of a folder, and an address a word of a command line.
std::string WhatIsWrongWith(const std::string& name) {
    if (name.empty() || name.size() > kMaxName) return "is empty or longer than 200 bytes";
    if (!std::all_of(name.begin(), name.end(), IsNameByte)) {
        return "holds other bytes than letters, digits, \".\", \"-\", \"_\" and \":\"";
    }
    return name[0] == '-' || name[0] == '.' ? "begins with a dash or a dot" : "";
}

// Collects hosts, each name once.
class Collector {
public:
    Collector(Inventory& inventory, Faults& faults) : m_inventory(inventory), m_faults(faults) {}

    // A row: `host` with a range for its name, and an empty one or a range for its address.
    void Add(const Host& host) {
        std::vector<std::string> names;
        std::vector<std::string> addresses;
        if (m_inventory.tooLong || !Expand("name", host.name, host.line, names)) return;
        const std::string& address = host.address.empty() ? host.name : host.address;
        if (!Expand("address", address, host.line, addresses)) return;
        if (names.size() != addresses.size()) {
            m_faults.Add(host.line, "name: \"" + host.name + "\" is " +
                                        std::to_string(names.size()) + " hosts, its address " +
                                        std::to_string(addresses.size()) + ".");
            return;
        }
        m_named += names.size();
        if (m_named > kMaxHosts) return TooMany(host.line);
        for (std::size_t i = 0; i < names.size(); ++i) {
            Host one = host;
            one.name = names[i];
            one.address = addresses[i];
            if (IsNew(one)) m_inventory.hosts.push_back(std::move(one));
        }
    }

private:
    bool Expand(const char* what, const std::string& text, int line,
                std::vector<std::string>& found) {
        std::string error;
        if (!ExpandHosts(text, found, error)) {
            m_faults.Add(line, std::string(what) + ": " + error + ".");
            return false;
        }
        for (const std::string& one : found) {
            const std::string wrong = WhatIsWrongWith(one);
            if (wrong.empty()) continue;
            std::string fault = what;
            fault.append(": \"").append(one).append("\" ").append(wrong);
            m_faults.Add(line, fault + ".");
            return false;
        }
        return true;
    }

    void TooMany(int line) {
        m_inventory.tooLong = true;
        m_faults.Add(line, "more than " + std::to_string(kMaxHosts) + " hosts.");
    }

    bool IsNew(const Host& host) {
        const auto [known, isNew] = m_names.emplace(host.name, host.line);
        if (!isNew) {
            m_faults.Add(host.line, "name: \"" + host.name + "\" stands in line " +
                                        std::to_string(known->second) + " already.");
        }
        return isNew;
    }

    Inventory& m_inventory;
    Faults& m_faults;
    std::unordered_map<std::string, int> m_names;  // with their lines
    std::size_t m_named = 0;                       // also those that stood there already
};

// The rows of a spreadsheet as hosts.
class Table {
public:
    Table(const std::string& home, const std::vector<Config::Member>& members, Inventory& inventory,
          Faults& faults)
        : m_reader(home, members),
          m_members(members),
          m_inventory(inventory),
          m_faults(faults),
          m_collector(inventory, faults) {}

    void Read(const std::vector<CsvRow>& rows) {
        if (rows.empty()) {
            m_faults.Add(1, "no row: the first one names the columns, name, address, via ...");
            return;
        }
        if (!ReadHead(rows.front())) return;
        for (std::size_t i = 1; i < rows.size() && !m_inventory.tooLong; ++i) ReadRow(rows[i]);
    }

private:
    // Whether rows can be read by it.
    bool ReadHead(const CsvRow& row) {
        if (row.fields.size() > kMaxColumns) {
            m_faults.Add(row.line, "more than " + std::to_string(kMaxColumns) + " columns.");
            return false;
        }
        for (const std::string& column : row.fields) ReadColumn(row.line, column);
        const bool named = IsColumn("name");
        if (!named) m_faults.Add(row.line, "there is no column \"name\".");
        return named;
    }

    void ReadColumn(int line, const std::string& column) {
        const std::string shown = "column \"" + Clean(column, kMaxName) + "\"";
        const bool twice = !column.empty() && IsColumn(column);
        if (twice) m_faults.Add(line, shown + " stands there twice.");
        if (EndsWith(column, "password")) {
            m_faults.Add(line, shown +
                                   ": a password does not belong in this file. Name a "
                                   "credential in its place.");
        }
        m_columns.push_back(column);
        if (column.empty() || IsKnown(column)) return;
        m_inventory.notes.push_back(m_inventory.path + ":" + std::to_string(line) + ": " + shown +
                                    " is not known and is passed over." +
                                    DidYouMean(column, Known()));
    }

    bool IsColumn(const std::string& column) const {
        return std::find(m_columns.begin(), m_columns.end(), column) != m_columns.end();
    }

    std::vector<std::string> Known() const {
        std::vector<std::string> known = kHostMembers;
        known.emplace_back("name");
        for (const Config::Member& member : m_members) known.push_back(member.name);
        return known;
    }

    bool IsKnown(const std::string& column) const {
        const std::vector<std::string> known = Known();
        return std::find(known.begin(), known.end(), column) != known.end();
    }

    void ReadRow(const CsvRow& row) {
        if (row.fields.size() > m_columns.size()) {
            m_faults.Add(row.line, std::to_string(row.fields.size()) + " fields, and " +
                                       std::to_string(m_columns.size()) + " columns.");
            return;
        }
        Host host;
        host.line = row.line;
        try {
            for (std::size_t i = 0; i < row.fields.size(); ++i) {
                Take(m_columns[i], row.fields[i], host);
            }
            m_reader.RefuseRivals("The row", {host.settings.begin(), host.settings.end()});
        } catch (const Config::Fault& fault) {
            m_faults.Add(fault.line, fault.text);
            return;
        }
        m_collector.Add(host);
    }

    // Throws Config::Fault.
    void Take(const std::string& column, const std::string& text, Host& host) {
        if (HasControl(text) && IsKnown(column)) {
            throw Config::Fault{host.line, column + " holds control bytes."};
        }
        if (column == "name") host.name = text;
        if (column == "address") host.address = text;
        if (column == "credential") host.credential = text;
        if (column == "group") host.groups = WordsIn(text);
        const auto member =
            std::find_if(m_members.begin(), m_members.end(),
                         [&column](const Config::Member& known) { return known.name == column; });
        if (member == m_members.end() || text.empty()) return;
        Config::Value value;
        value.line = host.line;
        value.words = m_reader.Checked(*member, {text}, host.line, column);
        host.settings[column] = value;
    }

    const Config::MemberReader m_reader;
    const std::vector<Config::Member>& m_members;
    Inventory& m_inventory;
    Faults& m_faults;
    Collector m_collector;
    std::vector<std::string> m_columns;
};

// Walks the tree that the YAML library has read. Throws Config::Fault where nothing below a place
// can be understood; what is wrong with one group or one BMC goes to `faults`.
class Walker {
public:
    Walker(const std::string& home, const std::vector<Config::Member>& members,
           Inventory& inventory, Faults& faults)
        : m_reader(home, members),
          m_members(members),
          m_inventory(inventory),
          m_faults(faults),
          m_collector(inventory, faults) {}

    void Walk(const YAML::Node& root) {
        std::vector<std::string> seen;
        YAML::Node groups;
        YAML::Node hosts;
        for (const auto& entry : Config::MapOf(root, "The inventory")) {
            const std::string key = Config::KeyOf(entry.first, "", seen);
            if (key == "defaults") {
                ReadShared(entry.second, key, m_defaults);
            } else if (key == "groups") {
                groups.reset(entry.second);
            } else if (key == "hosts") {
                hosts.reset(entry.second);
            } else if (key == "credentials") {
                m_inventory.credentials = Word(entry.second, key);
            } else {
                throw Config::Fault{
                    Config::LineOf(entry.first),
                    key + ": unknown member." +
                        DidYouMean(key, {"defaults", "groups", "hosts", "credentials"})};
            }
        }
        if (!groups.IsNull()) WalkGroups(groups);
        if (!hosts.IsNull()) WalkHosts(hosts, "hosts", m_defaults);
    }

private:
    static std::string Word(const YAML::Node& node, const std::string& name) {
        if (node.IsScalar() && HasControl(node.Scalar())) {
            throw Config::Fault{Config::LineOf(node), name + " holds control bytes."};
        }
        if (node.IsScalar() && !node.Scalar().empty()) return node.Scalar();
        throw Config::Fault{Config::LineOf(node), name + " is one word."};
    }

    // Members of hosts and of kemffdc.conf, over what `host` has already.
    void ReadShared(const YAML::Node& map, const std::string& name, Host& host,
                    const std::vector<std::string>& others = kHostMembers) {
        for (const auto& [member, value] : m_reader.Read(map, name, name, others)) {
            for (const std::string& rival : Config::RivalsOf(member, m_members)) {
                host.settings.erase(rival);
            }
            host.settings[member] = value;
        }
        if (!map.IsMap()) return;
        for (const auto& entry : map) {
            const std::string& key = entry.first.Scalar();
            std::string shown = name;
            shown.append(".").append(key);
            if (key == "address") host.address = Word(entry.second, shown);
            if (key == "credential") host.credential = Word(entry.second, shown);
            if (key != "group") continue;
            for (const std::string& word : WordsIn(Word(entry.second, shown))) {
                host.groups.push_back(word);
            }
        }
    }

    void WalkGroups(const YAML::Node& groups) {
        std::vector<std::string> seen;
        for (const auto& entry : Config::MapOf(groups, "groups")) {
            const std::string group = Config::KeyOf(entry.first, "groups", seen);
            Noting([&] { WalkGroup(group, entry.second); });
        }
    }

    void WalkGroup(const std::string& group, const YAML::Node& members) {
        Host shared = m_defaults;
        shared.groups.push_back(group);
        std::vector<std::string> others = kHostMembers;
        others.emplace_back("hosts");
        const std::string name = "groups." + group;
        Noting([&] { ReadShared(members, name, shared, others); });
        if (!members.IsMap()) return;
        const YAML::Node hosts = members["hosts"];
        if (hosts.IsDefined() && !hosts.IsNull()) WalkHosts(hosts, name + ".hosts", shared);
    }

    void Noting(const std::function<void()>& read) {
        try {
            read();
        } catch (const Config::Fault& fault) {
            m_faults.Add(fault.line, fault.text);
        }
    }

    void WalkHosts(const YAML::Node& hosts, const std::string& name, const Host& shared) {
        if (hosts.IsScalar()) return AddHost(hosts, YAML::Node(), name, shared);
        if (hosts.IsSequence()) {
            for (const YAML::Node& one : hosts) {
                Noting([&] { AddHost(one, YAML::Node(), name, shared); });
            }
            return;
        }
        std::vector<std::string> seen;
        for (const auto& entry : Config::MapOf(hosts, name)) {
            Noting([&] {
                Config::KeyOf(entry.first, name, seen);
                AddHost(entry.first, entry.second, name, shared);
            });
        }
    }

    void AddHost(const YAML::Node& node, const YAML::Node& members, const std::string& name,
                 const Host& shared) {
        Host host = shared;
        host.name = Word(node, "a name in " + name);
        host.line = Config::LineOf(node);
        if (!members.IsNull()) ReadShared(members, name + "." + host.name, host);
        m_collector.Add(host);
    }

    const Config::MemberReader m_reader;
    const std::vector<Config::Member>& m_members;
    Inventory& m_inventory;
    Faults& m_faults;
    Collector m_collector;
    Host m_defaults;
};

// As a path of its own: an inventory means it from its own folder.
std::string FullPath(const std::string& path, const std::string& inventory,
                     const std::string& home) {
    if (path.rfind("~/", 0) == 0 && !home.empty()) return home + path.substr(1);
    return fs::absolute(fs::path(inventory).parent_path() / path).lexically_normal().string();
}

void ReadTable(const std::string& text, const std::string& home,
               const std::vector<Config::Member>& members, Inventory& inventory, Faults& faults) {
    std::vector<CsvRow> rows;
    int line = 0;
    std::string error;
    if (ReadCsv(text, rows, line, error)) {
        Table(home, members, inventory, faults).Read(rows);
    } else {
        faults.Add(line, error + ".");
    }
}

}  // namespace

Outcome ReadInventory(const std::string& path, const std::string& home,
                      const std::vector<Config::Member>& members, Inventory& inventory,
                      Faults& faults) {
    Config::TextFile file;
    file.what = "inventory";
    file.path = path;
    const bool table = EndsWith(path, ".csv");
    Outcome outcome = Config::ReadTextFile(table ? kMaxBytes : kMaxYaml, file);
    if (!outcome.Ok()) return outcome;
    if (!file.exists) return file.Unusable("does not exist.");
    inventory.path = path;
    if (table) {
        ReadTable(file.text, home, members, inventory, faults);
    } else {
        const std::string fault = Config::ParseYaml(path, file.text, [&](const YAML::Node& root) {
            Walker(home, members, inventory, faults).Walk(root);
        });
        if (!fault.empty()) return Failure(kUsage, fault);
    }
    if (inventory.hosts.empty() && faults.None()) faults.Add(1, "there is no host in it.");
    if (!inventory.credentials.empty()) {
        inventory.credentials = FullPath(inventory.credentials, path, home);
    }
    return outcome;
}

void HostsOf(const std::string& expression, Inventory& inventory, Faults& faults) {
    Host host;
    std::vector<std::string> names;
    std::string error;
    if (!ExpandHosts(expression, names, error)) return faults.Add(0, "--hosts: " + error + ".");
    for (const std::string& one : names) {
        const std::string wrong = WhatIsWrongWith(one);
        if (!wrong.empty()) {
            std::string text = "--hosts: \"";
            faults.Add(0, text.append(one).append("\" ").append(wrong) + ".");
            continue;
        }
        host.name = host.address = one;
        inventory.hosts.push_back(host);
    }
}

}  // namespace Kemffdc::Fleet
