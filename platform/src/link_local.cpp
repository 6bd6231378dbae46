// SPDX-License-Identifier: Apache-2.0
#include "link_local.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>
#include <set>

namespace {

bool IsLinkLocal(const std::string& host) {
    in6_addr address{};
    return inet_pton(AF_INET6, host.c_str(), &address) == 1 && IN6_IS_ADDR_LINKLOCAL(&address);
}

bool MayReachLinkLocals(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET6) return false;
    if ((entry.ifa_flags & IFF_UP) == 0 || (entry.ifa_flags & IFF_LOOPBACK) != 0) return false;
    const auto* address = reinterpret_cast<const sockaddr_in6*>(entry.ifa_addr);
    return IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr);
}

}  // namespace

unsigned ScopeOfLinkLocal(const std::string& host) {
    if (!IsLinkLocal(host)) return 0;
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) return 0;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, &freeifaddrs);
    std::set<unsigned> scopes;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (MayReachLinkLocals(*entry)) scopes.insert(if_nametoindex(entry->ifa_name));
    }
    return scopes.size() == 1 ? *scopes.begin() : 0;
}
