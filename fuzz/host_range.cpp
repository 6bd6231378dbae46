// SPDX-License-Identifier: Apache-2.0
//
// Any expression of hosts: what it stands for is folded and means the same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Support.h"
#include "cli/fleet/HostRange.h"

namespace {

using namespace Kemffdc::Fleet;

// Names as inventories take them.
bool IsPlain(const std::string& host) {
    return std::all_of(host.begin(), host.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_' || c == ':' || c == '%';
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string expression(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> hosts;
    std::string error;
    HostFilter filter;
    const bool filters = filter.Read(expression, error);
    if (!ExpandHosts(expression, hosts, error)) {
        Require(!error.empty());
        return 0;
    }
    Require(hosts.size() <= kMaxHosts);
    const std::set<std::string> all(hosts.begin(), hosts.end());
    Require(all.size() == hosts.size());
    if (!std::all_of(hosts.begin(), hosts.end(), IsPlain)) return 0;
    for (const std::string& host : hosts) Require(filters && filter.Matches(host));
    std::vector<std::string> again;
    Require(hosts.empty() || ExpandHosts(FoldHosts(hosts), again, error));
    Require(std::set<std::string>(again.begin(), again.end()) == all);
    return 0;
}
