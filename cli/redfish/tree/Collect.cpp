// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/Collect.h"

namespace Kemffdc::Redfish {

Outcome CollectTree(Context& /*run*/) {
    return Failure(kLimited, Cause::kUnsupported,
                   "This BMC offers neither the OEM export nor the standard's action, and this "
                   "version of the tool cannot read its tree.");
}

}  // namespace Kemffdc::Redfish
