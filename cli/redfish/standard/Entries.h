// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_ENTRIES_H
#define KEMFFDC_REDFISH_STANDARD_ENTRIES_H

#include <boost/json.hpp>
#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/redfish/standard/Walk.h"

namespace Kemffdc::Redfish {

// An entry of a log (DSP0268, schema LogEntry) with what is to be known of collected data.
struct LogEntry {
    std::string path;
    std::string dataUri;                // AdditionalDataURI as the BMC sent it; empty: it has none
    std::optional<std::uint64_t> size;  // AdditionalDataSizeBytes
    std::string sha256;       // lower-case hexadecimal, of a member with such a name; empty: none
    std::string type;         // DiagnosticDataType, fit for display
    std::string oemType;      // OEMDiagnosticDataType
    std::time_t created = 0;  // by the BMC's clock; 0: it does not say
    std::string hint;  // what else may say where the data is: Message and texts of Oem, for display
};

// Nothing where it is no log entry.
std::optional<LogEntry> ReadEntry(const boost::json::object& object);

// The entries of a log at a moment.
struct EntryList {
    std::set<std::string> known;  // path and time of each
    std::string gap;              // why it is not all of them (Walk::Gap)
};
EntryList ListEntries(Walk& walk, const std::string& entries);

// What an entry is to be like that a collection has left in a log.
struct NewEntry {
    const EntryList* before = nullptr;  // of the log before the collection; null: not known
    std::time_t since = 0;              // the collection's beginning, by the BMC's clock
    std::string type;                   // as asked for; empty: any
    std::string oemType;
};

// The newest that fits: one that was not there, or where not all of them were seen, that is not
// older than the collection. Entries of another type, and events without data, are not meant.
std::optional<LogEntry> FindNewEntry(Walk& walk, const std::string& entries,
                                     const NewEntry& wanted);

}  // namespace Kemffdc::Redfish

#endif
