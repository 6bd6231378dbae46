// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_HISTORY_H
#define KEMFFDC_COMMANDS_HISTORY_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Lists the runs that the history knows, the newest first: all of them, or those on the host,
// address or serial number in options.subject. In words, or with options.json as one JSON object.
// kLocalFile where the history cannot be read; one that is not there holds no runs.
int ShowHistory(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
