// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Task.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "cli/redfish/Json.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr char kTasks[] = "/redfish/v1/TaskService/Tasks/";
constexpr char kOlderTasks[] = "/redfish/v1/Tasks/Tasks/";
constexpr std::size_t kMaxMessages = 64;
constexpr std::size_t kMaxTold = 3;

// By which a BMC says that it was the file store: of the Base registry (DSP8011), and the OEM's
// own.
constexpr const char* kStoreMessages[] = {
    "AccessDenied",
    "ResourceAtUriUnauthorized",
    "CouldNotEstablishConnection",
    "ResourceAtUriInUnknownFormat",
    "SourceDoesNotSupportProtocol",
    "ExportLoginRefused",
    "ExportHostUnknown",
    "ExportUnreachable",
    "ExportTimedOut",
    "ExportDenied",
    "ExportStoreFull",
    "InsufficientStorage",
};

// The severity of DSP0268; the older member of the same meaning where the newer one is missing.
std::string SeverityOf(const json::object& message) {
    const std::string severity = TextMember(message, "MessageSeverity");
    return severity.empty() ? TextMember(message, "Severity") : severity;
}

std::vector<TaskMessage> MessagesOf(const json::object& task) {
    const json::value* value = task.if_contains("Messages");
    const json::array* entries = value == nullptr ? nullptr : value->if_array();
    std::vector<TaskMessage> messages;
    if (entries == nullptr) return messages;
    const std::size_t first = entries->size() - std::min(entries->size(), kMaxMessages);
    for (std::size_t i = first; i < entries->size(); ++i) {
        const json::object* entry = (*entries)[i].if_object();
        if (entry == nullptr) continue;
        messages.push_back({TextMember(*entry, "MessageId"), TextMember(*entry, "Message"),
                            SeverityOf(*entry), TextMember(*entry, "Resolution")});
    }
    return messages;
}

std::optional<int> PercentOf(const json::object& task) {
    const json::value* value = task.if_contains("PercentComplete");
    if (value == nullptr || !value->is_number()) return std::nullopt;
    boost::system::error_code fraction;
    const int percent = value->to_number<int>(fraction);
    const bool sound = !fraction && percent >= 0 && percent <= 100;
    return sound ? std::optional<int>(percent) : std::nullopt;
}

bool IsBad(const TaskMessage& message) {
    return !message.severity.empty() && message.severity != "OK";
}

// Those that tell of trouble, or the newest where none does.
std::vector<TaskMessage> Worst(const Task& task) {
    std::vector<TaskMessage> worst;
    std::copy_if(task.messages.begin(), task.messages.end(), std::back_inserter(worst), IsBad);
    if (worst.empty() && !task.messages.empty()) worst.push_back(task.messages.back());
    if (worst.size() > kMaxTold) worst.erase(worst.begin(), worst.end() - kMaxTold);
    return worst;
}

// "\"The login failed.\" (Tavrin.1.0.StoreLoginFailed), advice: \"Check the password.\""
std::string Quoted(const TaskMessage& message) {
    std::string words = message.text.empty() ? "" : "\"" + message.text + "\"";
    if (!message.id.empty()) words += (words.empty() ? "" : " ") + ("(" + message.id + ")");
    const bool advises = !message.resolution.empty() && message.resolution != "None.";
    if (advises) words += ", advice: \"" + message.resolution + "\"";
    return words;
}

// "TaskState Exception, TaskStatus Critical, 40 %"
std::string Figures(const Task& task) {
    std::string figures;
    const auto add = [&figures](const std::string& figure) {
        figures += (figures.empty() ? "" : ", ") + figure;
    };
    if (!task.state.empty()) add("TaskState " + task.state);
    if (!task.status.empty()) add("TaskStatus " + task.status);
    if (task.percent) add(std::to_string(*task.percent) + " %");
    return figures;
}

// "Base.1.12.AccessDenied" -> "AccessDenied"
std::string LastPart(const std::string& id) { return id.substr(id.rfind('.') + 1); }

}  // namespace

std::string TaskUri(const std::string& exportAnswer, bool olderPaths) {
    const auto answer = ReadObject(exportAnswer);
    const std::string id = answer ? TextMember(*answer, "Id") : "";
    return id.empty() ? "" : (olderPaths ? kOlderTasks : kTasks) + id;
}

std::optional<Task> ReadTask(const std::string& uri, const std::string& body) {
    const auto object = ReadObject(body);
    if (!object) return std::nullopt;
    return Task{uri, TextMember(*object, "TaskState"), TextMember(*object, "TaskStatus"),
                PercentOf(*object), MessagesOf(*object)};
}

std::optional<Task> AskForTask(Transport& transport, const Login& login, const std::string& uri) {
    if (uri.empty()) return std::nullopt;
    const Answer answer = transport.Get(uri, login);
    if (answer.failedAt != Stage::kDone || !answer.IsSuccess()) return std::nullopt;
    return ReadTask(uri, answer.body);
}

std::string ArchivePathIn(const std::string& body) {
    const auto task = ReadObject(body);
    const json::object* place = task ? &*task : nullptr;
    for (const char* name : {"Oem", "Tavrin", "FFDCForDownloading"}) {
        if (place != nullptr) place = ObjectMember(*place, name);
    }
    const json::value* path = place == nullptr ? nullptr : place->if_contains("Path");
    return path == nullptr || !path->is_string() ? "" : std::string(path->get_string());
}

std::string BmcSays(const Task& task) {
    const std::string figures = Figures(task);
    std::string words;
    for (const TaskMessage& message : Worst(task)) {
        const std::string quoted = Quoted(message);
        if (!quoted.empty()) words += (words.empty() ? "" : "; ") + quoted;
    }
    if (words.empty()) return figures.empty() ? "" : " The BMC shows " + figures + ".";
    return " The BMC says" + (figures.empty() ? "" : " (" + figures + ")") + ": " + words + ".";
}

bool IsRefusedByStore(const Task& task) {
    return std::any_of(task.messages.begin(), task.messages.end(), [](const TaskMessage& message) {
        const std::string name = LastPart(message.id);
        return std::find(std::begin(kStoreMessages), std::end(kStoreMessages), name) !=
               std::end(kStoreMessages);
    });
}

std::string NewestMessage(const Task& task) {
    if (task.messages.empty()) return "";
    const TaskMessage& newest = task.messages.back();
    return newest.text.empty() ? newest.id : newest.text;
}

}  // namespace Kemffdc::Redfish
