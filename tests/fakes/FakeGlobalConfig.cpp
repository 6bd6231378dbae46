// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeGlobalConfig.h"

#include <map>
#include <mutex>

#include "GlobalConfig.h"

namespace {

std::mutex g_mutex;
std::map<std::string, int> g_values;
std::vector<std::pair<std::string, int>> g_lookups;

}  // namespace

int varnex_platform::GetGlobalConfigValue(const std::string& key, int defaultValue) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_lookups.emplace_back(key, defaultValue);
    const auto value = g_values.find(key);
    return value == g_values.end() ? defaultValue : value->second;
}

namespace fakes {

void FakeConfig::Set(const std::string& key, int value) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_values[key] = value;
}

std::vector<std::pair<std::string, int>> FakeConfig::Lookups() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_lookups;
}

}  // namespace fakes
