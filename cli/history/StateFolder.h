// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_STATEFOLDER_H
#define KEMFFDC_HISTORY_STATEFOLDER_H

#include <string>

#include "cli/ExitCodes.h"

namespace Kemffdc::History {

// The folder for what outlives a run: `given` (--state-dir), else $XDG_STATE_HOME/kemffdc, else
// ~/.local/state/kemffdc (XDG Base Directory Specification 0.8). Empty where there is no home.
std::string StateFolder(const std::string& given);

// Makes the folder and its missing parents, for this user alone (0700). kLocalFile where that
// cannot be done, or where it belongs to another user or others may write to it: they could plant
// certificates there.
Outcome MakeStateFolder(const std::string& folder);

}  // namespace Kemffdc::History

#endif
