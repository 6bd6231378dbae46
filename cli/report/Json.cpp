// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "cli/Utc.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;

json::value CertificateValue(const std::optional<Certificate>& certificate) {
    if (!certificate) return nullptr;
    const char* trust = TrustName(certificate->trust);
    return json::object{{"sha256", certificate->sha256},
                        {"subject", TextOrNull(certificate->subject)},
                        {"issuer", TextOrNull(certificate->issuer)},
                        {"not_before", TextOrNull(certificate->notBefore)},
                        {"not_after", TextOrNull(certificate->notAfter)},
                        {"valid_now", certificate->validNow},
                        {"self_signed", certificate->selfSigned},
                        {"verified", certificate->verified},
                        {"trust", TextOrNull(trust == nullptr ? "" : trust)}};
}

// Of a folder's files each has its own.
std::string DamageOf(const Delivery& delivery) {
    return delivery.sha256.empty() || delivery.files.empty() ? "" : delivery.files[0].damage;
}

json::object MessageObject(const TaskMessage& message) {
    return {{"id", TextOrNull(message.id)},
            {"text", TextOrNull(message.text)},
            {"severity", TextOrNull(message.severity)},
            {"resolution", TextOrNull(message.resolution)}};
}

// Boost.JSON writes 12.5 as 1.25E1.
std::string DecimalText(double number) {
    std::array<char, 512> text{};
    const auto written =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    return {text.data(), written.ptr};
}

void Append(const json::value& value, std::string& text) {
    const char* between = "";
    if (const json::object* object = value.if_object()) {
        text += '{';
        for (const json::key_value_pair& member : *object) {
            text += std::exchange(between, ",") + json::serialize(json::string(member.key())) + ":";
            Append(member.value(), text);
        }
        text += '}';
    } else if (const json::array* array = value.if_array()) {
        text += '[';
        for (const json::value& entry : *array) {
            text += std::exchange(between, ",");
            Append(entry, text);
        }
        text += ']';
    } else if (const double* number = value.if_double()) {
        text += DecimalText(*number);
    } else {
        text += json::serialize(value);
    }
}

}  // namespace

json::value TextValue(const std::string& text) {
    json::string valid(ValidUtf8(text));  // no braces around it: they would make an array
    return valid;
}

json::value TextOrNull(const std::string& text) {
    if (text.empty()) return nullptr;
    return TextValue(text);
}

json::value PortOrNull(std::uint16_t port) {
    if (port == 0) return nullptr;
    return port;
}

json::value Seconds(double seconds) { return std::round(seconds * 1000) / 1000; }

std::string TextIn(const json::object& object, const char* member) {
    const json::value* value = object.if_contains(member);
    return value != nullptr && value->is_string() ? std::string(value->as_string()) : "";
}

std::int64_t NumberIn(const json::object& object, const char* member, std::int64_t otherwise) {
    const json::value* value = object.if_contains(member);
    return value != nullptr && value->is_int64() ? value->as_int64() : otherwise;
}

json::object FaultObject(const Outcome& outcome, const std::string& command) {
    RunRecord record;
    record.command = command;
    record.started = UtcNow();
    record.ended = record.started;
    record.outcome = outcome;
    return RunObject(record);
}

json::object StepObject(const Step& step) {
    return {{"name", step.name},
            {"code", step.code},
            {"seconds", Seconds(step.seconds)},
            {"detail", TextOrNull(step.detail)}};
}

json::object AttemptObject(const Attempt& attempt) {
    return {{"channel", attempt.channel},
            {"port", PortOrNull(attempt.port)},
            {"operation", TextOrNull(attempt.operation)},
            {"outcome", OutcomeName(attempt.outcome)},
            {"reason", TextOrNull(attempt.outcome.reason)},
            {"seconds", Seconds(attempt.seconds)}};
}

json::object FactsObject(const BmcFacts& facts) {
    json::array notes;
    for (const std::string& note : facts.notes) notes.push_back(TextValue(note));
    return {{"service_version", TextOrNull(facts.serviceVersion)},
            {"product", TextOrNull(facts.product)},
            {"vendor", TextOrNull(facts.vendor)},
            {"model", TextOrNull(facts.model)},
            {"firmware", TextOrNull(facts.firmware)},
            {"serial", TextOrNull(facts.serial)},
            {"uuid", TextOrNull(facts.uuid)},
            {"certificate", CertificateValue(facts.certificate)},
            {"host_key", TextOrNull(facts.hostKey)},
            {"notes", std::move(notes)}};
}

json::value TaskValue(const std::optional<Task>& task) {
    if (!task) return nullptr;
    json::array messages;
    for (const TaskMessage& message : task->messages) messages.push_back(MessageObject(message));
    return json::object{{"uri", TextOrNull(task->uri)},
                        {"state", TextOrNull(task->state)},
                        {"status", TextOrNull(task->status)},
                        {"percent", task->percent ? json::value(*task->percent) : nullptr},
                        {"messages", std::move(messages)}};
}

json::object RunObject(const RunRecord& record) {
    json::array steps;
    for (const Step& step : record.steps) steps.push_back(StepObject(step));
    json::array attempts;
    for (const Attempt& attempt : record.attempts) attempts.push_back(AttemptObject(attempt));
    const Delivery& delivery = record.delivery;
    const bool downloaded = !delivery.path.empty();
    json::object run{{"schema", kJsonSchema},
                     {"version", KEMFFDC_VERSION},
                     {"run", record.number ? json::value(*record.number) : nullptr},
                     {"command", TextOrNull(record.command)},
                     {"channel", TextOrNull(record.channel)},
                     {"host", TextOrNull(record.host)},
                     {"address", TextOrNull(record.facts.address)},
                     {"port", PortOrNull(record.port)},
                     {"user", TextOrNull(record.user)},
                     {"started", TextOrNull(record.started)},
                     {"ended", TextOrNull(record.ended)},
                     {"outcome", OutcomeName(record)},
                     {"exit_code", static_cast<int>(record.outcome.code)},
                     {"retryable", IsRetryable(record.outcome)},
                     {"reason", TextOrNull(record.outcome.reason)},
                     {"attempts", std::move(attempts)},
                     {"steps", std::move(steps)},
                     {"log_kind", TextOrNull(record.logKind)},
                     {"operation", TextOrNull(record.operation)},
                     {"operation_reason", TextOrNull(record.operationReason)},
                     {"task", TaskValue(record.task)},
                     {"path", TextOrNull(delivery.path)},
                     {"remote_path", TextOrNull(delivery.remotePath)},
                     {"size", downloaded ? json::value(delivery.size) : nullptr},
                     {"sha256", TextOrNull(delivery.sha256)},
                     {"damage", TextOrNull(DamageOf(delivery))},
                     {"export_uri", TextOrNull(delivery.exportUri)},
                     {"bmc", FactsObject(record.facts)}};
    if (record.part) record.part->AddTo(run);
    return run;
}

std::string JsonText(const json::value& value) {
    std::string text;
    Append(value, text);
    return text;
}

}  // namespace Kemffdc
