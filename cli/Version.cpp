// SPDX-License-Identifier: Apache-2.0
#include "cli/Version.h"

#include <SQLiteCpp/Database.h>
#include <archive.h>

#include <algorithm>
#include <boost/version.hpp>
#include <utility>
#include <vector>

#include "LoadedLibraries.h"
#include "cli/Channels.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kColumn = 14;  // where what is told begins

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string BuiltChannels() {
    std::vector<std::string> names;
    for (const Channel* channel : Channels()) {
        if (channel->built) names.emplace_back(channel->name);
    }
    return Joined(names);
}

// "1_81": also what the loader looks for, as a part of the files' names.
std::string VersionOfBoost() {
    std::string version = BOOST_LIB_VERSION;
    std::replace(version.begin(), version.end(), '_', '.');
    return version;
}

std::string Libraries() {
    std::vector<std::string> libraries;
    for (const Varnex::LoadedLibrary& library : Varnex::LoadedLibraries()) {
        libraries.push_back(library.name + " " + library.version);
    }
    libraries.emplace_back(archive_version_string());
    libraries.push_back(std::string("SQLite ") + SQLite::getLibVersion());
    libraries.push_back("Boost " + VersionOfBoost());
    return Joined(libraries);
}

std::string IpmiModule() {
    if (!KEMFFDC_IPMI_BUILT) return "left out of this build (VARNEX_IPMI=OFF)";
    const Varnex::IpmiModuleDescription module = Varnex::DescribeIpmiModule();
    if (!module.why.empty()) return module.why;
    return module.library + ", under " + module.licence + " as a whole";
}

}  // namespace

std::string VersionText(const std::string& builtFrom) {
    const std::pair<std::string, std::string> lines[] = {
        {"built from:", builtFrom},     {"licence:", "Apache-2.0"},
        {"channels:", BuiltChannels()}, {"CIM client:", KEMFFDC_CIM_CLIENT},
        {"IPMI module:", IpmiModule()}, {"libraries:", Libraries()},
    };
    std::string text = "kemffdc " KEMFFDC_VERSION "\n";
    for (const auto& [name, told] : lines) {
        text.append(name).append(kColumn - name.size(), ' ').append(told).append("\n");
    }
    return text;
}

}  // namespace Kemffdc
