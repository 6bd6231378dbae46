// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARCHIVE_H
#define KEMFFDC_ARCHIVE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"

namespace Kemffdc {

// A folder for the archive, and a folder of its own in it for the download. Nothing appears in the
// output folder before it is complete, and nothing of a failed run stays: the destructor removes
// what is not delivered, and the output folder too if this object has made it and it is empty.
//
// The working folder is locked for as long as the run lives. One that nobody locks is left over
// from a run that was killed.
class OutputFolder {
public:
    struct LeftOver {
        std::string name;  // of a working folder
        std::uint64_t bytes = 0;
    };

    OutputFolder() = default;
    ~OutputFolder();

    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    // Makes `folder` where it is missing (its parent must exist), and the working folder in it,
    // which proves that files can be written there.
    Outcome Open(const std::string& folder);

    // Removes the working folders of this user's killed runs, and tells which. None of a run that
    // lives, none where the file system has no locks (NFS), and none that holds one of the files
    // `kept`, unless it has not been touched for a week.
    std::vector<LeftOver> RemoveLeftOvers(const std::vector<std::string>& kept = {}) const;

    // Brings a file that an earlier run has kept into the working folder, as `name`, and removes
    // the working folder that it was in. False where it cannot be had: another disk, or gone.
    bool TakeOver(const std::string& path, const std::string& name) const;

    // Whether Discard() leaves the parts of downloads (Varnex::kPartSuffix) where they are; no,
    // unless this is said.
    void KeepParts(bool keep) { m_keepsParts = keep; }

    // Absolute; empty until Open has succeeded.
    const std::string& Path() const { return m_folder; }

    // Path for a download.
    std::string WorkPath(const std::string& name) const;

    // Moves WorkPath(from), a file or a folder, into the output folder. Never replaces anything
    // there, and never takes a name whose record is there: then it gets "-2", "-3" ... behind its
    // name, before the extension of a file. `path` receives the absolute path.
    Outcome Deliver(const std::string& from, const std::string& name, std::string& path);

    // Puts a record beside what was delivered at `path`: a file of that name with ".json" behind
    // it, for this user alone. Never replaces one.
    Outcome DeliverRecord(const std::string& path, const std::string& text);

    // Removes the working folder with all that is in it, but for parts that are to be kept. Any
    // thread, also while another downloads; what the other one writes afterwards fails.
    void Discard();

private:
    Outcome MakeWorkFolder(const std::string& shown);

    std::mutex m_lock;     // between Open and Discard; later m_folder and m_work do not change
    std::string m_folder;  // absolute
    std::string m_work;    // empty until Open has succeeded
    int m_hold = -1;       // of m_work, locked; -1: the file system has no locks
    bool m_made = false;
    std::atomic<bool> m_delivered{false};
    std::atomic<bool> m_keepsParts{false};
};

// Where the record of the archive at `path` stands: NAME.json.
std::string RecordPath(const std::string& path);

// Size and SHA-256 (lower-case hexadecimal) of a file, read in pieces. Stops with kInterrupted once
// `stop` returns true.
Outcome Measure(const std::string& path, const std::function<bool()>& stop, std::uint64_t& size,
                std::string& sha256);

}  // namespace Kemffdc

#endif
