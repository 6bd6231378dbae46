// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Show.h"

#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/archive/Contents.h"
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

constexpr std::size_t kLongPath = 4096;
constexpr std::size_t kShownEntries = 40;  // of an archive, in words

// A file with what is inside.
struct ShownFile {
    std::string path;
    std::uint64_t size = 0;
    Archives::Contents contents;
};

// All there is to show.
struct Shown {
    std::optional<Recorded> recorded;
    std::string state;  // of the run
    std::vector<History::StepRow> steps;
    std::vector<ShownFile> files;
};

ShownFile LookInto(const std::string& path) {
    std::error_code error;
    ShownFile file{path, 0, Archives::ReadContents(path, {})};
    const std::uintmax_t size = fs::file_size(path, error);
    if (!error) file.size = size;
    return file;
}

void LookIntoFolder(const std::string& folder, Shown& shown) {
    std::vector<std::string> paths;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (at->is_regular_file(error)) paths.push_back(at->path().string());
    }
    std::sort(paths.begin(), paths.end());
    for (const std::string& path : paths) shown.files.push_back(LookInto(path));
}

Outcome FindRun(History::Id id, const std::string& stateFolder, Shown& shown) {
    std::optional<History::Store> store;
    std::optional<History::RunRow> run;
    if (History::Store::Exists(stateFolder)) run = store.emplace(stateFolder).FindRun(id);
    if (!run) {
        return Failure(kLocalFile, "The history knows no run " + std::to_string(id) + ".");
    }
    shown.recorded = Recorded{*run, store->Archives(id)};
    shown.state = StateOf(*run, &*store);
    shown.steps = store->Steps(id);
    for (const History::ArchiveRow& file : shown.recorded->files) {
        if (file.path.empty() || !file.removedAt.empty()) continue;
        shown.files.push_back(LookInto(file.path));
    }
    return {};
}

Outcome FindPath(std::string path, const std::string& stateFolder, Shown& shown) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    std::error_code error;
    if (!fs::is_regular_file(path, error) && !fs::is_directory(path, error)) {
        return Failure(kLocalFile, Clean(path) +
                                       " is neither a file or folder nor the number of a "
                                       "run (kemffdc history lists them).");
    }
    shown.recorded = FindRecorded(path, stateFolder);
    if (shown.recorded) shown.state = StateOf(shown.recorded->run, nullptr);
    if (fs::is_directory(path, error)) {
        LookIntoFolder(path, shown);
    } else {
        shown.files.push_back(LookInto(path));
    }
    return {};
}

Outcome Find(const Options& options, Shown& shown) {
    const std::string folder = History::StateFolder(options.stateDir);
    const History::Id run = RunNumber(options.subject);
    Outcome outcome =
        run != 0 ? FindRun(run, folder, shown) : FindPath(options.subject, folder, shown);
    for (const ShownFile& file : shown.files) {
        const Archives::Reading& reading = file.contents.reading;
        if (!outcome.Ok() || reading.Ok()) continue;
        outcome =
            Failure(kIncomplete, Cause::kUnreadable,
                    "The archive " + Clean(file.path, kLongPath) + " " + reading.reason + ".");
    }
    return outcome;
}

void Line(std::ostream& out, const char* label, const std::string& text) {
    if (!text.empty()) out << label << Clean(text, kLongPath) << "\n";
}

void WriteRun(const Shown& shown, std::ostream& out) {
    const History::RunRow& run = shown.recorded->run;
    out << "Run:       " << (run.id == 0 ? "not in the history" : std::to_string(run.id)) << ", "
        << Clean(run.command) << " through " << Clean(run.channel) << ": " << shown.state << "\n";
    Line(out, "BMC:       ",
         run.host.empty() ? "of this machine"
         : run.port == 0  ? run.host
                          : run.host + " port " + std::to_string(run.port));
    Line(out, "Started:   ", run.begunAt);
    Line(out, "Ended:     ", run.endedAt);
    Line(out, "Reason:    ", run.reason);
    Line(out, "Serial:    ", run.bmc.serial);
    Line(out, "UUID:      ", run.bmc.uuid);
    Line(out, "Model:     ", run.bmc.model);
    Line(out, "Firmware:  ", run.bmc.firmware);
    Line(out, "Operation: ", run.operation);
    Line(out, "Task:      ",
         run.task.empty() || run.taskState.empty() ? run.task : run.task + ", " + run.taskState);
    Line(out, "On BMC:    ", run.bmcPath);
    Line(out, "Exported:  ", run.exportUri);
    for (const History::ArchiveRow& file : shown.recorded->files) {
        if (!file.removedAt.empty()) Line(out, "Removed:   ", file.path + ", " + file.removedAt);
    }
    for (const History::StepRow& step : shown.steps) {
        out << "  " << Clean(step.name) << ": ";
        if (step.endedAt.empty()) {
            out << "not ended";
        } else {
            out << std::fixed << std::setprecision(1) << step.seconds << " s";
        }
        out << (step.detail.empty() ? "" : ", " + Clean(step.detail)) << "\n";
    }
}

void WriteExcerpt(const Archives::Excerpt& excerpt, const char* what, std::ostream& out) {
    out << "\n" << Clean(excerpt.name) << (excerpt.whole ? "" : what) << ":\n";
    for (const std::string& line : excerpt.lines) out << "  " << Clean(line) << "\n";
}

void WriteTree(const Archives::TreeManifest& tree, std::ostream& out) {
    out << "Kind:      Redfish tree, read by kemffdc " << Clean(tree.version)
        << ": no archive of the BMC's own making\n"
        << "Read:      " << Archives::TreeWords(tree.counts) << "\n";
    for (const std::string& limit : tree.counts.limits)
        out << "Note:      " << Clean(limit) << "\n";
}

void WriteFile(const ShownFile& file, std::ostream& out) {
    const Archives::Contents& contents = file.contents;
    const Archives::Reading& reading = contents.reading;
    out << "\nArchive:   " << Clean(file.path, kLongPath) << "\n"
        << "Size:      " << file.size << " bytes (" << HumanBytes(file.size) << ")\n"
        << "Inside:    " << reading.files << (reading.files == 1 ? " file, " : " files, ")
        << HumanBytes(reading.bytes) << " unpacked"
        << (reading.Ok() ? ", read to the end" : "; NOT READ TO ITS END: it " + reading.reason)
        << "\n";
    if (contents.tree) WriteTree(*contents.tree, out);
    std::size_t shown = 0;
    for (const Archives::Entry& entry : contents.entries) {
        if (entry.kind == Archives::Entry::Kind::kFolder) continue;
        if (++shown > kShownEntries) break;
        out << std::setw(12) << entry.size << "  " << Clean(entry.name) << "\n";
    }
    if (reading.files > kShownEntries) {
        out << "              and " << reading.files - kShownEntries << " more\n";
    }
    for (const auto& excerpt : contents.manifests) WriteExcerpt(excerpt, ", its beginning", out);
    for (const auto& excerpt : contents.events) WriteExcerpt(excerpt, ", the newest lines", out);
}

void WriteWords(const Shown& shown, std::ostream& out) {
    if (shown.recorded) WriteRun(shown, out);
    for (const ShownFile& file : shown.files) WriteFile(file, out);
}

const char* KindName(Archives::Entry::Kind kind) {
    switch (kind) {
        case Archives::Entry::Kind::kFile:
            return "file";
        case Archives::Entry::Kind::kFolder:
            return "folder";
        case Archives::Entry::Kind::kLink:
            return "link";
        case Archives::Entry::Kind::kOther:
            return "other";
    }
    return "other";
}

json::array ExcerptsOf(const std::vector<Archives::Excerpt>& excerpts) {
    json::array array;
    for (const Archives::Excerpt& excerpt : excerpts) {
        json::array lines;
        for (const std::string& line : excerpt.lines) lines.push_back(TextValue(line));
        array.push_back(json::object{{"name", TextValue(excerpt.name)},
                                     {"lines", std::move(lines)},
                                     {"whole", excerpt.whole}});
    }
    return array;
}

json::value TreeValue(const std::optional<Archives::TreeManifest>& tree) {
    if (!tree) return nullptr;
    return Archives::TreeObject(tree->counts);
}

json::object FileObject(const ShownFile& file) {
    const Archives::Contents& contents = file.contents;
    json::array entries;
    for (const Archives::Entry& entry : contents.entries) {
        entries.push_back(json::object{
            {"name", TextValue(entry.name)}, {"kind", KindName(entry.kind)}, {"size", entry.size}});
    }
    return {{"path", TextValue(file.path)},
            {"size", file.size},
            {"readable", contents.reading.Ok()},
            {"reason", TextOrNull(contents.reading.reason)},
            {"files", contents.reading.files},
            {"unpacked", contents.reading.bytes},
            {"entries", std::move(entries)},
            {"tree", TreeValue(contents.tree)},
            {"manifests", ExcerptsOf(contents.manifests)},
            {"events", ExcerptsOf(contents.events)}};
}

json::object StepObject(const History::StepRow& step) {
    const bool ended = !step.endedAt.empty();
    return {{"name", TextValue(step.name)},
            {"code", ended ? json::value(step.code) : json::value(nullptr)},
            {"seconds", ended ? Seconds(step.seconds) : json::value(nullptr)},
            {"detail", TextOrNull(step.detail)}};
}

json::object ObjectOf(const Shown& shown, const Outcome& outcome) {
    json::object run;
    if (shown.recorded) {
        run = RunRowObject(shown.recorded->run, shown.state);
        json::array steps;
        for (const History::StepRow& step : shown.steps) steps.push_back(StepObject(step));
        run["steps"] = std::move(steps);
        json::array archives;
        for (const auto& one : shown.recorded->files) archives.push_back(ArchiveRowObject(one));
        run["archives"] = std::move(archives);
    }
    json::array files;
    for (const ShownFile& file : shown.files) files.push_back(FileObject(file));
    return {{"schema", kJsonSchema},
            {"version", KEMFFDC_VERSION},
            {"command", "show"},
            {"exit_code", static_cast<int>(outcome.code)},
            {"reason", TextOrNull(outcome.reason)},
            {"run", shown.recorded ? json::value(std::move(run)) : json::value(nullptr)},
            {"contents", std::move(files)}};
}

}  // namespace

int ShowArchive(const Options& options, std::ostream& out, std::ostream& err) {
    Shown shown;
    Outcome outcome;
    try {
        outcome = Find(options, shown);
    } catch (const History::StoreError& failure) {
        outcome = Failure(kLocalFile, Clean(failure.what()));
    }
    if (options.json) {
        out << JsonText(ObjectOf(shown, outcome)) << "\n";
    } else {
        WriteWords(shown, out);
    }
    out.flush();
    WriteReason(outcome, err);
    return outcome.code;
}

}  // namespace Kemffdc
