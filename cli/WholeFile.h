// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_WHOLEFILE_H
#define KEMFFDC_WHOLEFILE_H

#include <sys/types.h>

#include <string>

#include "cli/ExitCodes.h"

namespace Kemffdc {

constexpr mode_t kForOwner = 0600;
constexpr mode_t kForAll = 0666;  // whom the umask lets

// Writes `text` to the file at `path`, which is there whole or as it was before, also where the
// process is killed or the machine loses its power. It replaces a plain file, and nothing else: a
// device or a folder of that name is refused. kLocalFile, with the reason. Blocks on the disk.
Outcome WriteWholeFile(const std::string& path, const std::string& text, mode_t mode);

}  // namespace Kemffdc

#endif
