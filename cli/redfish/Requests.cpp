// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Requests.h"

#include <curl/curl.h>

namespace Kemffdc::Redfish {

const ServiceKind kRedfishService = {
    true,
    true,
    true,
    CURL_SSLVERSION_DEFAULT,
    std::size_t{1024} * 1024,
    "Redfish service",
    "web service",
    "HTTPS",
    "speaks HTTPS",
    "1 MiB where a few hundred bytes are due",
    "--port",
    "Check that --port is the port of the BMC's web service.",
};

const ServiceKind kTreeService = [] {
    ServiceKind kind = kRedfishService;
    kind.maxBody = std::size_t{4} * 1024 * 1024;
    kind.tooLong = "the 4 MiB that are taken of one resource";
    return kind;
}();

}  // namespace Kemffdc::Redfish
