// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/Walker.h"

#include <algorithm>

#include "cli/redfish/Json.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/tree/Masking.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish::Tree {
namespace {

namespace json = boost::json;
using std::chrono::steady_clock;

constexpr char kServiceRoot[] = "/redfish/v1/";
constexpr std::size_t kMaxTrouble = 1000;
constexpr std::size_t kMaxLimits = 20;  // the manifest stays short
constexpr std::size_t kMaxShownLink = 255;
constexpr int kIdlePages = 3;  // in a row, that bring no new member
constexpr int kMaxExpandFailures = 2;

std::string StringMember(const json::object& object, const char* name) {
    const json::value* value = object.if_contains(name);
    const json::string* text = value == nullptr ? nullptr : value->if_string();
    return text == nullptr ? "" : std::string(*text);
}

std::string TypeOf(const json::object& resource) { return StringMember(resource, "@odata.type"); }

bool IsLogEntry(const json::object& resource) {
    return TypeOf(resource).compare(0, 10, "#LogEntry.") == 0;
}

bool IsOfLog(const std::string& path) {
    constexpr char kEntries[] = "/Entries/";
    const std::size_t last = path.rfind('/');
    const std::size_t at = path.rfind(kEntries);
    return at != std::string::npos && at + sizeof kEntries - 2 == last;
}

const json::array* MembersOf(const json::object& page) {
    const json::value* members = page.if_contains("Members");
    return members == nullptr ? nullptr : members->if_array();
}

// Where not only its link came. Each resource has an Id (DSP0266).
bool IsWhole(const json::object& member) {
    return member.contains("Id") && !StringMember(member, "@odata.id").empty();
}

// What lies elsewhere and is left out there is left out here too. Its place stays.
std::uint64_t LeaveOut(json::value& value) {
    std::uint64_t count = 0;
    if (json::array* array = value.if_array()) {
        for (json::value& entry : *array) count += LeaveOut(entry);
    }
    json::object* object = value.if_object();
    if (object == nullptr) return count;
    if (IsLeftOutType(TypeOf(*object))) {
        *object = {{"@odata.id", StringMember(*object, "@odata.id")}};
        return count + 1;
    }
    for (json::key_value_pair& member : *object) count += LeaveOut(member.value());
    return count;
}

}  // namespace

struct Walker::Collection {
    explicit Collection(const Step& at) : step(at) {}

    const Step& step;
    int page = 1;
    int idle = 0;
    std::vector<std::string> members;       // links that are yet to be learned
    std::unordered_set<std::string> pages;  // that were asked for
    std::string next;
    std::size_t news = 0;    // members of this page that nobody has known
    std::size_t wholes = 0;  // of this page
};

Walker::Walker(Source& source, Sink& sink, Service service, Bounds bounds,
               std::function<bool()> stop)
    : m_source(source),
      m_sink(sink),
      m_service(std::move(service)),
      m_bounds(bounds),
      m_stop(std::move(stop)),
      m_end(steady_clock::now() + bounds.time) {}

void Walker::Run() {
    m_known.insert(kServiceRoot);
    m_waiting.push_back({kServiceRoot, 0});
    while (const std::optional<Step> step = Next()) Visit(*step);
}

std::optional<Walker::Step> Walker::Next() {
    std::deque<Step>& lane = m_waiting.empty() ? m_entries : m_waiting;
    if (lane.empty() || MustEnd()) return std::nullopt;
    Step step = std::move(lane.front());
    lane.pop_front();
    return step;
}

// Asked only where there is something left to read.
bool Walker::MustEnd() {
    if (m_sinkEnded || !m_source.Ended().empty() || (m_stop && m_stop())) return true;
    const bool requests = m_counts.requests >= m_bounds.requests;
    const bool bytes = m_counts.bytes >= m_bounds.bytes;
    const bool time = steady_clock::now() >= m_end;
    if (requests) Reach("Reading ended after " + std::to_string(m_bounds.requests) + " requests.");
    if (bytes) Reach("Reading ended after answers of " + HumanBytes(m_bounds.bytes) + ".");
    if (time) Reach("Reading ended after " + std::to_string(m_bounds.time.count()) + " s.");
    return requests || bytes || time;
}

void Walker::Reach(const std::string& limit) {
    std::vector<std::string>& limits = m_counts.limits;
    const bool known = std::find(limits.begin(), limits.end(), limit) != limits.end();
    if (!known && limits.size() < kMaxLimits) limits.push_back(limit);
}

void Walker::Visit(const Step& step) {
    std::optional<Object> resource = Fetch(step.path);
    if (!resource) return;
    if (step.depth == 0) NoteProtocol(*resource);
    ++m_counts.resources;
    if (IsLogEntry(*resource)) ++m_counts.logEntries;
    Collection collection{step};
    NoteMembers(*resource, collection);
    collection.next = NextPage(*resource, collection);
    FollowLinks(*resource, step);
    Store(FileName(step.path), std::move(*resource));
    resource.reset();  // one answer at a time
    ReadMembers(collection);
}

// Which members come with a collection (ServiceRoot.ProtocolFeaturesSupported): what lies below it,
// else everything that it links to.
void Walker::NoteProtocol(const Object& root) {
    const json::object* features = ObjectMember(root, "ProtocolFeaturesSupported");
    const json::object* expand =
        features == nullptr ? nullptr : ObjectMember(*features, "ExpandQuery");
    if (expand == nullptr) return;
    const auto offers = [expand](const char* name) {
        const json::value* value = expand->if_contains(name);
        return value != nullptr && value->is_bool() && value->get_bool();
    };
    const std::string levels = offers("Levels") ? "($levels=1)" : "";
    if (offers("NoLinks")) {
        m_expand = "?$expand=." + levels;
    } else if (offers("ExpandAll")) {
        m_expand = "?$expand=*" + levels;
    }
}

void Walker::ReadMembers(Collection& collection) {
    const bool several = collection.members.size() > 1 || !collection.next.empty();
    const bool bare = !collection.members.empty();
    const bool expanded =
        several && bare && !m_expand.empty() && !MustEnd() && ReadExpanded(collection.step);
    for (const std::string& link : collection.members) Learn(link, collection.step);
    if (!expanded) ReadPages(collection);
}

// Each member as the file that it would be without. False where the service does not do what it
// offers, or an answer is too long.
bool Walker::ReadExpanded(const Step& step) {
    Collection collection{step};
    collection.next = step.path + m_expand;
    while (!collection.next.empty() && !MustEnd()) {
        std::optional<Object> page = Fetch(collection.next, false);
        if (page) NoteMembers(*page, collection);
        if (!page || (collection.page == 1 && collection.wholes == 0)) {
            if (++m_expandFailures >= kMaxExpandFailures) m_expand.clear();
            return false;
        }
        collection.next = NextPage(*page, collection);
        TakeMembers(*page, collection);
    }
    for (const std::string& link : collection.members) Learn(link, step);
    return true;
}

void Walker::ReadPages(Collection& collection) {
    while (!collection.next.empty() && !MustEnd()) {
        std::optional<Object> page = Fetch(collection.next);
        if (!page) return;
        ++collection.page;
        NoteMembers(*page, collection);
        collection.next = NextPage(*page, collection);
        FollowLinks(*page, collection.step);
        Store(FileName(collection.step.path, collection.page), std::move(*page));
        for (const std::string& link : collection.members) Learn(link, collection.step);
    }
}

// The next one to be asked for; empty at the end, and where the BMC leads nowhere.
std::string Walker::NextPage(const Object& page, Collection& collection) {
    std::string link = StringMember(page, "Members@odata.nextLink");
    if (link.empty()) link = StringMember(page, "@odata.nextLink");
    if (link.empty()) return "";
    const Target next = TargetOf(link, m_service, true);
    collection.idle = collection.news == 0 ? collection.idle + 1 : 0;
    std::string fault = next.fault;
    if (fault.empty() && IsLeftOut(next.path)) fault = "leads to what is left out";
    if (fault.empty() && !collection.pages.insert(next.path).second) {
        fault = "leads back to a page that was read";
    }
    if (fault.empty() && collection.idle >= kIdlePages)
        fault = "leads to pages without anything new";
    if (!fault.empty()) {
        Fail(link, 0, "The link to a next page " + fault + ".");
        return "";
    }
    if (static_cast<int>(collection.pages.size()) >= m_bounds.pages) {
        Reach("Of " + collection.step.path + " no more than " + std::to_string(m_bounds.pages) +
              " pages were read.");
        return "";
    }
    return next.path;
}

// Which came whole, so that nobody asks for them again, and which are yet to be read.
void Walker::NoteMembers(const Object& page, Collection& collection) {
    collection.members.clear();
    collection.news = collection.wholes = 0;
    const json::array* members = MembersOf(page);
    if (members == nullptr) return;
    for (const json::value& entry : *members) {
        const json::object* member = entry.if_object();
        if (member == nullptr) continue;
        const std::string link = StringMember(*member, "@odata.id");
        if (!IsWhole(*member)) {
            collection.members.push_back(link);
            const bool known = m_known.count(TargetOf(link, m_service).path) > 0;
            if (!known) ++collection.news;
            continue;
        }
        ++collection.wholes;
        const Target target = TargetOf(link, m_service);
        if (target.path.empty() || !Know(target.path)) continue;
        ++collection.news;
        ++m_counts.resources;
        if (IsLogEntry(*member)) ++m_counts.logEntries;
    }
}

// Of a page that was asked for with its members.
void Walker::TakeMembers(Object& page, Collection& collection) {
    json::value* members = page.if_contains("Members");
    if (members == nullptr || !members->is_array()) return;
    for (json::value& entry : members->get_array()) {
        json::object* member = entry.if_object();
        if (member == nullptr || !IsWhole(*member)) continue;
        const Target target = TargetOf(StringMember(*member, "@odata.id"), m_service);
        FollowValue(entry, collection.step);
        if (!target.path.empty()) Store(FileName(target.path), std::move(*member));
    }
}

std::optional<Walker::Object> Walker::Fetch(const std::string& path, bool tells) {
    const Answer answer = m_source.Get(path);
    ++m_counts.requests;
    m_counts.bytes += answer.body.size();
    if (m_tell) m_tell();
    std::string reason = answer.reason;
    std::optional<Object> resource;
    if (answer.failedAt == Stage::kDone && !answer.IsSuccess()) {
        reason = BmcMessage(answer.body);
    } else if (answer.failedAt == Stage::kDone) {
        resource = ReadObject(answer.body, kTreeService.maxBody);
        if (!resource) reason = "The answer is no JSON object.";
    }
    if (!resource) {
        if (tells) Fail(path, answer.httpCode, reason);
        return std::nullopt;
    }
    const bool leftOut = IsLeftOutType(TypeOf(*resource));
    json::value value(std::move(*resource));
    m_counts.leftOut += LeaveOut(value);
    if (leftOut) return std::nullopt;
    return std::move(value.get_object());
}

void Walker::Store(const std::string& name, Object&& resource) {
    json::value value(std::move(resource));
    m_counts.masked += MaskSecrets(value);
    if (!m_sink.Take(name, JsonText(value) + "\n")) m_sinkEnded = true;
}

// But for those to members of the collection that it is, which their own reader learns.
void Walker::FollowLinks(const Object& resource, const Step& from) {
    for (const json::key_value_pair& member : resource) {
        const json::array* members =
            member.key() == "Members" ? member.value().if_array() : nullptr;
        if (members == nullptr) {
            FollowMember(std::string(member.key()), member.value(), from);
            continue;
        }
        for (const json::value& entry : *members) {
            const json::object* one = entry.if_object();
            if (one != nullptr && IsWhole(*one)) FollowValue(entry, from);
        }
    }
}

void Walker::FollowMember(const std::string& name, const json::value& value, const Step& from) {
    if (name == "Actions") return;
    if (!IsLeftOut(name)) {
        FollowValue(value, from);
    } else if (const json::object* link = value.if_object()) {
        const Target target = TargetOf(StringMember(*link, "@odata.id"), m_service);
        if (!target.path.empty() && Know(target.path)) ++m_counts.leftOut;
    }
}

void Walker::FollowValue(const json::value& value, const Step& from) {
    if (const json::array* array = value.if_array()) {
        for (const json::value& entry : *array) FollowValue(entry, from);
    }
    const json::object* object = value.if_object();
    if (object == nullptr) return;
    const std::string link = StringMember(*object, "@odata.id");
    if (!link.empty()) Learn(link, from);
    for (const json::key_value_pair& member : *object) {
        FollowMember(std::string(member.key()), member.value(), from);
    }
}

void Walker::Learn(const std::string& link, const Step& from) {
    const Target target = TargetOf(link, m_service);
    if (!Know(target.path.empty() ? link : target.path)) return;
    if (target.path.empty()) {
        Fail(link, 0, "The link in " + from.path + " " + target.fault + ".");
    } else if (IsLeftOut(target.path)) {
        ++m_counts.leftOut;
    } else if (from.depth >= m_bounds.depth) {
        Reach("What is more than " + std::to_string(m_bounds.depth) +
              " links away from the service root was not read.");
    } else {
        (IsOfLog(target.path) ? m_entries : m_waiting).push_back({target.path, from.depth + 1});
    }
}

// False where it was known already, and for what there is no room for.
bool Walker::Know(const std::string& path) {
    if (m_known.size() >= m_bounds.known && m_known.count(path) == 0) {
        Reach("No more than " + std::to_string(m_bounds.known) + " resources were taken.");
        return false;
    }
    return m_known.insert(path).second;
}

void Walker::Fail(const std::string& path, long httpCode, const std::string& reason) {
    ++m_counts.unread;
    if (m_trouble.size() >= kMaxTrouble) return;
    m_trouble.push_back({Clean(path, kMaxShownLink), httpCode, Clean(reason)});
}

}  // namespace Kemffdc::Redfish::Tree
