// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_ENVIRONMENT_H
#define VARNEX_PLATFORM_SRC_ENVIRONMENT_H

#include <cstdlib>
#include <string>

// Empty where the variable is not set: for those to which empty means the same.
inline std::string EnvironmentText(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

#endif
