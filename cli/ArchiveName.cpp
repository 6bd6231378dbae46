// SPDX-License-Identifier: Apache-2.0
#include "cli/ArchiveName.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxHost = 60;
constexpr std::size_t kMaxSerial = 40;
constexpr std::size_t kMaxName = 120;
constexpr std::size_t kMaxAll = 200;
constexpr std::size_t kMaxTemplate = 100;
constexpr std::size_t kMaxExtension = 16;
constexpr const char* kFields[] = {"{host}", "{serial}", "{utc}", "{name}"};

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '+' || c == '-';
}

std::string MadeSafe(const std::string& text) {
    std::string safe;
    for (const char c : text) safe.push_back(IsPlain(c) ? c : '_');
    return safe.substr(std::min(safe.find_first_not_of(".-"), safe.size()));
}

std::string LastComponent(const std::string& path) {
    return path.substr(path.find_last_of("/\\") + 1);
}

// The end is kept: there stands the extension.
std::string Tail(const std::string& text, std::size_t length) {
    return text.size() <= length ? text : MadeSafe(text.substr(text.size() - length));
}

std::string OrElse(const std::string& text, const char* otherwise) {
    return text.empty() ? otherwise : text;
}

// ".tar.gz", ".tgz"; empty where there is none.
std::string Extension(const std::string& name) {
    const std::size_t tar = name.rfind(".tar.");
    const std::size_t dot = tar != std::string::npos ? tar : name.rfind('.');
    if (dot == std::string::npos || name.size() - dot > kMaxExtension) return "";
    return name.substr(dot);
}

// The field that begins at `at`; empty where none does.
std::string FieldAt(const std::string& text, std::size_t at) {
    for (const char* field : kFields) {
        if (text.compare(at, std::strlen(field), field) == 0) return field;
    }
    return "";
}

}  // namespace

std::string CheckNameTemplate(const std::string& text) {
    if (text.size() > kMaxTemplate) return " is longer than 100 characters.";
    for (std::size_t at = 0; at < text.size();) {
        const std::string field = FieldAt(text, at);
        if (field.empty() && !IsPlain(text[at])) {
            return text[at] == '{' || text[at] == '}'
                       ? " knows the fields {host}, {serial}, {utc} and {name} alone."
                       : " holds something else than fields, letters, digits, \".\", \"_\", \"+\" "
                         "and \"-\".";
        }
        at += std::max<std::size_t>(field.size(), 1);
    }
    return "";
}

std::string ArchiveName(const std::string& pattern, const NameFields& fields) {
    const std::string name = OrElse(Tail(MadeSafe(LastComponent(fields.name)), kMaxName), "ffdc");
    const std::string values[] = {
        OrElse(MadeSafe(fields.host).substr(0, kMaxHost), "bmc"),
        OrElse(MadeSafe(fields.serial).substr(0, kMaxSerial), "unknown"),
        fields.utc,
        name,
    };
    std::string all;
    for (std::size_t at = 0; at < pattern.size();) {
        const std::string field = FieldAt(pattern, at);
        const auto number = std::find(std::begin(kFields), std::end(kFields), field);
        all += field.empty() ? pattern.substr(at, 1) : values[number - std::begin(kFields)];
        at += std::max<std::size_t>(field.size(), 1);
    }
    if (pattern.find("{name}") == std::string::npos) all += Extension(name);
    return OrElse(Tail(MadeSafe(all), kMaxAll), "ffdc");
}

}  // namespace Kemffdc
