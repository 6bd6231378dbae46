// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/TreeManifest.h"

#include <boost/json.hpp>

#include "cli/report/Json.h"

namespace Kemffdc::Archives {
namespace {

namespace json = boost::json;

constexpr char kKind[] = "redfish-tree";
constexpr char kNote[] =
    "Read from the BMC's Redfish service, resource by resource, by kemffdc: no archive of the "
    "BMC's own making.";

// The figures, as tree object and manifest name them.
struct Figure {
    const char* name;
    std::uint64_t TreeCounts::*count;
};
constexpr Figure kFigures[] = {
    {"resources", &TreeCounts::resources}, {"log_entries", &TreeCounts::logEntries},
    {"requests", &TreeCounts::requests},   {"bytes", &TreeCounts::bytes},
    {"unread", &TreeCounts::unread},       {"left_out", &TreeCounts::leftOut},
    {"masked", &TreeCounts::masked},
};

std::string LinePerMember(const json::object& object) {
    std::string text = "{";
    const char* between = "\n";
    for (const json::key_value_pair& member : object) {
        text += between + json::serialize(json::string(member.key())) + ": ";
        text += JsonText(member.value());
        between = ",\n";
    }
    return text + "\n}\n";
}

std::uint64_t Number(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    json::error_code wrong;
    const auto number = value == nullptr ? 0 : value->to_number<std::uint64_t>(wrong);
    return wrong ? 0 : number;
}

std::string Text(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    const json::string* text = value == nullptr ? nullptr : value->if_string();
    return text == nullptr ? "" : std::string(*text);
}

}  // namespace

json::object TreeObject(const TreeCounts& counts) {
    json::object object;
    for (const Figure& figure : kFigures) object[figure.name] = counts.*figure.count;
    json::array limits;
    for (const std::string& limit : counts.limits) limits.push_back(TextValue(limit));
    object["limits"] = std::move(limits);
    return object;
}

std::string TreeWords(const TreeCounts& counts) {
    std::string words = std::to_string(counts.resources) + " resources";
    if (counts.logEntries > 0)
        words += ", " + std::to_string(counts.logEntries) + " of them log entries";
    if (counts.unread > 0) words += "; " + std::to_string(counts.unread) + " could not be read";
    return words + (counts.limits.empty() ? "" : "; NOT ALL OF IT");
}

std::string ManifestText(const TreeManifest& manifest) {
    json::object object{{"kind", kKind},
                        {"note", kNote},
                        {"schema", kJsonSchema},
                        {"tool", "kemffdc"},
                        {"version", manifest.version},
                        {"begun", manifest.begun},
                        {"ended", manifest.ended},
                        {"host", TextOrNull(manifest.host)},
                        {"address", TextOrNull(manifest.facts.address)},
                        {"bmc", FactsObject(manifest.facts)}};
    for (const json::key_value_pair& member : TreeObject(manifest.counts)) {
        object[member.key()] = member.value();
    }
    return LinePerMember(object);
}

std::optional<TreeManifest> ReadManifest(const std::string& text) {
    json::error_code error;
    const json::value value = json::parse(text, error);
    const json::object* object = error ? nullptr : value.if_object();
    if (object == nullptr || Text(*object, "kind") != kKind) return std::nullopt;
    TreeManifest manifest;
    manifest.version = Text(*object, "version");
    manifest.begun = Text(*object, "begun");
    manifest.ended = Text(*object, "ended");
    manifest.host = Text(*object, "host");
    for (const Figure& figure : kFigures) {
        manifest.counts.*figure.count = Number(*object, figure.name);
    }
    const json::value* limits = object->if_contains("limits");
    if (limits == nullptr || !limits->is_array()) return manifest;
    for (const json::value& limit : limits->get_array()) {
        if (limit.is_string()) manifest.counts.limits.emplace_back(limit.get_string());
    }
    return manifest;
}

}  // namespace Kemffdc::Archives
