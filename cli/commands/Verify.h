// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_VERIFY_H
#define KEMFFDC_COMMANDS_VERIFY_H

#include <iosfwd>

#include "cli/Options.h"

namespace Kemffdc {

// Compares archives with the sizes and sums that were recorded when they came. options.subject
// names them: a file or folder (its record NAME.json counts, else the history; of a folder without
// a record, all the records in it), the number of a run, or a host, address or serial number of the
// history; empty: all archives of the history. kIncomplete where a file is missing, cannot be read
// or was changed; kLocalFile where nothing is recorded, or the history cannot be read.
int VerifyArchives(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace Kemffdc

#endif
