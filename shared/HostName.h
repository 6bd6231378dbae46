// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_HOSTNAME_H
#define VARNEX_SHARED_HOSTNAME_H

#include <string>

namespace shared {

// IPv6 addresses stand in brackets where something follows them (RFC 3986, section 3.2.2). They are
// told from names and IPv4 addresses by their colons alone: whether they are any is another
// question.

inline bool IsInBrackets(const std::string& host) {
    return host.size() > 2 && host.front() == '[' && host.back() == ']';
}

// "[fe80::1]" and "fe80::1" as "fe80::1", others as they are.
inline std::string WithoutBrackets(const std::string& host) {
    return IsInBrackets(host) ? host.substr(1, host.size() - 2) : host;
}

// "fe80::1" as "[fe80::1]", others as they are.
inline std::string WithBrackets(const std::string& host) {
    const bool address = host.find(':') != std::string::npos && !IsInBrackets(host);
    return address ? "[" + host + "]" : host;
}

// "[fe80::1]:443", "bmc.example:443"
inline std::string HostAndPort(const std::string& host, unsigned port) {
    return WithBrackets(host) + ":" + std::to_string(port);
}

}  // namespace shared

#endif
