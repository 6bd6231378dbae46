// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_EVENTS_H
#define KEMFFDC_CIM_EVENTS_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "LogSink.h"
#include "cli/cim/Objects.h"
#include "cli/report/Report.h"

namespace Kemffdc {
class Progress;
}

namespace Kemffdc::Cim {

// What a record of the library's CIM channel tells beyond the codes of its operations.
enum class EventKind {
    kConnecting,
    kConnected,
    kNotConnected,   // text: why; after the third attempt
    kClass,          // text: the class whose objects are asked for
    kFound,          // text: how many there are
    kNotEnumerated,  // text: why they could not be had
    kNoService,      // the run ends for want of a service object
    kNoData,         // the run ends without the data objects
    kObject,         // text: path of the data object that is next
    kType,           // text: its DataCollectionType, and its raw form
    kReturned,       // text: what ExportData returned instead of success
    kExportBroken,   // text: why ExportData did not return
    kBadUri,         // the export URI names neither sftp nor tftp
};

struct Event {
    EventKind kind;
    std::string text;  // as the BMC sent it, cut to 64 KiB
};

// Nothing for records that tell nothing new.
std::optional<Event> ReadEvent(const Varnex::LogRecord& record);

// What the library's records say about a run.
struct RunEvents {
    std::string asked;                    // class of the last enumeration
    std::optional<unsigned> services;     // objects found
    std::optional<unsigned> found;        // data objects found
    std::string failure;                  // the library's reason, of the last failure that has one
    bool exportBroken = false;            // which was an export's
    std::vector<ExportedObject> objects;  // those that the library came to, in order
};

// Keeps that account. The library logs no success: an export has succeeded when the next object's
// turn comes, or when the whole run has succeeded.
class RunTracker {
public:
    using Time = std::chrono::steady_clock::time_point;

    // Takes a event that was made at `now`. Returns whether an object has changed.
    bool Take(const Event& event, Time now);

    // After the run: how the last object ended, and those that were never tried.
    void End(bool success, Time now);

    const RunEvents& Events() const { return m_events; }

private:
    ExportedObject* Open();
    void Close(ExportedObject::State state, Time now);
    void TakeType(const std::string& text, Time now);
    void TakeCount(const std::string& text);

    RunEvents m_events;
    Time m_since;
};

// "object 2 of 3 (type 1): the BMC gathers and uploads, for up to 20 minutes"; empty before the
// first object.
std::string ObjectProgress(const RunEvents& events);

// Listens to the library while it works: keeps the tracker and shows where the run is.
class Listener : public Varnex::LogSink {
public:
    // `bmcGathers` is true while an object's export is under way. `beforeRequest` is called on the
    // thread that is about to ask for objects or for an export. May be null.
    Listener(Progress& progress, Report& report, std::atomic<bool>& bmcGathers,
             std::function<void()> beforeRequest = nullptr);
    ~Listener() override;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void Receive(const Varnex::LogRecord& record) override;

    // The account so far, completed when the run has ended.
    RunEvents End(bool success);
    RunEvents Events();

private:
    void Show(const Event& event, bool changed);

    Progress& m_progress;
    Report& m_report;
    const std::shared_ptr<ObjectList> m_list = std::make_shared<ObjectList>();
    std::atomic<bool>& m_bmcGathers;
    const std::function<void()> m_beforeRequest;
    std::mutex m_lock;
    RunTracker m_tracker;
};

}  // namespace Kemffdc::Cim

#endif
