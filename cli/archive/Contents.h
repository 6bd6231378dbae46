// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_CONTENTS_H
#define KEMFFDC_ARCHIVE_CONTENTS_H

#include <optional>
#include <string>
#include <vector>

#include "cli/archive/Reader.h"
#include "cli/archive/TreeManifest.h"

namespace Kemffdc::Archives {

// Some lines of a file in an archive, as they are there: any bytes, at most 1000 a line.
struct Excerpt {
    std::string name;
    std::vector<std::string> lines;
    bool whole = true;  // these are all lines that it has
};

// What somebody wants to see of an archive without unpacking it.
struct Contents {
    Reading reading;                   // the rest holds what came before any trouble
    std::vector<Entry> entries;        // the first 10,000; reading.files counts all
    std::vector<Excerpt> manifests;    // the beginning of each file that is named so
    std::vector<Excerpt> events;       // the newest lines of each event log, the newest one last
    std::optional<TreeManifest> tree;  // nothing where it is no tree that the tool has read
};

// Reads a whole archive, or a file that is none as if it were all that is in one; a file that has
// an archive's name and is none is broken. Manifests are files whose names begin with "manifest";
// event logs are texts (.txt, .log, .csv) with "event" in their path, or named "sel". Which end of
// a log is the newer one its dates tell; without dates it is the last. At most 5 of either kind, 40
// lines of a manifest, 10 of a log.
Contents ReadContents(const std::string& path, const Bounds& bounds);

}  // namespace Kemffdc::Archives

#endif
