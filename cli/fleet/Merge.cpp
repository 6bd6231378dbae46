// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Merge.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "cli/fleet/Collections.h"
#include "cli/fleet/HostRange.h"
#include "cli/fleet/Reports.h"
#include "cli/fleet/ResultsJson.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kMostBytes = std::uintmax_t{256} << 20;
constexpr std::size_t kLongPath = 4096;

Outcome ReadText(const fs::path& path, std::string& text) {
    const auto failed = [&path](const std::string& why) {
        return Failure(kLocalFile, Clean(path.string(), kLongPath) + " " + why);
    };
    std::error_code error;
    if (!fs::exists(path, error)) {
        return failed(
            "does not exist. A run has it once it has ended; kemffdc fleet report --output FOLDER "
            "writes it at any time.");
    }
    if (!fs::is_regular_file(path, error)) return failed("is not a plain file.");
    if (fs::file_size(path, error) > kMostBytes) return failed("is larger than 256 MiB.");
    std::ifstream file(path, std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(file), {});
    return file ? Outcome{} : failed(std::string("cannot be read: ") + std::strerror(errno) + ".");
}

// `path`, which lay in `from`, in `to`; others as they are.
std::string Moved(const std::string& path, const fs::path& from, const fs::path& to) {
    const fs::path relative = fs::path(path).lexically_relative(from);
    const bool inside = !relative.empty() && *relative.begin() != ".." && *relative.begin() != ".";
    return path.empty() || !inside ? path : (to / relative).string();
}

// The report of one run lies in that run's folder.
void FollowFolder(const std::string& folder, Results& results) {
    if (results.runs.size() != 1 || results.runs[0].folder.empty()) return;
    const std::string from = results.runs[0].folder;
    results.runs[0].folder = folder;
    for (HostResult& host : results.hosts) {
        host.archive = Moved(host.archive, from, folder);
        host.record = Moved(host.record, from, folder);
    }
}

double NewestOf(const HostResult& host) { return host.states.empty() ? 0 : host.states.back().at; }

bool CountsBefore(const HostResult& host, const HostResult& other) {
    if (host.Succeeded() != other.Succeeded()) return host.Succeeded();
    return NewestOf(host) > NewestOf(other);
}

// Puts results together, host by host.
class Merging {
public:
    void Add(const Results& results) {
        const std::size_t first = m_merged.runs.size();
        m_merged.runs.insert(m_merged.runs.end(), results.runs.begin(), results.runs.end());
        m_merged.notes.insert(m_merged.notes.end(), results.notes.begin(), results.notes.end());
        for (HostResult host : results.hosts) {
            host.run += first;
            Add(host);
        }
    }

    Results Finish() {
        m_merged.written = static_cast<double>(std::time(nullptr));
        if (!m_repeated.empty()) m_merged.notes.push_back(ToldRepeated());
        return std::move(m_merged);
    }

private:
    void Add(const HostResult& host) {
        const auto [place, isNew] =
            m_places.emplace(HostKey(host.name, host.host), m_merged.hosts.size());
        if (isNew) {
            m_merged.hosts.push_back(host);
            return;
        }
        m_repeated.insert(host.name);
        HostResult& before = m_merged.hosts[place->second];
        if (CountsBefore(host, before)) before = host;
    }

    std::string ToldRepeated() const {
        const std::vector<std::string> names(m_repeated.begin(), m_repeated.end());
        return (names.size() == 1 ? "1 host is" : std::to_string(names.size()) + " hosts are") +
               " in more than one run; of each the newest good result counts: " + FoldHosts(names) +
               ".";
    }

    Results m_merged;
    std::map<std::string, std::size_t> m_places;  // by HostKey()
    std::set<std::string> m_repeated;             // names
};

}  // namespace

Outcome ReadReport(const std::string& path, Results& results) {
    std::error_code error;
    fs::path file = fs::absolute(path, error).lexically_normal();
    if (fs::is_directory(file, error)) file = file / kJsonName;
    std::string text;
    Outcome outcome = ReadText(file, text);
    if (outcome.Ok()) outcome = ReadReportJson(text, Clean(file.string(), kLongPath), results);
    if (outcome.Ok()) FollowFolder(file.parent_path().string(), results);
    return outcome;
}

Results Merged(const std::vector<Results>& all) {
    Merging merging;
    for (const Results& results : all) merging.Add(results);
    return merging.Finish();
}

}  // namespace Kemffdc::Fleet
