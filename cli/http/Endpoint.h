// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_ENDPOINT_H
#define KEMFFDC_HTTP_ENDPOINT_H

#include <cstdint>
#include <string>

#include "cli/Options.h"

namespace Kemffdc {

// A web service's place in the network.
struct Endpoint {
    std::string host;  // name or address, IPv6 without brackets
    bool ipv6 = false;
    std::uint16_t port = 0;
    bool tls = true;

    std::string Place() const;  // for texts: "192.0.2.10 port 443"
    std::string Url() const;    // without a path: "https://[2001:db8::1]:443"
};

// The BMC that the options name.
Endpoint EndpointOf(const Options& options, bool tls = true);

}  // namespace Kemffdc

#endif
