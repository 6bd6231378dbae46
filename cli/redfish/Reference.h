// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_REFERENCE_H
#define KEMFFDC_REDFISH_REFERENCE_H

#include <string>

#include "cli/http/Endpoint.h"

namespace Kemffdc::Redfish {

// Where a URI reference leads (RFC 3986, section 5) that stands in a resource of this service.
struct Reference {
    std::string path;   // on this service; empty: it leads elsewhere, or nowhere
    std::string query;  // what stands behind its "?"; empty: none. It may be a ticket: a secret
    std::string other;  // another place, "https://192.0.2.9:443", fit for display; empty: none

    // What a request names.
    std::string Target() const { return query.empty() ? path : path + "?" + query; }
};

// `base`: the path of the resource. `address`: a numeric address that counts as this service too.
Reference Resolve(const std::string& reference, const std::string& base, const Endpoint& service,
                  const std::string& address);

}  // namespace Kemffdc::Redfish

#endif
