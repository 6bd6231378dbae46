// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVENAME_H
#define KEMFFDC_ARCHIVENAME_H

#include <string>

namespace Kemffdc {

// What the fields of a name template stand for; any bytes.
struct NameFields {
    std::string host;    // {host}; empty: "bmc"
    std::string serial;  // {serial}, of the machine; empty: "unknown"
    std::string utc;     // {utc}, as UtcForNames() writes it
    std::string name;  // {name}: the BMC's path, of which the last component counts; empty: "ffdc"
};

constexpr char kDefaultNameTemplate[] = "{host}_{utc}_{name}";

// What is wrong with a template, as it follows the option's name; empty: nothing. It holds fields,
// letters, digits, ".", "_", "+" and "-".
std::string CheckNameTemplate(const std::string& text);

// Name for an archive after a good template. Of the fields only letters, digits, ".", "_", "+" and
// "-" are kept; so the result is one plain path component without blanks, of at most 200 bytes,
// that starts with neither a dot nor a dash. A template without {name} is followed by the extension
// of the BMC's name: it says what the file is.
std::string ArchiveName(const std::string& pattern, const NameFields& fields);

}  // namespace Kemffdc

#endif
