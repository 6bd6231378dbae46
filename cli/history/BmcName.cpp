// SPDX-License-Identifier: Apache-2.0
#include "cli/history/BmcName.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "shared/HostName.h"

namespace Kemffdc::History {
namespace {

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

}  // namespace

std::string SameHost(const std::string& host) {
    const std::size_t scope = std::min(host.find('%'), host.size());
    in6_addr address{};
    char text[INET6_ADDRSTRLEN];
    const bool ipv6 = inet_pton(AF_INET6, host.substr(0, scope).c_str(), &address) == 1 &&
                      inet_ntop(AF_INET6, &address, text, sizeof text) != nullptr;
    return ipv6 ? text + host.substr(scope) : LowerCase(host);
}

std::string SameBmc(const std::string& host, std::uint16_t port) {
    return shared::HostAndPort(SameHost(host), port);
}

std::string ThisMachine() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace Kemffdc::History
