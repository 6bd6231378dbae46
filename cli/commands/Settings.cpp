// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Settings.h"

#include <algorithm>
#include <ostream>

#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

constexpr std::size_t kNameColumns = 24;
constexpr std::size_t kValueColumns = 20;

const char* OriginName(Origin origin) {
    switch (origin) {
        case Origin::kDefault:
            return "default";
        case Origin::kSystemFile:
            return "system-file";
        case Origin::kUserFile:
            return "user-file";
        case Origin::kEnvironment:
            return "environment";
        case Origin::kInventory:
            return "inventory";
        case Origin::kCommandLine:
            return "command-line";
    }
    return "";
}

bool IsFile(const Setting& setting) {
    return setting.origin == Origin::kSystemFile || setting.origin == Origin::kUserFile ||
           setting.origin == Origin::kInventory;
}

// "/etc/kemffdc/kemffdc.conf:12 (hosts "10.1.*")"
std::string From(const Setting& setting) {
    if (setting.origin == Origin::kDefault) return "default";
    if (setting.origin == Origin::kCommandLine) return "command line";
    if (setting.origin == Origin::kEnvironment) return "environment, " + setting.place;
    if (setting.section.empty()) return setting.place;
    if (setting.origin == Origin::kInventory) return setting.place + " (" + setting.section + ")";
    const bool defaults = setting.section == "defaults";
    return setting.place + " (" + (defaults ? "defaults" : "hosts \"" + setting.section + "\"") +
           ")";
}

// What stands for a value that there is not.
std::string Shown(const HeldSetting& held) {
    if (!held.value.empty()) return Clean(held.value);
    return held.setting.origin == Origin::kDefault ? "-" : "(set)";
}

std::string Column(std::string text, std::size_t columns) {
    if (text.size() < columns) text.resize(columns, ' ');
    return text + " ";
}

// A place that is too far to the right stands on a line of its own.
std::string LineOf(const HeldSetting& held, std::size_t columns) {
    const std::string from = Clean(From(held.setting));
    std::string line = Column(held.name, kNameColumns) + Column(Shown(held), kValueColumns);
    if (line.size() + from.size() > columns) line += "\n" + std::string(kNameColumns + 1, ' ');
    return line + from + "\n";
}

json::object SettingObject(const HeldSetting& held) {
    const Setting& setting = held.setting;
    json::object object{{"name", held.name}};
    if (!held.ignored) object["value"] = TextOrNull(held.value);
    object["origin"] = OriginName(setting.origin);
    object["place"] = TextOrNull(setting.place);
    object["section"] = TextOrNull(IsFile(setting) ? setting.section : "");
    return object;
}

}  // namespace

void WriteSettings(const std::vector<HeldSetting>& held, std::size_t columns, std::ostream& out) {
    for (const HeldSetting& one : held) {
        if (!one.ignored) out << LineOf(one, columns);
    }
}

void WriteIgnored(const std::vector<HeldSetting>& held, std::ostream& out) {
    const bool any =
        std::any_of(held.begin(), held.end(), [](const HeldSetting& one) { return one.ignored; });
    if (!any) return;
    out << "\nLeft out, as they do not fit here:\n";
    for (const HeldSetting& one : held) {
        if (one.ignored) {
            out << Column(one.name, kNameColumns) << Clean(From(one.setting)) << "\n";
        }
    }
}

json::array SettingObjects(const std::vector<HeldSetting>& held, bool ignored) {
    json::array objects;
    for (const HeldSetting& one : held) {
        if (one.ignored == ignored) objects.push_back(SettingObject(one));
    }
    return objects;
}

}  // namespace Kemffdc
