// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Verify.h"

#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <ostream>
#include <vector>

#include "cli/Archive.h"
#include "cli/ExitCodes.h"
#include "cli/commands/Recorded.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/report/Json.h"
#include "cli/report/Words.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using Files = std::vector<History::ArchiveRow>;

constexpr std::size_t kLongPath = 4096;
constexpr char kRecordEnding[] = ".json";

// One file, as it is now.
struct Compared {
    History::ArchiveRow recorded;
    const char* state = "ok";  // "ok", "missing", "changed", "unreadable"
    std::string reason;
};

Compared Compare(const History::ArchiveRow& recorded) {
    std::error_code error;
    if (!fs::exists(recorded.path, error)) return {recorded, "missing", "it is not there"};
    std::uint64_t size = 0;
    std::string sha256;
    const Outcome outcome = Measure(
        recorded.path, [] { return false; }, size, sha256);
    if (!outcome.Ok()) return {recorded, "unreadable", outcome.reason};
    if (size != recorded.size) {
        return {
            recorded, "changed",
            "it has " + std::to_string(size) + " bytes, and had " + std::to_string(recorded.size)};
    }
    if (sha256 != recorded.sha256) return {recorded, "changed", "its SHA-256 is now " + sha256};
    return {recorded, "ok", ""};
}

// Of all records in a folder.
Files InFolder(const std::string& folder) {
    Files files;
    std::vector<std::string> records;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string path = at->path().string();
        if (at->path().extension() == kRecordEnding) records.push_back(path);
    }
    std::sort(records.begin(), records.end());
    for (const std::string& record : records) {
        const auto found = ReadRecord(record.substr(0, record.size() - (sizeof kRecordEnding - 1)));
        if (found) files.insert(files.end(), found->files.begin(), found->files.end());
    }
    return files;
}

Files AtPath(const std::string& path, const std::string& stateFolder) {
    const auto found = FindRecorded(path, stateFolder);
    if (found) return found->files;
    const bool record = fs::path(path).extension() == kRecordEnding;
    if (record) {
        const auto beside = ReadRecord(path.substr(0, path.size() - (sizeof kRecordEnding - 1)));
        if (beside) return beside->files;
    }
    return InFolder(path);
}

Files InHistory(const std::string& subject, const std::string& stateFolder) {
    if (!History::Store::Exists(stateFolder)) return {};
    const History::Store store(stateFolder);
    const History::Id run = RunNumber(subject);
    Files files = run != 0 ? store.Archives(run) : store.Delivered(subject);
    files.erase(std::remove_if(files.begin(), files.end(),
                               [](const History::ArchiveRow& file) {
                                   return file.path.empty() || !file.removedAt.empty();
                               }),
                files.end());
    return files;
}

Files Find(const Options& options) {
    const std::string folder = History::StateFolder(options.stateDir);
    std::error_code ignored;
    std::string path = options.subject;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    const bool isPath =
        RunNumber(path) == 0 && (path.find('/') != std::string::npos || fs::exists(path, ignored));
    return isPath ? AtPath(path, folder) : InHistory(path, folder);
}

long CountOf(const std::vector<Compared>& files, const std::string& state) {
    return std::count_if(files.begin(), files.end(),
                         [&](const Compared& file) { return file.state == state; });
}

Outcome Judge(const std::vector<Compared>& files, const std::string& subject) {
    if (files.empty()) {
        return Failure(kLocalFile, subject.empty()
                                       ? "The history knows no archive."
                                       : "Nothing is recorded of " + Clean(subject) + ".");
    }
    const long bad = static_cast<long>(files.size()) - CountOf(files, "ok");
    if (bad == 0) return {};
    return Failure(kIncomplete, std::to_string(bad) + " of " + std::to_string(files.size()) +
                                    (files.size() == 1 ? " file" : " files") +
                                    (bad == 1 ? " is" : " are") + " not as recorded.");
}

void WriteFiles(const std::vector<Compared>& files, std::ostream& out) {
    for (const Compared& file : files) {
        std::string state = file.state;
        state.resize(12, ' ');
        out << state << Clean(file.recorded.path, kLongPath)
            << (file.reason.empty() ? "" : ": " + Clean(file.reason)) << "\n";
    }
}

json::object ObjectOf(const std::vector<Compared>& files, const Outcome& outcome) {
    json::array array;
    for (const Compared& file : files) {
        array.push_back(json::object{{"path", TextValue(file.recorded.path)},
                                     {"size", file.recorded.size},
                                     {"sha256", file.recorded.sha256},
                                     {"outcome", file.state},
                                     {"reason", TextOrNull(file.reason)}});
    }
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "verify"},
            {"exit_code", static_cast<int>(outcome.code)},
            {"reason", TextOrNull(outcome.reason)},
            {"files", std::move(array)}};
}

}  // namespace

int VerifyArchives(const Options& options, std::ostream& out, std::ostream& err) {
    std::vector<Compared> files;
    Outcome outcome;
    try {
        for (const History::ArchiveRow& file : Find(options)) {
            files.push_back(Compare(file));
            if (!options.json) WriteFiles({files.back()}, out << std::flush);
        }
        outcome = Judge(files, options.subject);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    WriteReason(outcome, err);
    if (options.json) out << JsonText(ObjectOf(files, outcome)) << "\n";
    return outcome.code;
}

}  // namespace Kemffdc
