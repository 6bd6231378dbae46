// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Events.h"

#include <algorithm>
#include <utility>

#include "cli/RecordTable.h"
#include "cli/terminal/Progress.h"

namespace Kemffdc::Redfish {
namespace {

constexpr std::size_t kMaxText = std::size_t{1024} * 1024;
constexpr std::size_t kMaxEvents = 64;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcredfish_impl";
constexpr char kClient[] = "src/common/rest/RedfishClient";

struct Row {
    RecordPattern pattern;
    EventKind kind;
};

// The library's texts as they stand, odd spelling and blanks at the end included. The first row
// that matches counts.
constexpr Row kRows[] = {
    {{4, kClient, "Redfish GET action on URL: ", ""}, EventKind::kAsking},
    {{4, kClient, "curlCode: ", ""}, EventKind::kStarting},
    {{4, kChannel, "This version is older.", ""}, EventKind::kOlderPaths},
    {{2, kChannel, "Failed to get redfish version, curlCode: ", ""}, EventKind::kVersionFailed},
    {{4, kChannel, "curlCode: ", ""}, EventKind::kProbed},
    {{1, kChannel, "curlCode: ", ""}, EventKind::kPostFailed},
    {{4, kChannel, "Entered SaveTaskId(), parameter strResponse = ", ""},
     EventKind::kExportAnswered},
    {{4, kChannel, "property Id found. ", ""}, EventKind::kTaskNamed},
    {{2, kChannel, "Rest response error: curlCode: ", ""}, EventKind::kPollFailed},
    {{3, kChannel, "The task \"", "\" is newing, please wait... "}, EventKind::kTaskNew},
    {{3, kChannel, "The task \"", "\" is starting, please wait... "}, EventKind::kTaskStarting},
    {{3, kChannel, "The task \"", "\" is running, please wait... "}, EventKind::kTaskRunning},
    {{3, kChannel, "The task \"", "\" is completed! Its FFDC file is available now. "},
     EventKind::kTaskCompleted},
    {{1, kChannel, R"(The successful GET request's response shows "TaskState":"Exception"! )", ""},
     EventKind::kTaskException},
    {{1, kChannel, R"(The successful GET request's response shows "TaskState":"Killed"! )", ""},
     EventKind::kTaskKilled},
    {{1, kChannel, "The task \"", "\" is killed. "}, EventKind::kTaskKilled},
    {{1, kChannel, "Failed to parse Jason object : ", ""}, EventKind::kTaskUnreadable},
    {{1, kChannel, "GET request received error response. ", ""}, EventKind::kTaskIsError},
    {{1, kChannel, "The successful GET request's response has no property \"TaskState\"! ", ""},
     EventKind::kTaskWithoutState},
    {{1, kChannel, "The task \"", "\" encounters exception or other unexpected error. "},
     EventKind::kTaskBroken},
    {{1, kChannel, "Waiting for the FFDC task was ended by an exception: ", ""},
     EventKind::kWaitThrew},
    {{1, kChannel, "Connection error occurred while trying to GET the state of the task: \"",
      "\" from KTC via Redfish. "},
     EventKind::kConnectionLost},
    {{1, kChannel, "Could not find FFDC log's path in sftp or internal.", ""},
     EventKind::kNoArchivePath},
    {{1, kChannel, "Invalid auth token", ""}, EventKind::kNoToken},
    {{1, kChannel, "Invalid uri ", ""}, EventKind::kBadUri},
};

// Three spellings: "httpCode: 503, body:\n", "httpCode:503, body:\n", "httpCode: 503 | body: ".
void ReadAnswer(const std::string& text, Event& event) {
    const std::string head = text.substr(0, 256);
    event.curlCode = NumberBehind(head, "curlCode:", 0);
    event.httpCode = NumberBehind(head, "httpCode:", 0);
    event.text = RestBehind(text, "body:").substr(0, kMaxText);
    if (!event.text.empty()) event.text.erase(0, 1);
}

}  // namespace

std::optional<Event> ReadEvent(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record)) continue;
        Event event{row.kind, 0, 0, ""};
        if (std::string(row.pattern.begin).find("curlCode: ") != std::string::npos) {
            ReadAnswer(record.text, event);
        } else {
            event.text = Between(row.pattern, record).substr(0, kMaxText);
        }
        return event;
    }
    return std::nullopt;
}

const char* TaskStateText(EventKind kind) {
    switch (kind) {
        case EventKind::kTaskNew:
            return "New";
        case EventKind::kTaskStarting:
            return "Starting";
        case EventKind::kTaskRunning:
            return "Running";
        case EventKind::kTaskCompleted:
            return "Completed";
        case EventKind::kTaskException:
            return "Exception";
        case EventKind::kTaskKilled:
            return "Killed";
        default:
            return nullptr;
    }
}

const Event* Events::Last(EventKind kind) const {
    const auto found = std::find_if(m_events.rbegin(), m_events.rend(),
                                    [kind](const Event& event) { return event.kind == kind; });
    return found == m_events.rend() ? nullptr : &*found;
}

void Events::Add(Event event) {
    if (!m_events.empty() && m_events.back().kind == event.kind) {
        m_events.back() = std::move(event);
        return;
    }
    if (m_events.size() == kMaxEvents) m_events.erase(m_events.begin());
    m_events.push_back(std::move(event));
}

Listener::Listener(Progress& progress, Hooks hooks)
    : m_progress(progress), m_hooks(std::move(hooks)) {
    Varnex::AddLogSink(this);
    Varnex::AddSleepWatcher(this);
}

Listener::~Listener() {
    Varnex::RemoveSleepWatcher(this);
    Varnex::RemoveLogSink(this);
}

// Not before the pause: a lot can happen in it.
void Listener::SleepEnded() {
    if (m_repeats.exchange(false) && m_hooks.beforeRequest) m_hooks.beforeRequest();
}

void Listener::Receive(const Varnex::LogRecord& record) {
    try {
        std::optional<Event> event = ReadEvent(record);
        if (!event) return;
        const EventKind kind = event->kind;
        m_repeats = kind == EventKind::kStarting;
        if (kind == EventKind::kAsking) {
            if (m_hooks.beforeRequest) m_hooks.beforeRequest();
            ++m_asked;
            return;
        }
        if (kind == EventKind::kProbed) m_started = event->curlCode == 0 && event->httpCode != 503;
        Show(*event);
        std::lock_guard<std::mutex> hold(m_lock);
        m_events.Add(std::move(*event));
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void Listener::Show(const Event& event) {
    if (event.kind == EventKind::kStarting) {
        m_progress.State(m_started ? "BMC is busy (503)" : "BMC is starting (503)");
    }
    const char* task = TaskStateText(event.kind);
    if (task == nullptr) return;
    const bool goesOn = event.kind == EventKind::kTaskNew ||
                        event.kind == EventKind::kTaskStarting ||
                        event.kind == EventKind::kTaskRunning;
    if (!goesOn && m_hooks.taskEnded) m_hooks.taskEnded();
    if (goesOn && m_hooks.taskGoesOn) m_hooks.taskGoesOn(task);
    m_progress.State(std::string("task ") + task);
}

Events Listener::Take() {
    std::lock_guard<std::mutex> hold(m_lock);
    return std::exchange(m_events, {});
}

}  // namespace Kemffdc::Redfish
