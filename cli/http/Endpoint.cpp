// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Endpoint.h"
#include "shared/HostName.h"

namespace Kemffdc {

std::string Endpoint::Place() const { return host + " port " + std::to_string(port); }

std::string Endpoint::Url() const {
    return (tls ? "https://" : "http://") + shared::HostAndPort(host, port);
}

Endpoint EndpointOf(const Options& options, bool tls) {
    return {options.host, options.ipv6, options.port, tls};
}

}  // namespace Kemffdc
