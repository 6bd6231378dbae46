// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Events.h"

#include <charconv>
#include <utility>

#include "cli/RecordTable.h"
#include "cli/terminal/Progress.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

constexpr std::size_t kMaxText = std::size_t{64} * 1024;
constexpr std::size_t kMaxPath = 2000;  // bytes of it that are shown
constexpr std::size_t kMaxShownType = 100;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdc_impl";
constexpr char kHelpers[] = "src/common/cimom/src/cimfunc";

constexpr char kServiceClass[] = "ZOR_FFDCService";
constexpr char kDataClass[] = "ZOR_FFDCData";
constexpr char kNeverExported[] = "4";
constexpr char kRawData[] = " with raw data (";

struct Row {
    RecordPattern pattern;
    EventKind kind;
};

// The library's texts as they stand, odd spelling and line ends included.
constexpr Row kRows[] = {
    {{3, kHelpers, "Connecting to ", ""}, EventKind::kConnecting},
    {{3, kHelpers, "Cimserver connection succeeded ", ""}, EventKind::kConnected},
    {{1, kHelpers, "Failed to connect remote cimserver with the reason: ", ""},
     EventKind::kNotConnected},
    {{3, kHelpers, "The value of class name is:", ""}, EventKind::kClass},
    {{3, kHelpers, "The size of ei_array is:", ""}, EventKind::kFound},
    {{1, kHelpers, "Enumerate instances failed with the reason: ", ""}, EventKind::kNotEnumerated},
    {{4, kChannel, "EnumerateInstances ZOR_FFDCService Failed!", ""}, EventKind::kNoService},
    {{4, kChannel, "EnumerateInstances ZOR_FFDCData Failed!", ""}, EventKind::kNoData},
    {{4, kHelpers, "Showing properties for ", ""}, EventKind::kObject},
    {{4, kHelpers, "DataCollectionType = ", ")"}, EventKind::kType},
    {{1, kChannel, "ExportData rev = ", "\n"}, EventKind::kReturned},
    {{1, kChannel, "invokeMethod return exeption: ", ""}, EventKind::kExportBroken},
    {{1, kChannel, "Invalid uploading_uri_.filestore_uri_ : ", "\n"}, EventKind::kBadUri},
};

std::optional<unsigned> Number(const std::string& text) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return number;
}

}  // namespace

std::optional<Event> ReadEvent(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record)) continue;
        return Event{row.kind, Between(row.pattern, record).substr(0, kMaxText)};
    }
    return std::nullopt;
}

bool RunTracker::Take(const Event& event, Time now) {
    switch (event.kind) {
        case EventKind::kClass:
            m_events.asked = event.text;
            return false;
        case EventKind::kFound:
            TakeCount(event.text);
            return false;
        case EventKind::kObject:
            Close(ExportedObject::State::kExported, now);
            m_events.objects.emplace_back().path = Clean(event.text, kMaxPath);
            m_since = now;
            return true;
        case EventKind::kType:
            TakeType(event.text, now);
            return true;
        case EventKind::kReturned:
            if (ExportedObject* open = Open()) {
                open->returned = Clean(event.text, kMaxShownType);
                Close(ExportedObject::State::kRefused, now);
            }
            return true;
        case EventKind::kExportBroken:
            m_events.exportBroken = true;
            m_events.failure = event.text;
            Close(ExportedObject::State::kFailed, now);
            return true;
        case EventKind::kNotConnected:
            // An export's failure says more than that of the connection attempts behind it.
            if (!m_events.exportBroken) m_events.failure = event.text;
            return false;
        case EventKind::kNotEnumerated:
            m_events.failure = event.text;
            return false;
        default:
            return false;
    }
}

void RunTracker::End(bool success, Time now) {
    Close(success ? ExportedObject::State::kExported : ExportedObject::State::kFailed, now);
    while (m_events.objects.size() < m_events.found.value_or(0)) {
        m_events.objects.emplace_back().state = ExportedObject::State::kNotTried;
    }
}

ExportedObject* RunTracker::Open() {
    if (m_events.objects.empty()) return nullptr;
    ExportedObject& last = m_events.objects.back();
    return last.state == ExportedObject::State::kRunning ? &last : nullptr;
}

void RunTracker::Close(ExportedObject::State state, Time now) {
    ExportedObject* open = Open();
    if (open == nullptr) return;
    open->state = state;
    open->seconds = std::chrono::duration<double>(now - m_since).count();
}

void RunTracker::TakeType(const std::string& text, Time now) {
    ExportedObject* open = Open();
    if (open == nullptr) return;
    const std::string type = text.substr(0, text.find(kRawData));
    open->type = Clean(type, kMaxShownType);
    if (type == kNeverExported) Close(ExportedObject::State::kSkipped, now);
}

void RunTracker::TakeCount(const std::string& text) {
    if (m_events.asked == kServiceClass) m_events.services = Number(text);
    if (m_events.asked == kDataClass) m_events.found = Number(text);
}

std::string ObjectProgress(const RunEvents& events) {
    if (events.objects.empty()) return "";  // a type that belongs to no data object
    const ExportedObject& object = events.objects.back();
    std::string text = "object " + std::to_string(events.objects.size()) + " of " +
                       std::to_string(events.found.value_or(0));
    if (!object.type.empty()) text += " (type " + object.type + ")";
    if (object.state == ExportedObject::State::kSkipped) return text + ": skipped";
    return text + ": the BMC gathers and uploads, for up to 20 minutes";
}

Listener::Listener(Progress& progress, Report& report, std::atomic<bool>& bmcGathers,
                   std::function<void()> beforeRequest)
    : m_progress(progress),
      m_report(report),
      m_bmcGathers(bmcGathers),
      m_beforeRequest(std::move(beforeRequest)) {
    report.SetPart(m_list);
    Varnex::AddLogSink(this);
}

Listener::~Listener() { Varnex::RemoveLogSink(this); }

void Listener::Receive(const Varnex::LogRecord& record) {
    try {
        const std::optional<Event> event = ReadEvent(record);
        if (!event) return;
        const bool willAsk = event->kind == EventKind::kClass || event->kind == EventKind::kObject;
        if (willAsk && m_beforeRequest) m_beforeRequest();
        std::lock_guard<std::mutex> hold(m_lock);
        const std::size_t before = m_tracker.Events().objects.size();
        const bool changed = m_tracker.Take(*event, std::chrono::steady_clock::now());
        const std::vector<ExportedObject>& objects = m_tracker.Events().objects;
        m_bmcGathers = !objects.empty() && objects.back().state == ExportedObject::State::kRunning;
        if (m_bmcGathers) m_report.Reach(Milestone::kGathering);
        // The object before it has ended well.
        if (m_tracker.Events().objects.size() > before && before > 0) {
            m_list->Set(before - 1, m_tracker.Events().objects[before - 1]);
        }
        Show(*event, changed);
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void Listener::Show(const Event& event, bool changed) {
    const RunEvents& events = m_tracker.Events();
    if (changed && !events.objects.empty()) {
        m_list->Set(events.objects.size() - 1, events.objects.back());
    }
    if (event.kind == EventKind::kClass) {
        m_progress.State("looking for " + Clean(event.text, kMaxShownType));
    } else if (event.kind == EventKind::kType) {
        m_progress.State(ObjectProgress(events));
    } else if (event.kind == EventKind::kConnecting && !events.asked.empty()) {
        m_progress.State("connecting again");
    }
}

RunEvents Listener::Events() {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_tracker.Events();
}

RunEvents Listener::End(bool success) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_tracker.End(success, std::chrono::steady_clock::now());
    const RunEvents& events = m_tracker.Events();
    for (std::size_t i = 0; i < events.objects.size(); ++i) {
        m_list->Set(i, events.objects[i]);
    }
    return events;
}

}  // namespace Kemffdc::Cim
