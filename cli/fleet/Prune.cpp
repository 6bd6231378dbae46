// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Prune.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "cli/Archive.h"
#include "cli/fleet/Collections.h"
#include "cli/fleet/Reports.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

// What is older than the `keep` newest good ones of its host.
std::vector<Collection> Superseded(const std::vector<Collection>& collections, int keep) {
    std::map<std::string, int> good;
    std::vector<Collection> superseded;
    for (const Collection& collection : collections) {
        int& newer = good[collection.key];
        if (newer >= keep) {
            superseded.push_back(collection);
        } else if (collection.IsGood()) {
            ++newer;
        }
    }
    return superseded;
}

bool IsBelow(const fs::path& path, const fs::path& folder) {
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(path, error);
    const fs::path top = fs::weakly_canonical(folder, error);
    const fs::path relative = whole.lexically_relative(top);
    return !error && !relative.empty() && *relative.begin() != ".." && *relative.begin() != ".";
}

// Takes away files of one run.
class RunFolder {
public:
    RunFolder(std::string folder, bool dryRun) : m_folder(std::move(folder)), m_dryRun(dryRun) {}

    // Why the file stays; empty: it is gone, or would be.
    std::string Remove(const History::ArchiveRow& file) const {
        struct stat found {};
        if (lstat(file.path.c_str(), &found) != 0 && errno == ENOENT) return "";
        if (!IsBelow(fs::path(file.path).parent_path(), m_folder)) {
            return "it does not lie in the folder of its run";
        }
        if (!IsThere(file)) return "it is not as it came";
        if (m_dryRun) return "";
        if (unlink(file.path.c_str()) != 0) return std::strerror(errno);
        RemoveEmptyFolders(file.path);
        return "";
    }

    // Of a file, and of the folder of files that it is in; once they are gone.
    void RemoveRecords(const std::string& path) const {
        std::error_code error;
        for (fs::path one = path; one != m_folder && one.has_relative_path();
             one = one.parent_path()) {
            const std::string record = RecordPath(one.string());
            const bool isRecord = fs::is_regular_file(fs::symlink_status(record, error));
            if (m_dryRun || !isRecord || fs::exists(one, error)) continue;
            (void)unlink(record.c_str());
            RemoveEmptyFolders(record);
        }
    }

    // Whether nothing stays of it.
    bool RemoveReports() const {
        if (m_dryRun) return true;
        for (const char* name : {kPageName, kCsvName, kJsonName}) {
            (void)unlink((fs::path(m_folder) / name).c_str());
        }
        return rmdir(m_folder.c_str()) == 0 || errno == ENOENT;
    }

private:
    void RemoveEmptyFolders(const std::string& path) const {
        fs::path folder = fs::path(path).parent_path();
        while (folder != m_folder && rmdir(folder.c_str()) == 0) folder = folder.parent_path();
    }

    const std::string m_folder;
    const bool m_dryRun;
};

// One removal, run by run.
class Work {
public:
    Work(History::Store& store, const History::FleetJournal& journal, bool dryRun)
        : m_store(store), m_journal(journal), m_dryRun(dryRun) {}

    void Remove(const Collection& collection) {
        const std::optional<History::FleetRunRow> run = m_journal.Find(collection.fleet);
        if (!run || m_journal.IsLive(collection.fleet)) return;
        const RunFolder folder(run->folder, m_dryRun);
        for (const History::ArchiveRow& file : collection.files) {
            const std::string why = folder.Remove(file);
            if (!why.empty()) {
                m_pruning.notes.push_back(Clean(file.path, 4096) + " stays: " + why + ".");
                continue;
            }
            m_pruning.files.push_back({collection.name, file.path, file.size});
            m_gone.insert(file.id);
            m_touched.emplace(collection.fleet, run->folder);
            if (!m_dryRun) m_store.NoteRemoved(file.id);
            folder.RemoveRecords(file.path);
        }
    }

    // Puts in order what stays of the runs.
    Pruning Finish() {
        for (const auto& [fleet, folder] : m_touched) {
            if (IsSpent(fleet)) {
                if (RunFolder(folder, m_dryRun).RemoveReports())
                    m_pruning.folders.push_back(folder);
                continue;
            }
            std::error_code error;
            if (m_dryRun || !fs::is_directory(folder, error)) continue;
            const std::string fault = WriteReports(m_journal, fleet, folder);
            if (!fault.empty()) m_pruning.notes.push_back(fault);
        }
        return std::move(m_pruning);
    }

private:
    // Whether nothing of what it has brought is left.
    bool IsSpent(History::Id fleet) const {
        const auto files = m_journal.Archives(fleet);
        return std::all_of(files.begin(), files.end(), [this](const auto& row) {
            return !row.file.removedAt.empty() || m_gone.count(row.file.id) > 0;
        });
    }

    History::Store& m_store;
    const History::FleetJournal& m_journal;
    const bool m_dryRun;
    Pruning m_pruning;
    std::set<History::Id> m_gone;                  // rows of files
    std::map<History::Id, std::string> m_touched;  // folders of runs that lose something
};

}  // namespace

std::uint64_t Pruning::Bytes() const {
    std::uint64_t bytes = 0;
    for (const File& file : files) bytes += file.size;
    return bytes;
}

Pruning Prune(History::Store& store, const History::FleetJournal& journal, int keep, bool dryRun) {
    Work work(store, journal, dryRun);
    for (const Collection& collection : Superseded(CollectionsOf(journal), std::max(keep, 1))) {
        work.Remove(collection);
    }
    return work.Finish();
}

}  // namespace Kemffdc::Fleet
