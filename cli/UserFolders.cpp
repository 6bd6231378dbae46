// SPDX-License-Identifier: Apache-2.0
#include "cli/UserFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace Kemffdc {
namespace {

// Relative ones do not count.
std::string AbsoluteVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value == '/' ? value : "";
}

std::string Trimmed(std::string folder) {
    while (!folder.empty() && folder.back() == '/') folder.pop_back();
    return folder;
}

}  // namespace

std::string HomeFolder() {
    const std::string home = AbsoluteVariable("HOME");
    if (!home.empty()) return Trimmed(home);
    std::array<char, 16384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr && found->pw_dir != nullptr ? Trimmed(found->pw_dir) : "";
}

std::string XdgFolder(const char* variable, const char* belowHome) {
    const std::string named = AbsoluteVariable(variable);
    if (!named.empty()) return Trimmed(named);
    const std::string home = HomeFolder();
    return home.empty() ? "" : home + belowHome;
}

}  // namespace Kemffdc
