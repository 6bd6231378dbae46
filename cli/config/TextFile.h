// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONFIG_TEXTFILE_H
#define KEMFFDC_CONFIG_TEXTFILE_H

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "cli/ExitCodes.h"

namespace Kemffdc::Config {

// A file that an operator has written.
struct TextFile {
    std::string what;  // for sentences, "configuration file"
    std::string path;
    bool exists = false;
    struct stat status {};
    std::string text;

    // "The WHAT PATH WHY", as kLocalFile.
    Outcome Unusable(const std::string& why) const;
};

// Reads a plain file of at most `most` bytes, whole mebibytes; opens nothing that could block or
// have an effect: a pipe, a device. A file that does not exist is no failure.
Outcome ReadTextFile(std::size_t most, TextFile& file);

// Refuses a file that somebody else but root may have written. `so`: what would follow from it,
// "so its password_command is not run".
Outcome RefuseForeignFile(const TextFile& file, const std::string& so);

// Refuses a file that somebody else but this user and root could read or have written.
Outcome RefuseSharedFile(const TextFile& file);

}  // namespace Kemffdc::Config

#endif
