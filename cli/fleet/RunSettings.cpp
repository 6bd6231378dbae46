// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/RunSettings.h"

#include <boost/json.hpp>
#include <charconv>
#include <chrono>
#include <system_error>
#include <utility>

#include "cli/report/Json.h"

namespace Kemffdc::Fleet {
namespace {

namespace json = boost::json;

constexpr char kMetrics[] = "metrics";

// The numbers of a run, each with its name in the journal and its option.
template <class Pace, class Use>
void ForEachNumber(Pace& options, const Use& use) {
    use("gathering", "--gathering", options.gathering);
    use("transfers", "--transfers", options.transfers);
    use("starts", "--starts", options.startsPerSecond);
    use("retries", "--retries", options.retries);
    use("retry_pause", "--retry-pause", options.retryPause);
    use("host_deadline", "--host-deadline", options.hostDeadline);
    use("run_deadline", "--run-deadline", options.runDeadline);
    use("keep", "--keep", options.keep);
}

json::object ObjectOf(const std::map<int, std::string>& files) {
    json::object object;
    for (const auto& [number, path] : files) object[std::to_string(number)] = TextValue(path);
    return object;
}

std::map<int, std::string> FilesIn(const json::object& settings, const char* member) {
    std::map<int, std::string> files;
    const json::value* value = settings.if_contains(member);
    if (value == nullptr || !value->is_object()) return files;
    for (const auto& [number, path] : value->get_object()) {
        int host = 0;
        const auto read = std::from_chars(number.data(), number.data() + number.size(), host);
        if (read.ec == std::errc() && path.is_string()) {
            files[host] = std::string(path.get_string());
        }
    }
    return files;
}

}  // namespace

std::string ToJson(const RunSettings& settings) {
    json::object object;
    ForEachNumber(settings.pace, [&object](const char* name, const char*, std::int64_t number) {
        object[name] = number;
    });
    if (!settings.pace.metrics.empty()) object[kMetrics] = TextValue(settings.pace.metrics);
    object["password_files"] = ObjectOf(settings.passwordFiles);
    object["export_password_files"] = ObjectOf(settings.exportPasswordFiles);
    return JsonText(object);
}

RunSettings SettingsFromJson(const std::string& text) {
    RunSettings settings;
    boost::system::error_code error;
    const json::value value = json::parse(text, error);
    if (error || !value.is_object()) return settings;
    const json::object& object = value.get_object();
    ForEachNumber(settings.pace, [&object](const char* name, const char*, auto& number) {
        const json::value* member = object.if_contains(name);
        if (member == nullptr || !member->is_int64()) return;
        number = static_cast<std::decay_t<decltype(number)>>(member->get_int64());
    });
    const json::value* metrics = object.if_contains(kMetrics);
    if (metrics != nullptr && metrics->is_string()) settings.pace.metrics = metrics->get_string();
    settings.passwordFiles = FilesIn(object, "password_files");
    settings.exportPasswordFiles = FilesIn(object, "export_password_files");
    return settings;
}

void PreferLine(const Options& line, FleetOptions& pace) {
    const FleetOptions& said = Own(line);
    std::map<std::string, std::int64_t> numbers;
    ForEachNumber(said, [&](const char*, const char* option, std::int64_t number) {
        if (line.IsOnLine(option)) numbers[option] = number;
    });
    ForEachNumber(pace, [&](const char*, const char* option, auto& number) {
        if (numbers.count(option) == 0) return;
        number = static_cast<std::decay_t<decltype(number)>>(numbers[option]);
    });
    if (line.IsOnLine("--metrics")) pace.metrics = said.metrics;
    pace.onFinish = said.onFinish;
}

Scheduler::Pace PaceOf(const FleetOptions& options) {
    using std::chrono::seconds;
    Scheduler::Pace pace;
    pace.gathering = static_cast<std::size_t>(options.gathering);
    pace.transfers = static_cast<std::size_t>(options.transfers);
    pace.startGap = Scheduler::Duration(1000 / options.startsPerSecond);
    pace.retries = options.retries;
    pace.pause = seconds(options.retryPause);
    pace.hostDeadline = seconds(options.hostDeadline);
    pace.runDeadline = seconds(options.runDeadline);
    return pace;
}

}  // namespace Kemffdc::Fleet
