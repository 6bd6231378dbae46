// SPDX-License-Identifier: Apache-2.0
#include "GlobalConfig.h"

#include <array>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>

#include "Log.h"

namespace {

constexpr char kLogSource[] = "platform/src/GlobalConfig";
constexpr char kSystemFile[] = "/etc/varnex/global.ini";
constexpr std::size_t kLargestFile = 1024UL * 1024;  // bytes

struct Setting {
    std::string value;
    std::string where;  // for the operator
};

std::optional<std::string> Environment(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

void Warn(const std::string& text) { Log(2, kLogSource, __LINE__).Stream() << text; }

std::optional<std::string> FileText(const std::string& path, bool mustExist) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 4096> piece;  // settings are asked for at each request, and files are small
    while (file && text.size() <= kLargestFile) {
        file.read(piece.data(), piece.size());
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad()) {  // a folder opens, and fails to be read
        if (mustExist || errno != ENOENT) {
            Warn("Configuration file " + path + " cannot be read: " + std::strerror(errno));
        }
        return std::nullopt;
    }
    if (text.size() > kLargestFile) {
        Warn("Configuration file " + path + " is larger than 1 MiB and not read.");
        return std::nullopt;
    }
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);  // byte order mark
    return text;
}

std::optional<Setting> FromFile(const std::string& path, const std::string& key, bool mustExist) {
    const std::optional<std::string> text = FileText(path, mustExist);
    if (!text) return std::nullopt;
    boost::property_tree::ptree tree;
    try {
        std::istringstream stream(*text);
        boost::property_tree::read_ini(stream, tree);
    } catch (const boost::property_tree::ini_parser_error& error) {
        Warn("Configuration file " + path + ", line " + std::to_string(error.line()) + ": " +
             error.message() + "; the file is not used.");
        return std::nullopt;
    }
    // find() and not get(): a dot in a key does not descend into a section.
    const auto found = tree.find(key);
    if (found == tree.not_found() || !found->second.empty()) return std::nullopt;
    return Setting{found->second.data(), path};
}

std::optional<Setting> Find(const std::string& key) {
    const std::string variable = "VARNEX_" + key;
    if (const auto value = Environment(variable)) {
        return Setting{*value, "environment variable " + variable};
    }
    const std::string path = Environment("VARNEX_CONFIG").value_or("");
    if (!path.empty()) {
        if (auto setting = FromFile(path, key, true)) return setting;
    }
    return FromFile(kSystemFile, key, false);
}

std::optional<int> ToInteger(const std::string& text) {
    constexpr char kBlanks[] = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return std::nullopt;
    const char* begin = text.data() + first;
    const char* end = text.data() + text.find_last_not_of(kBlanks) + 1;
    if (*begin == '+' && end - begin > 1 && begin[1] != '-') ++begin;
    int number = 0;
    const auto result = std::from_chars(begin, end, number);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return number;
}

int Lookup(const std::string& key, int defaultValue) {
    const std::optional<Setting> setting = Find(key);
    if (!setting) return defaultValue;
    if (const auto number = ToInteger(setting->value)) return *number;
    Warn("Configuration value \"" + setting->value + "\" of " + key + " is no integer (" +
         setting->where + "); " + std::to_string(defaultValue) + " is used.");
    return defaultValue;
}

}  // namespace

int varnex_platform::GetGlobalConfigValue(const std::string& key, int defaultValue) {
    try {
        return Lookup(key, defaultValue);
    } catch (...) {  // no memory for it, for instance
        return defaultValue;
    }
}
