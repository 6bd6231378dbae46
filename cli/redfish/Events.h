// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_EVENTS_H
#define KEMFFDC_REDFISH_EVENTS_H

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "LogSink.h"

namespace Kemffdc {
class Progress;
}

namespace Kemffdc::Redfish {

// What a record of the library's Redfish channel tells beyond the codes of its operations.
enum class EventKind {
    kAsking,          // a GET is about to be sent
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
    kBadUri,          // text: why
    kTransferFailed,  // text: "CATEGORY:NUMBER words"
};

struct Event {
    EventKind kind;
    int curlCode = 0;
    int httpCode = 0;
    std::string text;  // body or text of the record, as the BMC sent it, cut to 1 MiB
};

// Nothing for records that tell nothing new.
std::optional<Event> ReadEvent(const Varnex::LogRecord& record);

// The state of the task as the progress line shows it; null for kinds that are none.
const char* TaskStateText(EventKind kind);

// Listens to the library while it works: keeps what was found, in order, and shows the BMC's state.
class Listener : public Varnex::LogSink {
public:
    // `beforeRequest` is called on the thread that is about to send a request: before each GET, and
    // before the pause after which a request is repeated. May be null.
    explicit Listener(Progress& progress, std::function<void()> beforeRequest = nullptr);
    ~Listener() override;

    void Receive(const Varnex::LogRecord& record) override;

    // What was found since the last call: the newest 64, where a kind that repeats counts once
    // (with its newest text).
    std::vector<Event> Take();

    // How many GETs were begun since the last CountFromHere().
    int Asked() const { return m_asked; }
    void CountFromHere() { m_asked = 0; }

private:
    void Keep(Event event);

    Progress& m_progress;
    const std::function<void()> m_beforeRequest;
    std::atomic<int> m_asked{0};
    bool m_started = false;  // it has answered something else than 503
    std::mutex m_lock;
    std::vector<Event> m_events;
};

}  // namespace Kemffdc::Redfish

#endif
