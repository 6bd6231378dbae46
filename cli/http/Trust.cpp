// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Trust.h"

namespace Kemffdc {

Trust TrustOf(const Options& options) { return {options.caFile, nullptr}; }

}  // namespace Kemffdc
