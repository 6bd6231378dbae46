// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/FolderNames.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace Kemffdc::Fleet {
namespace {

constexpr std::size_t kLongest = 100;

bool IsSafe(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_';
}

std::string SafeName(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !IsSafe(c); }, '_');
    // Neither hidden, nor an option, nor the folder above.
    if (name.empty() || name.front() == '.' || name.front() == '-') name.insert(0, 1, '_');
    return name.substr(0, kLongest);
}

std::string WithoutCase(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

}  // namespace

std::vector<std::string> FolderNames(const std::vector<std::string>& hosts) {
    std::set<std::string> taken{"report.json", "report.csv", "report.html"};
    std::vector<std::string> names;
    names.reserve(hosts.size());
    for (const std::string& host : hosts) {
        const std::string safe = SafeName(host);
        std::string name = safe;
        for (int more = 2; !taken.insert(WithoutCase(name)).second; ++more) {
            const std::string suffix = "-" + std::to_string(more);
            name = safe.substr(0, kLongest - suffix.size()) + suffix;
        }
        names.push_back(std::move(name));
    }
    return names;
}

}  // namespace Kemffdc::Fleet
