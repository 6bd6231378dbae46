// SPDX-License-Identifier: Apache-2.0
#include "Ipmanip.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

// What Linux takes as the name of an interface, or a number.
bool IsScope(const std::string& text) {
    return !text.empty() && std::none_of(text.begin(), text.end(), [](unsigned char c) {
        return c <= ' ' || c == 0x7F || c == '/' || c == ':' || c == '%' || c == '[' || c == ']';
    });
}

}  // namespace

bool Ipmanip::is_ipv6(const std::string& host) {
    const std::size_t percent = host.find('%');
    if (percent != std::string::npos && !IsScope(host.substr(percent + 1))) return false;

    const std::string address = host.substr(0, percent);
    if (address.find('\0') != std::string::npos) return false;
    in6_addr parsed{};
    return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}
