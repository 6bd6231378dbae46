// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Config.h"

#include <ostream>

#include "cli/ExitCodes.h"
#include "cli/commands/Settings.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

constexpr std::size_t kUnbroken = 100000;  // columns: each setting is one line, fit for grep

void WriteWords(const Options& options, std::ostream& out) {
    for (const ConfigFileSeen& file : options.configFiles) {
        out << "File: " << Clean(file.path) << (file.exists ? "" : " (not there)") << "\n";
    }
    out << "\n";
    WriteSettings(options.held, kUnbroken, out);
    WriteIgnored(options.held, out);
}

json::object ConfigObject(const Options& options) {
    json::array files;
    for (const ConfigFileSeen& file : options.configFiles) {
        files.push_back(json::object{{"path", TextValue(file.path)}, {"exists", file.exists}});
    }
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "config"},
            {"channel", TextOrNull(options.via)},
            {"host", TextOrNull(options.host)},
            {"exit_code", static_cast<int>(options.fault.empty() ? kDone : kUsage)},
            {"reason", TextOrNull(options.fault)},
            {"files", std::move(files)},
            {"settings", SettingObjects(options.held, false)},
            {"ignored", SettingObjects(options.held, true)}};
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
