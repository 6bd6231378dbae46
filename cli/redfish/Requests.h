// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_REQUESTS_H
#define KEMFFDC_REDFISH_REQUESTS_H

#include "cli/http/ServiceKind.h"

namespace Kemffdc::Redfish {

// A Redfish service, asked as the library asks it: redirects are followed, and the environment's
// proxies hold.
extern const ServiceKind kRedfishService;

// The same, asked for whole pages of resources: answers of up to 4 MiB.
extern const ServiceKind kTreeService;

}  // namespace Kemffdc::Redfish

#endif
