// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_SHOW_H
#define KEMFFDC_COMMANDS_SHOW_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Shows a run by its number, or an archive, or a folder of files by its path, in options.subject:
// where it is from, what is inside (names, sizes, manifests, the newest lines of event logs), and
// whether it can be read to its end. In words, or with options.json as one JSON object. kIncomplete
// where an archive cannot be read to its end; kLocalFile where there is no such run or file.
int ShowArchive(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
