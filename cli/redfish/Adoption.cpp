// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Adoption.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>

#include "Clock.h"
#include "cli/redfish/Json.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr char kServiceRoot[] = "/redfish/v1/";
constexpr char kExportAction[] = "ServiceData.ExportFFDCData";
constexpr char kCollectAction[] = "LogService.CollectDiagnosticData";
constexpr char kMini[] = "Mini-log";
constexpr char kFull[] = "ProcessorDump";
constexpr std::size_t kMostTasks = 64;
constexpr std::size_t kMostPages = 8;

// Of the states of DSP0268 those after which a task does nothing any more.
constexpr const char* kEnds[] = {"Completed", "Exception", "Killed", "Cancelled", "Interrupted"};

// Seconds: both clocks are read to the second, and the intent is written down to the second.
constexpr std::time_t kSlack = 3;

constexpr std::chrono::seconds kPause{1};

std::optional<json::object> Ask(Transport& transport, const Login& login, const std::string& path,
                                std::string* date = nullptr) {
    if (path.empty()) return std::nullopt;
    const Answer answer = transport.Get(path, login);
    if (answer.failedAt != Stage::kDone || !answer.IsSuccess()) return std::nullopt;
    if (date != nullptr) *date = answer.Header("date");
    return ReadObject(answer.body);
}

bool IsEnd(const std::string& state) {
    return std::find(std::begin(kEnds), std::end(kEnds), state) != std::end(kEnds);
}

bool IsCandidate(const ListedTask& task, const Intent& intent, std::time_t ahead) {
    const char* wanted = intent.miniLog ? kMini : kFull;
    const bool fits = intent.standard ? task.isCollection : task.isExport;
    if (!fits || intent.known.count(task.uri) > 0) return false;
    if (!intent.standard && !task.kind.empty() && task.kind != wanted) return false;
    return task.started ? *task.started >= intent.at + ahead - kSlack : !task.ended;
}

// Those without a time come last.
bool IsEarlier(const ListedTask& one, const ListedTask& other) {
    if (one.started && other.started) return *one.started < *other.started;
    return one.started.has_value();
}

// The links of the collection, page by page (DSP0266, "Partial results").
std::optional<std::vector<std::string>> ListTasks(Transport& transport, const Login& login,
                                                  std::string* date) {
    const auto root = Ask(transport, login, kServiceRoot);
    const auto service =
        root ? Ask(transport, login, LinkMember(*root, "Tasks")) : std::optional<json::object>();
    std::string page = service ? LinkMember(*service, "Tasks") : "";
    std::vector<std::string> links;
    for (std::size_t pages = 0; !page.empty() && pages < kMostPages; ++pages) {
        const auto collection = Ask(transport, login, page, date);
        if (!collection) return std::nullopt;
        for (const std::string& link : LinksMember(*collection, "Members")) links.push_back(link);
        const std::string next = TextMember(*collection, "Members@odata.nextLink");
        page = IsPlainPath(next) ? next : "";
        if (page.empty()) return links;
    }
    return page.empty() ? std::nullopt : std::optional(links);
}

FoundTask LookOnce(Transport& transport, const Login& login, const Intent& intent) {
    std::string date;
    const auto links = ListTasks(transport, login, &date);
    if (!links) return {};
    const std::time_t now = std::time(nullptr);
    const std::time_t ahead = ReadHttpTime(date).value_or(now) - now;
    std::vector<ListedTask> tasks;
    const std::size_t first = links->size() - std::min(links->size(), kMostTasks);
    for (std::size_t i = first; i < links->size(); ++i) {
        const Answer answer = transport.Get((*links)[i], login);
        if (answer.failedAt != Stage::kDone) return {};
        const auto task =
            answer.IsSuccess() ? ReadListedTask((*links)[i], answer.body) : std::nullopt;
        if (task) tasks.push_back(*task);
    }
    return {true, ChooseTask(tasks, intent, ahead)};
}

}  // namespace

std::optional<ListedTask> ReadListedTask(const std::string& uri, const std::string& body) {
    const auto object = ReadObject(body);
    if (!object) return std::nullopt;
    ListedTask task;
    task.uri = uri;
    task.started = ReadIsoTime(TextMember(*object, "StartTime"));
    task.ended = IsEnd(TextMember(*object, "TaskState"));
    const json::object* oem = ObjectMember(*object, "Oem");
    const json::object* own = oem == nullptr ? nullptr : ObjectMember(*oem, "Tavrin");
    if (own != nullptr) task.kind = TextMember(*own, "DataCollectionType");
    const json::object* payload = ObjectMember(*object, "Payload");
    const std::string target = payload == nullptr ? "" : TextMember(*payload, "TargetUri");
    task.isExport = !task.kind.empty() || target.find(kExportAction) != std::string::npos;
    task.isCollection = target.find(kCollectAction) != std::string::npos;
    return task;
}

std::string ChooseTask(const std::vector<ListedTask>& tasks, const Intent& intent,
                       std::time_t ahead) {
    const ListedTask* chosen = nullptr;
    for (const ListedTask& task : tasks) {
        if (!IsCandidate(task, intent, ahead)) continue;
        if (chosen == nullptr || IsEarlier(task, *chosen)) chosen = &task;
    }
    return chosen == nullptr ? "" : chosen->uri;
}

std::optional<std::time_t> ReadIsoTime(const std::string& text) {
    std::tm parts{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr) return std::nullopt;
    if (*rest == '.') rest += 1 + std::strspn(rest + 1, "0123456789");
    const char* end = strptime(rest, "%z", &parts);  // takes "Z" and "+01:00"
    if (end == nullptr || *end != '\0') return std::nullopt;
    const long east = parts.tm_gmtoff;
    return timegm(&parts) - east;
}

std::optional<std::time_t> ReadHttpTime(const std::string& text) {
    const std::time_t time = curl_getdate(text.c_str(), nullptr);
    return time < 0 ? std::nullopt : std::optional(time);
}

FoundTask FindTask(Transport& transport, const Login& login, const Intent& intent) {
    for (;;) {
        FoundTask found = LookOnce(transport, login, intent);
        const bool late = std::time(nullptr) >= intent.at + kLatest;
        if (!found.answered || !found.uri.empty() || late) return found;
        Clock::SleepFor(kPause);
    }
}

}  // namespace Kemffdc::Redfish
