// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_IPMANIP_H
#define VARNEX_PLATFORM_IPMANIP_H

#include <string>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

class Ipmanip {
public:
    // Whether `host` is the text of an IPv6 address (RFC 4291, section 2.2), with or without a
    // scope (%eth0, RFC 4007). False for a bracketed address, an IPv4 address and a name. Never
    // asks a name server.
    static bool is_ipv6(const std::string& host);
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
