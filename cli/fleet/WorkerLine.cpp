// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/WorkerLine.h"

#include <boost/json.hpp>

namespace Kemffdc::Fleet {
namespace {

namespace json = boost::json;

std::string TextOf(const json::object& line, const char* member) {
    const json::value* value = line.if_contains(member);
    const json::string* text = value == nullptr ? nullptr : value->if_string();
    return text == nullptr ? "" : std::string(*text);
}

template <class Number>
std::optional<Number> NumberOf(const json::object& line, const char* member) {
    const json::value* value = line.if_contains(member);
    if (value == nullptr || !value->is_number()) return std::nullopt;
    boost::system::error_code error;
    const auto number = value->to_number<Number>(error);
    return error ? std::nullopt : std::optional<Number>(number);
}

bool IsTrue(const json::object& line, const char* member) {
    const json::value* value = line.if_contains(member);
    return value != nullptr && value->is_bool() && value->get_bool();
}

std::optional<WorkerLine> ReadResult(const json::object& line) {
    const auto exitCode = NumberOf<int>(line, "exit_code");
    ResultTold result{exitCode.value_or(0), TextOf(line, "outcome"), TextOf(line, "reason"),
                      IsTrue(line, "retryable")};
    if (!exitCode || result.outcome.empty()) return std::nullopt;
    return result;
}

std::optional<WorkerLine> ReadState(const json::object& line) {
    const auto state = History::HostStateNamed(TextOf(line, "state"));
    if (!state) return std::nullopt;
    return StateTold{*state};
}

}  // namespace

std::optional<WorkerLine> ReadWorkerLine(const std::string& text) {
    boost::system::error_code error;
    const json::value value = json::parse(text, error);
    if (error || !value.is_object()) return std::nullopt;
    const json::object& line = value.get_object();
    if (!line.contains("event")) return ReadResult(line);

    const std::string event = TextOf(line, "event");
    if (event == "host-state") return ReadState(line);
    if (event == "turn") return TurnAsked{};
    if (event == "run-begun" || event == "way-chosen") return ChannelTold{TextOf(line, "channel")};
    if (event == "operation-chosen") return OperationTold{TextOf(line, "operation")};
    if (event == "work") return WorkTold{NumberOf<int>(line, "percent"), TextOf(line, "message")};
    if (event == "bytes") {
        return BytesTold{NumberOf<std::uint64_t>(line, "bytes").value_or(0),
                         NumberOf<std::uint64_t>(line, "expected").value_or(0)};
    }
    // A small archive has come before a second of its transfer has passed.
    const auto size = NumberOf<std::uint64_t>(line, "size");
    if (event == "delivered" && size) return BytesTold{*size, *size};
    return SomethingElse{};
}

}  // namespace Kemffdc::Fleet
