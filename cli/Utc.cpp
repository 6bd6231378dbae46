// SPDX-License-Identifier: Apache-2.0
#include "cli/Utc.h"

namespace Kemffdc {

std::string UtcNow() { return UtcText(std::time(nullptr)); }

std::string UtcText(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace Kemffdc
