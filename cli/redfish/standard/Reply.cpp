// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Reply.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "cli/redfish/Adoption.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Task.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr long kAccepted = 202;
constexpr long kCreated = 201;
constexpr long kNoContent = 204;
constexpr long kNotFound = 404;
constexpr long kGone = 410;
constexpr long kUnavailable = 503;
constexpr std::int64_t kLongestPause = 3600;  // seconds
constexpr char kLocation[] = "location:";

// What a completed task says of the resource that it has made: in its links, or as the headers of
// the operation's own answer (DSP0268, schema Task).
std::string CreatedBy(const json::object& task) {
    if (const json::object* links = ObjectMember(task, "Links")) {
        const auto created = LinksMember(*links, "CreatedResources");
        if (!created.empty()) return created.front();
    }
    const json::object* payload = ObjectMember(task, "Payload");
    const json::value* headers = payload == nullptr ? nullptr : payload->if_contains("HttpHeaders");
    if (headers == nullptr || !headers->is_array()) return "";
    for (const json::value& header : headers->get_array()) {
        const std::string line = header.is_string() ? std::string(header.get_string()) : "";
        if (strncasecmp(line.c_str(), kLocation, std::strlen(kLocation)) != 0) continue;
        const std::size_t value = line.find_first_not_of(' ', std::strlen(kLocation));
        return value == std::string::npos ? "" : line.substr(value);
    }
    return "";
}

void TakeTask(const json::object& object, const std::string& body, Reply& reply) {
    reply.taskUri = RawMember(object, "@odata.id");
    if (!IsPlainPath(reply.taskUri)) reply.taskUri.clear();
    reply.task = ReadTask(reply.taskUri, body);
    reply.entryUri = CreatedBy(object);
    if (reply.task->state == "Completed") {
        reply.state = reply.entryUri.empty() ? Reply::State::kDone : Reply::State::kNamed;
    } else {
        reply.state =
            DiagnoseTask(*reply.task).Ok() ? Reply::State::kRunning : Reply::State::kFailed;
    }
}

// A success with a body, or without one.
void TakeResult(const Answer& answer, Reply& reply) {
    const auto object = ReadObject(answer.body);
    if (!object && !answer.body.empty()) {
        reply.state = Reply::State::kUnreadable;
        return;
    }
    if (object && object->contains("TaskState")) return TakeTask(*object, answer.body, reply);
    if (object) reply.entry = ReadEntry(*object);
    if (reply.entry) {
        reply.state = Reply::State::kEntry;
        return;
    }
    reply.entryUri = answer.Header("location");
    const bool named = answer.httpCode == kCreated && !reply.entryUri.empty();
    reply.state = named ? Reply::State::kNamed : Reply::State::kDone;
}

void TakeAccepted(const Answer& answer, Reply& reply) {
    reply.monitor = answer.Header("location");
    const auto object = ReadObject(answer.body);
    // A body without a state is a message, or nothing; the monitor is asked anyhow.
    if (object && object->contains("TaskState")) TakeTask(*object, answer.body, reply);
    // Whatever the task says already: the operation's own answer is still to come.
    reply.state = Reply::State::kRunning;
    if (reply.monitor.empty() && object) reply.monitor = RawMember(*object, "TaskMonitor");
}

}  // namespace

std::optional<std::chrono::seconds> RetryAfter(const Answer& answer) {
    const std::string text = answer.Header("retry-after");
    std::int64_t seconds = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, seconds);
    if (text.empty()) return std::nullopt;
    if (read.ec != std::errc() || read.ptr != end) {
        const auto then = ReadHttpTime(text);
        const auto now = ReadHttpTime(answer.Header("date"));
        if (!then || !now) return std::nullopt;
        seconds = *then - *now;
    }
    return std::chrono::seconds(std::clamp<std::int64_t>(seconds, 0, kLongestPause));
}

Reply ReadReply(const Answer& answer) {
    Reply reply;
    if (answer.failedAt != Stage::kDone) return reply;
    reply.retryAfter = RetryAfter(answer);
    switch (answer.httpCode) {
        case kAccepted:
            TakeAccepted(answer, reply);
            break;
        case kNoContent:
            reply.state = Reply::State::kDone;
            break;
        case kUnavailable:
            reply.state = Reply::State::kBusy;
            break;
        case kNotFound:
        case kGone:
            reply.state = Reply::State::kForgotten;
            break;
        default:
            reply.state = Reply::State::kRefused;
            if (answer.IsSuccess()) TakeResult(answer, reply);
    }
    return reply;
}

}  // namespace Kemffdc::Redfish
