// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_FLEETHOSTS_H
#define KEMFFDC_COMMANDS_FLEETHOSTS_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Tells what an inventory comes to: its groups, the BMCs that are chosen, and each one's settings
// with who has said them; in words or, with options.json, as one JSON object. Connects to nothing
// and reads no password. Fails as Fleet::MakePlan() does, with the reason on `err`.
int ShowFleetHosts(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
