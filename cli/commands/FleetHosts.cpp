// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/FleetHosts.h"

#include <algorithm>
#include <boost/json.hpp>
#include <map>
#include <ostream>

#include "cli/ExitCodes.h"
#include "cli/commands/Settings.h"
#include "cli/fleet/HostRange.h"
#include "cli/fleet/Plan.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

using Fleet::Plan;
using Fleet::PlannedHost;

constexpr std::size_t kColumns = 80;
constexpr std::size_t kPlaceGrows = 16;
constexpr std::size_t kWidest = 32;  // of a column of names

// The names of the hosts in each group, and those in none behind "".
std::map<std::string, std::vector<std::string>> GroupsOf(const Plan& plan) {
    std::map<std::string, std::vector<std::string>> groups;
    for (const PlannedHost& host : plan.hosts) {
        for (const std::string& group : host.groups) groups[group].push_back(host.name);
        if (host.groups.empty()) groups[""].push_back(host.name);
    }
    return groups;
}

std::string Counted(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " BMC" : " BMCs");
}

// A folded list on lines that end behind a comma outside of brackets, or inside where one bracket
// alone fills a line. All but the first are indented.
std::string Wrapped(const std::string& folded, std::size_t indent) {
    std::string text;
    std::size_t column = indent;
    for (std::size_t at = 0; at < folded.size();) {
        const std::size_t end = std::min(folded.find(',', at), folded.size() - 1) + 1;
        if (column > indent && column + end - at > kColumns) {
            text += "\n" + std::string(indent, ' ');
            column = indent;
        }
        text += folded.substr(at, end - at);
        column += end - at;
        at = end;
    }
    return text;
}

std::string Column(std::string text, std::size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text + "  ";
}

template <class Text>
std::size_t Width(const std::vector<PlannedHost>& hosts, const char* title, const Text& text) {
    std::size_t width = std::string(title).size();
    for (const PlannedHost& host : hosts) width = std::max(width, text(host).size());
    return std::min(width, kWidest);
}

void WriteGroups(const Plan& plan, std::ostream& out) {
    const bool some = plan.hosts.size() != plan.all;
    out << (plan.inventory.empty() ? "" : Clean(plan.inventory) + ": ")
        << (some ? std::to_string(plan.hosts.size()) + " of " : "") << Counted(plan.all) << "\n";
    for (const auto& [group, names] : GroupsOf(plan)) {
        const std::string title = (group.empty() ? "in no group" : "group " + Clean(group)) + ": ";
        out << "  " << title << Wrapped(Fleet::FoldHosts(names), title.size() + 2) << "\n";
    }
}

void WriteTable(const Plan& plan, std::ostream& out) {
    const auto name = [](const PlannedHost& host) { return host.name; };
    const auto address = [](const PlannedHost& host) { return host.host; };
    const std::size_t names = Width(plan.hosts, "NAME", name);
    const std::size_t addresses = Width(plan.hosts, "ADDRESS", address);
    out << "\n" << Column("NAME", names) << Column("ADDRESS", addresses) << "CHANNEL  CREDENTIAL\n";
    for (const PlannedHost& host : plan.hosts) {
        out << Column(host.name, names) << Column(host.host, addresses) << Column(host.channel, 7)
            << (host.credential.empty() ? "-" : Clean(host.credential)) << "\n";
    }
}

std::string WithoutLine(const std::string& place) {
    return place.substr(0, place.find_last_of(':'));
}

// What two BMCs have in common that are shown together.
std::string KeyOf(const std::vector<HeldSetting>& held) {
    std::string key;
    for (const HeldSetting& one : held) {
        const Setting& setting = one.setting;
        for (const std::string& part :
             {one.name, one.value, setting.section, WithoutLine(setting.place),
              std::string(one.ignored ? "ignored" : "")}) {
            key += part + '\n';
        }
    }
    return key;
}

// BMCs whose settings differ in their lines alone.
struct Alike {
    std::vector<std::string> names;
    std::vector<HeldSetting> held;
    std::vector<std::vector<std::string>> places;  // of each setting, one for each BMC
};

std::vector<Alike> AlikeOnes(const Plan& plan) {
    std::vector<Alike> all;
    std::map<std::string, std::size_t> known;
    for (const PlannedHost& host : plan.hosts) {
        std::vector<HeldSetting> said;
        for (const HeldSetting& held : host.held) {
            if (held.setting.origin != Origin::kDefault) said.push_back(held);
        }
        const auto [at, isNew] = known.emplace(KeyOf(said), all.size());
        if (isNew) all.push_back({{}, said, std::vector<std::vector<std::string>>(said.size())});
        Alike& alike = all[at->second];
        alike.names.push_back(host.name);
        for (std::size_t i = 0; i < said.size(); ++i) {
            alike.places[i].push_back(said[i].setting.place);
        }
    }
    return all;
}

// "rack.csv:[2-41]", or the first one and how many follow.
std::string Folded(const std::vector<std::string>& places) {
    std::string folded = Fleet::FoldHosts(places);
    if (folded.size() <= places.front().size() + kPlaceGrows) return folded;
    return places.front() + " and " + std::to_string(places.size() - 1) + " more";
}

void WriteAlike(Alike& alike, std::ostream& out) {
    out << "\n" << Wrapped(Fleet::FoldHosts(alike.names), 0) << "\n";
    if (alike.held.empty()) out << "  (nothing is set)\n";
    for (std::size_t i = 0; i < alike.held.size(); ++i) {
        alike.held[i].setting.place = Folded(alike.places[i]);
    }
    WriteSettings(alike.held, kColumns, out);
    WriteIgnored(alike.held, out);
}

void WriteWords(const Plan& plan, std::ostream& out) {
    WriteGroups(plan, out);
    WriteTable(plan, out);
    for (Alike& alike : AlikeOnes(plan)) WriteAlike(alike, out);
    out << "\nAll else is so by default: kemffdc config HOST shows it.\n";
}

json::array Texts(const std::vector<std::string>& texts) {
    json::array array;
    for (const std::string& text : texts) array.push_back(TextValue(text));
    return array;
}

json::object HostObject(const PlannedHost& host) {
    return {{"name", TextValue(host.name)},
            {"host", TextValue(host.host)},
            {"channel", TextValue(host.channel)},
            {"groups", Texts(host.groups)},
            {"credential", TextOrNull(host.credential)},
            {"place", TextOrNull(host.place)},
            {"settings", SettingObjects(host.held, false)},
            {"ignored", SettingObjects(host.held, true)}};
}

json::object ObjectOf(const Plan& plan, const Outcome& outcome) {
    json::array groups;
    for (const auto& [group, names] : GroupsOf(plan)) {
        if (group.empty()) continue;
        groups.push_back(json::object{{"name", TextValue(group)},
                                      {"count", names.size()},
                                      {"hosts", TextValue(Fleet::FoldHosts(names))}});
    }
    json::array hosts;
    if (outcome.Ok()) {
        for (const PlannedHost& host : plan.hosts) hosts.push_back(HostObject(host));
    }
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "fleet hosts"},
            {"inventory", TextOrNull(plan.inventory)},
            {"credentials", TextOrNull(plan.credentials)},
            {"exit_code", static_cast<int>(outcome.code)},
            {"reason", TextOrNull(outcome.reason)},
            {"notes", Texts(plan.notes)},
            {"all", plan.all},
            {"groups", std::move(groups)},
            {"hosts", std::move(hosts)}};
}

}  // namespace

int ShowFleetHosts(const Options& options, std::ostream& out, std::ostream& err) {
    Plan plan;
    const Outcome outcome = Fleet::MakePlan(options, plan);
    for (const std::string& note : plan.notes) err << "kemffdc: " << note << "\n";
    WriteReason(outcome, err);
    if (options.json) {
        out << JsonText(ObjectOf(plan, outcome)) << "\n";
    } else if (outcome.Ok()) {
        WriteWords(plan, out);
    }
    return outcome.code;
}

}  // namespace Kemffdc
