// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Entries.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <cctype>

#include "cli/redfish/Adoption.h"
#include "cli/redfish/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr std::time_t kClockSlack = 5;  // seconds: two clocks of one BMC
constexpr std::size_t kMaxHint = 200;
constexpr std::size_t kSha256Digits = 64;

// "SHA256", "Sha-256", "ImageSHA256Sum"
bool NamesSha256(const std::string& member) {
    std::string plain = boost::algorithm::to_lower_copy(member);
    plain.erase(
        std::remove_if(plain.begin(), plain.end(), [](char c) { return c == '-' || c == '_'; }),
        plain.end());
    return plain.find("sha256") != std::string::npos;
}

bool IsSha256(const std::string& text) {
    return text.size() == kSha256Digits && std::all_of(text.begin(), text.end(), [](char c) {
               return std::isxdigit(static_cast<unsigned char>(c)) != 0;
           });
}

// The standard has no member for it; where a vendor adds one, its name says what it is.
std::string Sha256In(const json::object& object, int levels) {
    for (const json::key_value_pair& member : object) {
        if (const json::string* text = member.value().if_string()) {
            const std::string value(*text);
            if (NamesSha256(std::string(member.key())) && IsSha256(value))
                return boost::algorithm::to_lower_copy(value);
        } else if (const json::object* inner = member.value().if_object();
                   inner != nullptr && levels > 0) {
            std::string found = Sha256In(*inner, levels - 1);
            if (!found.empty()) return found;
        }
    }
    return "";
}

void AppendTexts(const json::value& value, int levels, std::string& texts) {
    if (const json::string* text = value.if_string()) {
        if (text->empty() || text->front() == '#') return;  // "@odata.type"
        texts += (texts.empty() ? "" : "; ") + std::string(*text);
    } else if (const json::object* object = value.if_object(); object != nullptr && levels > 0) {
        for (const json::key_value_pair& member : *object) {
            AppendTexts(member.value(), levels - 1, texts);
        }
    }
}

std::string HintIn(const json::object& entry) {
    std::string texts;
    for (const char* name : {"Oem", "Message"}) {
        const json::value* value = entry.if_contains(name);
        if (value != nullptr) AppendTexts(*value, 4, texts);
    }
    return Clean(texts, kMaxHint);
}

std::optional<std::uint64_t> SizeOf(const json::object& entry) {
    const json::value* value = entry.if_contains("AdditionalDataSizeBytes");
    if (value == nullptr || !value->is_number()) return std::nullopt;
    boost::system::error_code fraction;
    const auto size = value->to_number<std::uint64_t>(fraction);
    return fraction ? std::nullopt : std::optional<std::uint64_t>(size);
}

// A log that wraps gives the same path again.
std::string KeyOf(const json::object& entry) {
    return RawMember(entry, "@odata.id") + " " + RawMember(entry, "Created");
}

bool IsOlder(const LogEntry& a, const LogEntry& b) { return a.created < b.created; }

bool FitsType(const LogEntry& entry, const NewEntry& wanted) {
    const bool type = entry.type.empty() || wanted.type.empty() || entry.type == wanted.type;
    const bool oem =
        entry.oemType.empty() || wanted.oemType.empty() || entry.oemType == wanted.oemType;
    return type && oem && (!entry.dataUri.empty() || !entry.type.empty());
}

}  // namespace

std::optional<LogEntry> ReadEntry(const json::object& object) {
    const bool typed = RawMember(object, "@odata.type").find("LogEntry.") != std::string::npos;
    const std::string uri = RawMember(object, "AdditionalDataURI");
    if (!typed && uri.empty()) return std::nullopt;
    LogEntry entry;
    entry.path = RawMember(object, "@odata.id");
    if (!IsPlainPath(entry.path)) entry.path.clear();
    entry.dataUri = uri;
    entry.size = SizeOf(object);
    entry.sha256 = Sha256In(object, 3);
    entry.type = TextMember(object, "DiagnosticDataType");
    entry.oemType = TextMember(object, "OEMDiagnosticDataType");
    entry.created = ReadIsoTime(RawMember(object, "Created")).value_or(0);
    entry.hint = HintIn(object);
    return entry;
}

EntryList ListEntries(Walk& walk, const std::string& entries) {
    EntryList list;
    walk.Members(entries, [&](const json::object& member) { list.known.insert(KeyOf(member)); });
    list.gap = walk.Gap();
    return list;
}

std::optional<LogEntry> FindNewEntry(Walk& walk, const std::string& entries,
                                     const NewEntry& wanted) {
    const bool sawAll = wanted.before != nullptr && wanted.before->gap.empty();
    std::vector<json::object> fresh;
    walk.Members(entries, [&](const json::object& member) {
        if (wanted.before == nullptr || wanted.before->known.count(KeyOf(member)) == 0) {
            fresh.push_back(member);
        }
    });
    std::optional<LogEntry> newest;
    for (json::object& object : fresh) {
        if (object.size() == 1) object = walk.Read(RawMember(object, "@odata.id")).value_or(object);
        const auto entry = ReadEntry(object);
        const bool young = sawAll || (entry && entry->created != 0 &&
                                      entry->created + kClockSlack >= wanted.since);
        if (!entry || entry->path.empty() || !young || !FitsType(*entry, wanted)) continue;
        if (!newest || !IsOlder(*entry, *newest)) newest = entry;
    }
    return newest;
}

}  // namespace Kemffdc::Redfish
