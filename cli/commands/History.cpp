// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/History.h"

#include <boost/json.hpp>
#include <filesystem>
#include <ostream>
#include <vector>

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

// A run, what became of it, and its files.
struct Entry {
    History::RunRow run;
    std::string state;
    std::vector<History::ArchiveRow> archives;
};

std::vector<Entry> ReadEntries(const Options& options) {
    const std::string folder = History::StateFolder(options.stateDir);
    if (!History::Store::Exists(folder)) return {};
    const History::Store store(folder);
    std::vector<Entry> entries;
    for (const History::RunRow& run : store.Runs(options.subject, options.limit)) {
        entries.push_back({run, StateOf(run, &store), store.Archives(run.id)});
    }
    return entries;
}

std::string Column(std::string text, std::size_t columns) {
    if (text.size() < columns) text.resize(columns, ' ');
    return text + "  ";
}

std::string RightColumn(const std::string& text, std::size_t columns) {
    return std::string(text.size() < columns ? columns - text.size() : 0, ' ') + text + "  ";
}

std::string Where(const History::RunRow& run) {
    if (run.host.empty()) return "this machine";
    return run.port == 0 ? run.host : run.host + " port " + std::to_string(run.port);
}

// The archive, or the folder of several; empty where nothing was delivered.
std::string Place(const std::vector<History::ArchiveRow>& archives) {
    std::string place;
    std::string removed;
    std::size_t count = 0;
    for (const History::ArchiveRow& archive : archives) {
        if (archive.path.empty()) continue;
        place = archive.path;
        ++count;
        if (!archive.removedAt.empty()) removed = ", removed " + archive.removedAt;
    }
    if (count < 2) return place + removed;
    return fs::path(place).parent_path().string() + " (" + std::to_string(count) + " files" +
           removed + ")";
}

void WriteWords(const std::vector<Entry>& entries, std::ostream& out) {
    if (entries.empty()) {
        out << "No run is known.\n";
        return;
    }
    out << "  RUN  STARTED (UTC)         OUTCOME            CHANNEL  BMC\n";
    for (const Entry& entry : entries) {
        out << RightColumn(std::to_string(entry.run.id), 5) << Column(entry.run.begunAt, 20)
            << Column(entry.state, 17) << Column(Clean(entry.run.channel), 7)
            << Clean(Where(entry.run)) << "\n";
        const std::string place = Place(entry.archives);
        if (!place.empty()) out << "       " << Clean(place, 1000) << "\n";
    }
}

json::object ObjectOf(const std::vector<Entry>& entries, const Outcome& outcome) {
    json::array runs;
    for (const Entry& entry : entries) {
        json::object run = RunRowObject(entry.run, entry.state);
        json::array archives;
        for (const History::ArchiveRow& one : entry.archives) {
            archives.push_back(ArchiveRowObject(one));
        }
        run["archives"] = std::move(archives);
        runs.push_back(std::move(run));
    }
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "history"},
            {"exit_code", static_cast<int>(outcome.code)},
            {"reason", TextOrNull(outcome.reason)},
            {"runs", std::move(runs)}};
}

}  // namespace

int ShowHistory(const Options& options, std::ostream& out, std::ostream& err) {
    Outcome outcome;
    std::vector<Entry> entries;
    try {
        entries = ReadEntries(options);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    WriteReason(outcome, err);
    if (options.json) {
        out << JsonText(ObjectOf(entries, outcome)) << "\n";
    } else if (outcome.Ok()) {
        WriteWords(entries, out);
    }
    return outcome.code;
}

}  // namespace Kemffdc
