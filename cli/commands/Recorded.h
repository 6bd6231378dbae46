// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMANDS_RECORDED_H
#define KEMFFDC_COMMANDS_RECORDED_H

#include <boost/json/fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/history/Store.h"

namespace Kemffdc {

// What is written down about a run and the files that it has brought.
struct Recorded {
    History::RunRow run;  // of a record: what it says, and no more
    std::vector<History::ArchiveRow> files;
};

// What the record beside the archive or folder at `path` says, wherever both have been moved to:
// its files are named where they are now. Nothing where there is no record, or one that cannot be
// read.
std::optional<Recorded> ReadRecord(const std::string& path);

// The same from the record, else from the history.
std::optional<Recorded> FindRecorded(const std::string& path, const std::string& stateFolder);

// The number of a run, where `text` is one; else 0.
History::Id RunNumber(const std::string& text);

// What became of the run in one word: as JSON says it, or "running", or "killed".
std::string StateOf(const History::RunRow& run, const History::Store* store);

boost::json::object RunRowObject(const History::RunRow& run, const std::string& state);
boost::json::object ArchiveRowObject(const History::ArchiveRow& archive);

}  // namespace Kemffdc

#endif
