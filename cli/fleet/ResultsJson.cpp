// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/ResultsJson.h"

#include <algorithm>
#include <boost/json.hpp>
#include <utility>

#include "cli/Utc.h"
#include "cli/fleet/Meaning.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

namespace json = boost::json;

constexpr char kKind[] = "fleet";  // in the member `report`
constexpr std::size_t kMostReasons = 5;

json::value TimeOrNull(double at) {
    if (at <= 0) return nullptr;
    return json::value_from(UtcText(static_cast<std::time_t>(at)));
}

json::value NumberOrNull(std::int64_t number, std::int64_t none) {
    if (number == none) return nullptr;
    return number;
}

json::object RunObject(const RunResult& run) {
    const char* const state = run.ended > 0 ? "ended" : run.live ? "running" : "killed";
    return {{"station", TextOrNull(run.station)},         {"fleet", NumberOrNull(run.fleet, 0)},
            {"command", TextOrNull(run.command)},         {"version", TextOrNull(run.toolVersion)},
            {"inventory", TextOrNull(run.inventory)},     {"shard", TextOrNull(run.shard)},
            {"folder", TextOrNull(run.folder)},           {"state", state},
            {"started", TimeOrNull(run.started)},         {"ended", TimeOrNull(run.ended)},
            {"exit_code", NumberOrNull(run.exitCode, -1)}};
}

json::object TotalsObject(const Totals& totals) {
    return {{"hosts", totals.hosts},
            {"done", totals.done},
            {"failed", totals.failed},
            {"stopped", totals.stopped},
            {"open", totals.open},
            {"archives", totals.archives},
            {"bytes", totals.bytes},
            {"median_seconds", Seconds(totals.median)},
            {"slowest_seconds", Seconds(totals.slowest)}};
}

json::object FailuresObject(const Results& results, const Failures& failures) {
    const Meaning meaning = MeaningOf(failures.outcome);
    json::array reasons;
    for (const std::string& reason : failures.reasons) {
        if (reasons.size() < kMostReasons) reasons.push_back(TextValue(reason));
    }
    return {{"outcome", TextValue(failures.outcome)},
            {"title", TextValue(meaning.title)},
            {"advice", TextOrNull(meaning.advice)},
            {"count", failures.hosts.size()},
            {"hosts", TextValue(FoldedNames(results, failures.hosts))},
            {"reasons", std::move(reasons)}};
}

json::object BmcObject(const History::Bmc& bmc) {
    return {{"address", TextOrNull(bmc.address)},
            {"service_version", TextOrNull(bmc.serviceVersion)},
            {"vendor", TextOrNull(bmc.vendor)},
            {"product", TextOrNull(bmc.product)},
            {"model", TextOrNull(bmc.model)},
            {"firmware", TextOrNull(bmc.firmware)},
            {"serial", TextOrNull(bmc.serial)},
            {"uuid", TextOrNull(bmc.uuid)},
            {"certificate", TextOrNull(bmc.certificate)},
            {"host_key", TextOrNull(bmc.hostKey)}};
}

json::array StatesArray(const HostResult& host, double begun) {
    json::array states;
    for (const StateChange& change : host.states) {
        states.push_back(json::object{{"state", History::NameOf(change.state)},
                                      {"seconds", Seconds(std::max(0.0, change.at - begun))}});
    }
    return states;
}

json::object HostObject(const Results& results, const HostResult& host) {
    const double begun = results.runs.at(host.run).started;
    return {{"run", host.run},
            {"number", host.number},
            {"name", TextValue(host.name)},
            {"host", TextOrNull(host.host)},
            {"channel", TextOrNull(host.channel)},
            {"operation", TextOrNull(host.operation)},
            {"group", TextOrNull(host.group)},
            {"credential", TextOrNull(host.credential)},
            {"state", History::NameOf(host.state)},
            {"outcome", TextValue(host.outcome)},
            {"exit_code", NumberOrNull(host.exitCode, -1)},
            {"reason", TextOrNull(host.reason)},
            {"attempts", host.attempts},
            {"started", TimeOrNull(host.Started())},
            {"ended", TimeOrNull(host.Ended())},
            {"seconds", Seconds(host.Seconds())},
            {"states", StatesArray(host, begun)},
            {"task_uri", TextOrNull(host.task)},
            {"archive", TextOrNull(host.archive)},
            {"record", TextOrNull(host.record)},
            {"removed", TextOrNull(host.removed)},
            {"export_uri", TextOrNull(host.exportUri)},
            {"size", host.archive.empty() ? json::value(nullptr) : json::value(host.size)},
            {"sha256", TextOrNull(host.sha256)},
            {"bmc", BmcObject(host.bmc)}};
}

// Its texts as one array, each value on a line of its own.
template <class Values, class ToObject>
std::string Lines(const Values& values, const ToObject& toObject) {
    std::string text = "[";
    const char* between = "\n  ";
    for (const auto& value : values) {
        text += std::exchange(between, ",\n  ") + JsonText(toObject(value));
    }
    return text + "\n ]";
}

// What is no member, or of another type, counts as not known: an older report has less.
History::Bmc BmcIn(const json::object& host) {
    History::Bmc bmc;
    const json::value* const value = host.if_contains("bmc");
    if (value == nullptr || !value->is_object()) return bmc;
    const json::object& object = value->as_object();
    bmc.address = TextIn(object, "address");
    bmc.serviceVersion = TextIn(object, "service_version");
    bmc.vendor = TextIn(object, "vendor");
    bmc.product = TextIn(object, "product");
    bmc.model = TextIn(object, "model");
    bmc.firmware = TextIn(object, "firmware");
    bmc.serial = TextIn(object, "serial");
    bmc.uuid = TextIn(object, "uuid");
    bmc.certificate = TextIn(object, "certificate");
    bmc.hostKey = TextIn(object, "host_key");
    return bmc;
}

RunResult RunIn(const json::object& object) {
    RunResult run;
    run.station = TextIn(object, "station");
    run.fleet = NumberIn(object, "fleet", 0);
    run.command = TextIn(object, "command");
    run.toolVersion = TextIn(object, "version");
    run.inventory = TextIn(object, "inventory");
    run.shard = TextIn(object, "shard");
    run.folder = TextIn(object, "folder");
    run.started = static_cast<double>(ReadUtc(TextIn(object, "started")));
    run.ended = static_cast<double>(ReadUtc(TextIn(object, "ended")));
    run.exitCode = static_cast<int>(NumberIn(object, "exit_code", -1));
    return run;
}

double SecondsIn(const json::object& object) {
    const json::value* const value = object.if_contains("seconds");
    if (value == nullptr || !value->is_number()) return 0;
    return value->to_number<double>();
}

// The members of an array that are objects.
std::vector<const json::object*> ObjectsIn(const json::object& object, const char* member) {
    std::vector<const json::object*> objects;
    const json::value* const value = object.if_contains(member);
    if (value == nullptr || !value->is_array()) return objects;
    for (const json::value& entry : value->as_array()) {
        if (entry.is_object()) objects.push_back(&entry.as_object());
    }
    return objects;
}

HostResult HostIn(const json::object& object, const std::vector<RunResult>& runs) {
    HostResult host;
    host.run = static_cast<std::size_t>(NumberIn(object, "run", 0));
    host.number = static_cast<int>(NumberIn(object, "number", 0));
    host.name = TextIn(object, "name");
    host.host = TextIn(object, "host");
    host.channel = TextIn(object, "channel");
    host.operation = TextIn(object, "operation");
    host.group = TextIn(object, "group");
    host.credential = TextIn(object, "credential");
    host.state =
        History::HostStateNamed(TextIn(object, "state")).value_or(History::HostState::kQueued);
    host.outcome = TextIn(object, "outcome");
    host.exitCode = static_cast<int>(NumberIn(object, "exit_code", -1));
    host.reason = TextIn(object, "reason");
    host.attempts = static_cast<int>(NumberIn(object, "attempts", 0));
    if (host.run >= runs.size()) return host;
    for (const json::object* change : ObjectsIn(object, "states")) {
        const auto state = History::HostStateNamed(TextIn(*change, "state"));
        if (state) host.states.push_back({runs[host.run].started + SecondsIn(*change), *state});
    }
    host.task = TextIn(object, "task_uri");
    host.archive = TextIn(object, "archive");
    host.record = TextIn(object, "record");
    host.removed = TextIn(object, "removed");
    host.exportUri = TextIn(object, "export_uri");
    host.size = static_cast<std::uint64_t>(std::max<std::int64_t>(0, NumberIn(object, "size", 0)));
    host.sha256 = TextIn(object, "sha256");
    host.bmc = BmcIn(object);
    return host;
}

}  // namespace

std::string ReportJson(const Results& results) {
    const json::object head{{"schema", kReportSchema},
                            {"report", kKind},
                            {"version", KEMFFDC_VERSION},
                            {"written", TimeOrNull(results.written)},
                            {"started", TimeOrNull(results.Started())},
                            {"ended", TimeOrNull(results.Ended())},
                            {"totals", TotalsObject(TotalsOf(results))}};
    std::string text = JsonText(head);
    text.pop_back();  // its brace: more members follow
    json::array notes;
    for (const std::string& note : results.notes) notes.push_back(TextValue(note));
    text += ",\n \"notes\":" + JsonText(notes);
    text += ",\n \"failures\":" + Lines(FailuresOf(results), [&](const Failures& failures) {
                return FailuresObject(results, failures);
            });
    text += ",\n \"runs\":" + Lines(results.runs, RunObject);
    text += ",\n \"hosts\":" +
            Lines(results.hosts, [&](const HostResult& host) { return HostObject(results, host); });
    return text + "\n}\n";
}

Outcome ReadReportJson(const std::string& text, const std::string& shown, Results& results) {
    const auto refuse = [&shown](const std::string& why) {
        return Failure(kLocalFile, shown + " " + why);
    };
    json::error_code error;
    const json::value value = json::parse(text, error);
    if (error) return refuse("is no JSON: " + error.message() + ".");
    if (!value.is_object() || TextIn(value.as_object(), "report") != kKind) {
        return refuse("is no report of a fleet run.");
    }
    const json::object& report = value.as_object();
    const std::int64_t schema = NumberIn(report, "schema", 0);
    if (schema > kReportSchema) {
        return refuse("has schema number " + std::to_string(schema) +
                      ", which is newer than this kemffdc.");
    }
    for (const json::object* run : ObjectsIn(report, "runs")) results.runs.push_back(RunIn(*run));
    for (const json::object* host : ObjectsIn(report, "hosts")) {
        results.hosts.push_back(HostIn(*host, results.runs));
        const HostResult& read = results.hosts.back();
        if (read.run >= results.runs.size() || read.name.empty() || read.outcome.empty()) {
            return refuse("has a host without a name, an outcome or its run.");
        }
    }
    if (results.runs.empty()) return refuse("names no run.");
    const json::value* const notes = report.if_contains("notes");
    if (notes != nullptr && notes->is_array()) {
        for (const json::value& note : notes->as_array()) {
            if (note.is_string()) results.notes.emplace_back(note.as_string());
        }
    }
    results.written = static_cast<double>(ReadUtc(TextIn(report, "written")));
    return {};
}

}  // namespace Kemffdc::Fleet
