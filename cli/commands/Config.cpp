// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Config.h"

#include <algorithm>
#include <ostream>

#include "cli/ExitCodes.h"
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
        case Origin::kCommandLine:
            return "command-line";
    }
    return "";
}

bool IsFile(const Setting& setting) {
    return setting.origin == Origin::kSystemFile || setting.origin == Origin::kUserFile;
}

// "/etc/kemffdc/kemffdc.conf:12 (hosts "10.1.*")"
std::string From(const Setting& setting) {
    if (setting.origin == Origin::kDefault) return "default";
    if (setting.origin == Origin::kCommandLine) return "command line";
    if (setting.origin == Origin::kEnvironment) return "environment, " + setting.place;
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

void WriteWords(const Options& options, std::ostream& out) {
    for (const ConfigFileSeen& file : options.configFiles) {
        out << "File: " << Clean(file.path) << (file.exists ? "" : " (not there)") << "\n";
    }
    out << "\n";
    for (const HeldSetting& held : options.held) {
        if (held.ignored) continue;
        out << Column(held.name, kNameColumns) << Column(Shown(held), kValueColumns)
            << Clean(From(held.setting)) << "\n";
    }
    const bool anyIgnored = std::any_of(options.held.begin(), options.held.end(),
                                        [](const HeldSetting& held) { return held.ignored; });
    if (!anyIgnored) return;
    out << "\nLeft out, as they do not fit here:\n";
    for (const HeldSetting& held : options.held) {
        if (held.ignored) {
            out << Column(held.name, kNameColumns) << Clean(From(held.setting)) << "\n";
        }
    }
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

json::object ConfigObject(const Options& options) {
    json::array files;
    for (const ConfigFileSeen& file : options.configFiles) {
        files.push_back(json::object{{"path", TextValue(file.path)}, {"exists", file.exists}});
    }
    json::array settings;
    json::array ignored;
    for (const HeldSetting& held : options.held) {
        (held.ignored ? ignored : settings).push_back(SettingObject(held));
    }
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "config"},
            {"channel", TextOrNull(options.via)},
            {"host", TextOrNull(options.host)},
            {"exit_code", static_cast<int>(options.fault.empty() ? kDone : kUsage)},
            {"reason", TextOrNull(options.fault)},
            {"files", std::move(files)},
            {"settings", std::move(settings)},
            {"ignored", std::move(ignored)}};
}

}  // namespace

int ShowConfig(const Options& options, std::ostream& out, std::ostream& err) {
    if (options.json || options.events) {
        out << JsonText(ConfigObject(options)) << "\n";
    } else {
        WriteWords(options, out);
    }
    if (options.fault.empty()) return kDone;
    err << "kemffdc: collect would refuse this: " << Clean(options.fault) << "\n";
    return kUsage;
}

}  // namespace Kemffdc
