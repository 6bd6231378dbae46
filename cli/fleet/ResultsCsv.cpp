// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/ResultsCsv.h"

#include <cstdio>
#include <functional>
#include <utility>

#include "cli/Utc.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

constexpr char kFormulaStarts[] = "=+-@\t\r";
constexpr char kLineEnd[] = "\r\n";

std::string TimeText(double at) { return at > 0 ? UtcText(static_cast<std::time_t>(at)) : ""; }

std::string SecondsText(double seconds) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

std::string Cell(const std::string& any) {
    std::string text = ValidUtf8(any);
    if (text.find_first_of(kFormulaStarts) == 0) text.insert(0, 1, '\'');
    if (text.find_first_of(",;\"\r\n\t") == std::string::npos) return text;
    for (std::size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 2)) {
        text.insert(at, 1, '"');
    }
    return '"' + text + '"';
}

struct Column {
    const char* name;
    std::function<std::string(const HostResult& host, const RunResult& run)> text;
};

const Column kColumns[] = {
    {"name", [](const HostResult& host, const RunResult&) { return host.name; }},
    {"host", [](const HostResult& host, const RunResult&) { return host.host; }},
    {"group", [](const HostResult& host, const RunResult&) { return host.group; }},
    {"channel", [](const HostResult& host, const RunResult&) { return host.channel; }},
    {"operation", [](const HostResult& host, const RunResult&) { return host.operation; }},
    {"state",
     [](const HostResult& host, const RunResult&) -> std::string {
         return History::NameOf(host.state);
     }},
    {"outcome", [](const HostResult& host, const RunResult&) { return host.outcome; }},
    {"exit_code",
     [](const HostResult& host, const RunResult&) -> std::string {
         return host.exitCode < 0 ? "" : std::to_string(host.exitCode);
     }},
    {"reason", [](const HostResult& host, const RunResult&) { return host.reason; }},
    {"attempts",
     [](const HostResult& host, const RunResult&) { return std::to_string(host.attempts); }},
    {"started", [](const HostResult& host, const RunResult&) { return TimeText(host.Started()); }},
    {"ended", [](const HostResult& host, const RunResult&) { return TimeText(host.Ended()); }},
    {"seconds",
     [](const HostResult& host, const RunResult&) { return SecondsText(host.Seconds()); }},
    {"archive", [](const HostResult& host, const RunResult&) { return host.archive; }},
    {"removed", [](const HostResult& host, const RunResult&) { return host.removed; }},
    {"size",
     [](const HostResult& host, const RunResult&) -> std::string {
         return host.archive.empty() ? "" : std::to_string(host.size);
     }},
    {"sha256", [](const HostResult& host, const RunResult&) { return host.sha256; }},
    {"address", [](const HostResult& host, const RunResult&) { return host.bmc.address; }},
    {"vendor", [](const HostResult& host, const RunResult&) { return host.bmc.vendor; }},
    {"model", [](const HostResult& host, const RunResult&) { return host.bmc.model; }},
    {"serial", [](const HostResult& host, const RunResult&) { return host.bmc.serial; }},
    {"uuid", [](const HostResult& host, const RunResult&) { return host.bmc.uuid; }},
    {"firmware", [](const HostResult& host, const RunResult&) { return host.bmc.firmware; }},
    {"station", [](const HostResult&, const RunResult& run) { return run.station; }},
    {"fleet",
     [](const HostResult&, const RunResult& run) -> std::string {
         return run.fleet == 0 ? "" : std::to_string(run.fleet);
     }},
    {"folder", [](const HostResult&, const RunResult& run) { return run.folder; }},
};

}  // namespace

std::string ReportCsv(const Results& results) {
    std::string text;
    const char* between = "";
    for (const Column& column : kColumns)
        text += std::exchange(between, ",") + std::string(column.name);
    text += kLineEnd;
    for (const HostResult& host : results.hosts) {
        between = "";
        for (const Column& column : kColumns) {
            text +=
                std::exchange(between, ",") + Cell(column.text(host, results.runs.at(host.run)));
        }
        text += kLineEnd;
    }
    return text;
}

}  // namespace Kemffdc::Fleet
