// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Json.h"

#include <algorithm>
#include <utility>

#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr std::size_t kMaxDepth = 512;
constexpr char kRedfish[] = "/redfish/";

// The first entry with a text says most.
std::string ExtendedMessage(const json::object& error) {
    const json::value* info = error.if_contains("@Message.ExtendedInfo");
    const json::array* entries = info == nullptr ? nullptr : info->if_array();
    if (entries == nullptr) return "";
    for (const json::value& entry : *entries) {
        const json::object* message = entry.if_object();
        if (message == nullptr) continue;
        std::string text = TextMember(*message, "Message");
        if (!text.empty()) return text;
    }
    return "";
}

std::string PathOf(const json::object& link) {
    std::string path = RawMember(link, "@odata.id");
    return IsPlainPath(path) ? path : "";
}

}  // namespace

bool IsPlainPath(const std::string& path) {
    return path.compare(0, sizeof kRedfish - 1, kRedfish) == 0 &&
           path.find("..") == std::string::npos &&
           std::all_of(path.begin(), path.end(), [](char c) { return c > ' ' && c < 127; });
}

const json::object* ObjectMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    return value == nullptr ? nullptr : value->if_object();
}

std::string LinkMember(const json::object& object, const char* name) {
    const json::object* link = ObjectMember(object, name);
    return link == nullptr ? "" : PathOf(*link);
}

std::vector<std::string> LinksMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    const json::array* entries = value == nullptr ? nullptr : value->if_array();
    std::vector<std::string> links;
    if (entries == nullptr) return links;
    for (const json::value& entry : *entries) {
        const json::object* link = entry.if_object();
        std::string path = link == nullptr ? "" : PathOf(*link);
        if (!path.empty()) links.push_back(std::move(path));
    }
    return links;
}

std::optional<json::object> ReadObject(const std::string& text, std::size_t maxBytes) {
    if (text.size() > maxBytes) return std::nullopt;
    json::parse_options options;
    options.max_depth = kMaxDepth;
    options.allow_invalid_utf8 = true;  // cleaned before it is shown
    json::error_code error;
    json::value value = json::parse(text, error, {}, options);
    if (error || !value.is_object()) return std::nullopt;
    return std::move(value.get_object());
}

std::string TextMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    if (value == nullptr) return "";
    if (const json::string* text = value->if_string()) return Clean(std::string(*text));
    return value->is_number() ? json::serialize(*value) : "";
}

std::string RawMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    return value == nullptr || !value->is_string() ? "" : std::string(value->get_string());
}

std::optional<std::vector<std::string>> TextsMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    const json::array* entries = value == nullptr ? nullptr : value->if_array();
    if (entries == nullptr) return std::nullopt;
    std::vector<std::string> texts;
    for (const json::value& entry : *entries) {
        if (entry.is_string()) texts.push_back(Clean(std::string(entry.get_string())));
    }
    return texts;
}

std::string BmcMessage(const std::string& body) {
    const std::optional<json::object> answer = ReadObject(body);
    const json::object* error = answer ? ObjectMember(*answer, "error") : nullptr;
    if (error == nullptr) return "";
    const std::string extended = ExtendedMessage(*error);
    return extended.empty() ? TextMember(*error, "message") : extended;
}

}  // namespace Kemffdc::Redfish
