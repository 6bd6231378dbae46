// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_EVENTS_H
#define KEMFFDC_REDFISH_EVENTS_H

#include <atomic>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "LogSink.h"
#include "SleepWatcher.h"

namespace Kemffdc {
class Progress;
}

namespace Kemffdc::Redfish {

// What a record of the library's Redfish channel tells beyond the codes of its operations.
enum class EventKind {
    kAsking,          // a GET is about to be sent
    kOlderPaths,      // the BMC's Redfish is older than 1.6.0, with its tasks elsewhere
    kStarting,        // answered 503; the library repeats the request
    kVersionFailed,   // the first question to the service failed
    kProbed,          // what Connect got, which it mostly calls a success
    kPostFailed,      // the session or the export was not accepted
    kExportAnswered,  // text: the answer that should name the task
    kTaskNamed,       // that answer has an "Id"
    kPollFailed,      // one question for the task's state failed; not the end yet
    kTaskNew,
    kTaskStarting,
    kTaskRunning,
    kTaskCompleted,
    kTaskException,
    kTaskKilled,
    kTaskUnreadable,  // the task's answer is not JSON
    kTaskIsError,     // it is an error answer
    kTaskWithoutState,
    kTaskBroken,      // ends the wait; why, told the kind before, if it was not an unknown state
    kWaitThrew,       // ends the wait; text: the exception's
    kConnectionLost,  // the third failed question; ends the wait
    kNoArchivePath,
    kNoToken,
    kBadUri,  // text: why
};

struct Event {
    EventKind kind;
    int curlCode = 0;
    int httpCode = 0;
    std::string text;  // body or text of the record, as the BMC sent it, cut to 1 MiB
};

// What has happened, in order.
class Events {
public:
    Events() = default;
    Events(std::initializer_list<Event> events) : m_events(events) {}

    bool Has(EventKind kind) const { return Last(kind) != nullptr; }
    const Event* Last(EventKind kind) const;  // null: none

    // A kind that repeats counts once, with its newest text; of all, the newest 64 count.
    void Add(Event event);

    auto begin() const { return m_events.begin(); }
    auto end() const { return m_events.end(); }

private:
    std::vector<Event> m_events;
};

// Nothing for records that tell nothing new.
std::optional<Event> ReadEvent(const Varnex::LogRecord& record);

// The state of the task as the progress line shows it; null for kinds that are none.
const char* TaskStateText(EventKind kind);

// What somebody else does while the library works. Each may be null, and is called on the thread
// that does the work.
struct Hooks {
    // Before each GET, and before a request is repeated.
    std::function<void()> beforeRequest;
    // The library has asked for the task, which goes on in that state; it will ask again after the
    // interval. Before the state is shown, as the next.
    std::function<void(const char* state)> taskGoesOn;
    std::function<void()> taskEnded;
};

// Listens to the library while it works: keeps what was found, in order, and shows the BMC's state.
class Listener : public Varnex::LogSink, public Varnex::SleepWatcher {
public:
    explicit Listener(Progress& progress, Hooks hooks = {});
    ~Listener() override;

    void Receive(const Varnex::LogRecord& record) override;
    void SleepEnded() override;

    // What was found since the last call.
    Events Take();

    // How many GETs were begun since the last CountFromHere().
    int Asked() const { return m_asked; }
    void CountFromHere() { m_asked = 0; }

private:
    void Show(const Event& event);

    Progress& m_progress;
    const Hooks m_hooks;
    std::atomic<int> m_asked{0};
    std::atomic<bool> m_repeats{false};  // the library pauses, and sends the same request again
    bool m_started = false;              // it has answered something else than 503
    std::mutex m_lock;
    Events m_events;
};

}  // namespace Kemffdc::Redfish

#endif
