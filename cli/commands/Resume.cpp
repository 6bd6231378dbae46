// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Resume.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "cli/Channels.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"

namespace Kemffdc {
namespace {

using History::RunRow;
using History::Store;

Outcome Usage(const std::string& text) { return Failure(kUsage, text); }

// 0: it is none.
History::Id NumberOf(const std::string& text) {
    History::Id number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end && number > 0 ? number : 0;
}

Outcome CannotGoOn(const Store& store, const RunRow& run) {
    const std::string name = "Run " + std::to_string(run.id);
    const Channel* channel = FindChannel(run.channel);
    if (channel == nullptr || channel->resume == nullptr) {
        return Usage(name + " went over " + run.channel +
                     "; only a run over Redfish can be gone on with.");
    }
    const std::vector<History::ArchiveRow> archives = store.Archives(run.id);
    const auto delivered = std::find_if(archives.begin(), archives.end(),
                                        [](const auto& archive) { return !archive.path.empty(); });
    if (delivered != archives.end()) {
        return Usage(name + " has brought its archive: " + delivered->path + ".");
    }
    if (run.exitCode == kDone) return Usage(name + " has ended well.");
    if (store.IsLive(run.id)) return Usage(name + " is still at work.");
    if (run.several) {
        return Usage(name +
                     " was to bring several types of data, one after the other: it cannot be gone "
                     "on with. Use kemffdc collect.");
    }
    if (run.operation == "tree") return {};  // needs no task
    if (run.task.empty() && store.AskedAt(run.id).empty()) {
        return Usage(name +
                     " has started no task on the BMC: there is nothing to go on with. Use "
                     "kemffdc collect.");
    }
    return {};
}

// What the operator says himself counts more.
void Say(Line& line, const char* option, const std::string& text) {
    if (!text.empty()) line.options.emplace(option, text);
}

void PutOnLine(const RunRow& run, Line& line) {
    line.argument = run.host;
    line.options["--via"] = run.channel;
    line.options["--port"] = std::to_string(run.port);
    Say(line, "--user", run.user);
    Say(line, "--log", run.logKind);
    Say(line, "--operation", run.operation.empty() ? "oem" : run.operation);
    Say(line, "--export-uri", run.exportUri);
    Say(line, "--output", run.output);
}

}  // namespace

Outcome RecallRun(Line& line, Options& options) {
    options.resumes = NumberOf(*line.argument);
    if (options.resumes == 0) {
        return Usage("RUN is the number of a run, as kemffdc history lists them.");
    }
    const auto given = line.options.find("--state-dir");
    const std::string folder =
        History::StateFolder(given == line.options.end() ? "" : given->second);
    const std::string unknown = "There is no run " + *line.argument + " in the history" +
                                (folder.empty() ? "." : " (" + folder + ").");
    if (folder.empty() || !Store::Exists(folder)) return Usage(unknown);
    try {
        const Store store(folder);
        const auto run = store.FindRun(options.resumes);
        if (!run) return Usage(unknown);
        Outcome outcome = CannotGoOn(store, *run);
        if (outcome.Ok()) PutOnLine(*run, line);
        return outcome;
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
}

}  // namespace Kemffdc
