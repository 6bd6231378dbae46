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

std::string UtcForNames(std::time_t time) {
    std::string text = UtcText(time);
    text.erase(
        std::remove_if(text.begin(), text.end(), [](char c) { return c == '-' || c == ':'; }),
        text.end());
    return text;
}

}  // namespace Kemffdc
