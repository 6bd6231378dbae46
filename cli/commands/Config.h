// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_CONFIG_H
#define KEMFFDC_COMMANDS_CONFIG_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Tells which settings hold for a BMC and who has said so, in words or, with options.json, as one
// JSON object. Holds no password, and of a password command only the program. kUsage where collect
// would refuse them, with the reason on `err`. Asks nobody.
int ShowConfig(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
