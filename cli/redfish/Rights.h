// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_RIGHTS_H
#define KEMFFDC_REDFISH_RIGHTS_H

#include <boost/json.hpp>
#include <string>

#include "cli/http/Transport.h"

namespace Kemffdc::Redfish {

// Whether an export would be accepted, found out by reading alone. Each gives the reason why not, a
// sentence fit for display, and only where that is sure: a BMC may offer more than it lists.

// The export is neither listed, in the manager (DSP0266, "Actions") nor where the OEM keeps it, nor
// there at its own place. At most two requests.
std::string MissingOperation(Transport& transport, const Login& login,
                             const boost::json::object& manager);

// The role of the account has no privilege to change anything but itself (DSP0266, "Privilege
// model"). `root`: the service root. At most some forty requests, where there are that many
// accounts.
std::string MissingPrivilege(Transport& transport, const Login& login, const std::string& user,
                             const boost::json::object& root);

}  // namespace Kemffdc::Redfish

#endif
