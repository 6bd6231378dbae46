// SPDX-License-Identifier: Apache-2.0
#include "cli/Utc.h"

#include <algorithm>

namespace Kemffdc {

std::string UtcNow() { return UtcText(std::time(nullptr)); }

std::string UtcText(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::time_t ReadUtc(const std::string& text) {
    std::tm parts{};
    const char* const end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return end == nullptr || *end != '\0' ? 0 : timegm(&parts);
}

std::string UtcForNames(std::time_t time) {
    std::string text = UtcText(time);
    text.erase(
        std::remove_if(text.begin(), text.end(), [](char c) { return c == '-' || c == ':'; }),
        text.end());
    return text;
}

}  // namespace Kemffdc
