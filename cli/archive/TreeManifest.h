// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_TREEMANIFEST_H
#define KEMFFDC_ARCHIVE_TREEMANIFEST_H

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/report/Facts.h"

namespace Kemffdc::Archives {

// What has come of reading a BMC's Redfish tree.
struct TreeCounts {
    std::uint64_t resources = 0;  // that were read; each is one, also where many came in one answer
    std::uint64_t logEntries = 0;  // of them
    std::uint64_t requests = 0;
    std::uint64_t bytes = 0;    // of answers
    std::uint64_t unread = 0;   // resources that could not be read
    std::uint64_t leftOut = 0;  // that were not asked for: accounts, sessions, certificates, keys
    std::uint64_t masked = 0;   // values
    std::vector<std::string> limits;  // that were reached, as sentences; empty: that is all of it
};

// The file in a tree archive that tells what it is. It is the last one: only then all is counted.
struct TreeManifest {
    std::string version;  // of the tool
    std::string begun;    // UTC, as UtcNow() gives it
    std::string ended;
    std::string host;  // as it was given
    BmcFacts facts;
    TreeCounts counts;
};

constexpr char kTreeManifest[] = "manifest.json";
constexpr char kTreeErrors[] = "errors.json";

// As JSON, a member a line.
std::string ManifestText(const TreeManifest& manifest);

// Of such a file; nothing where it is another one. Of `facts` nothing is read.
std::optional<TreeManifest> ReadManifest(const std::string& text);

// As the tool's JSON shows it (docs/json.md).
boost::json::object TreeObject(const TreeCounts& counts);

// The same in one line of words: "512 resources, 3 could not be read, ...".
std::string TreeWords(const TreeCounts& counts);

}  // namespace Kemffdc::Archives

#endif
