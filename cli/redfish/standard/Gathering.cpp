// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Gathering.h"

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>

#include "Clock.h"
#include "cli/Utc.h"
#include "cli/redfish/Adoption.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Reference.h"
#include "cli/redfish/Task.h"
#include "cli/redfish/standard/Diagnosis.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

using namespace std::chrono_literals;

constexpr char kServiceRoot[] = "/redfish/v1/";
constexpr int kMaxFailures = 3;                  // in a row, as the library
constexpr int kMaxSearches = 12;                 // for the entry of a task that is forgotten
constexpr std::chrono::seconds kBusyPause = 5s;  // where the BMC does not say
constexpr std::chrono::seconds kBusyPatience = 180s;

std::string BodyOf(const Collection& wanted) {
    boost::json::object body{{"DiagnosticDataType", wanted.type}};
    if (!wanted.oemType.empty()) body["OEMDiagnosticDataType"] = wanted.oemType;
    return boost::json::serialize(body);
}

// The BMC's own clock; this machine's where it does not say.
std::time_t BmcTime(const Answer& answer) {
    return ReadHttpTime(answer.Header("date")).value_or(std::time(nullptr));
}

}  // namespace

Ask Gathering::BySession() {
    return [this](const std::string& path) { return m_session.Get(path); };
}

Outcome Gathering::Begin(const Collection& wanted) {
    m_logs = {wanted.service.entries};
    Walk walk(BySession());
    m_before = ListEntries(walk, wanted.service.entries);
    m_wanted = {&m_before, 0, wanted.type, wanted.oemType};
    std::chrono::seconds patience = kBusyPatience;
    while (true) {
        const std::time_t begin = std::time(nullptr);
        TakeAnswer(m_session.Post(wanted.service.target, BodyOf(wanted)));
        m_wanted.since = BmcTime(m_answer) - (std::time(nullptr) - begin);
        const auto pause = m_reply.retryAfter.value_or(kBusyPause);
        const bool again = m_reply.state == Reply::State::kBusy && pause <= patience;
        if (!again || m_run.interrupt.Raised()) break;
        patience -= std::max(pause, 1s);
        m_run.progress.State("BMC is busy (503)");
        Clock::SleepFor(pause);
    }
    return DiagnoseRequest(m_answer, m_reply, wanted);
}

void Gathering::GoOn(const std::string& task, const std::string& begun, const LogServices& logs) {
    for (const LogService& log : logs.found) m_logs.push_back(log.entries);
    m_poll = task;
    m_task.uri = task;
    const std::time_t now = std::time(nullptr);
    TakeAnswer(m_session.Get(task.empty() ? kServiceRoot : task));
    if (task.empty()) m_reply = {Reply::State::kForgotten};
    // By the BMC's clock.
    m_wanted.since = ReadUtc(begun) + (BmcTime(m_answer) - now);
}

Outcome Gathering::Wait(LogEntry& entry) {
    std::optional<LogEntry> found;
    Outcome outcome = Step(found);
    for (int asked = 0; outcome.Ok() && !found; ++asked) {
        if (m_run.interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
        if (asked == Own(m_run.options).tries) return NotFinished();
        Pause();
        AskAgain();
        outcome = Step(found);
    }
    if (!outcome.Ok()) return outcome;
    entry = *found;
    m_run.bmcGathers = false;
    if (!m_task.uri.empty() && m_task.state != "Completed") {
        m_run.report.SetTask({m_task.uri, "Completed", "", {}, m_task.messages});
    }
    return entry.dataUri.empty() ? DiagnoseNoData(entry) : Outcome{};
}

// What the last answer means. Fills `entry` where it is there.
Outcome Gathering::Step(std::optional<LogEntry>& entry) {
    switch (m_reply.state) {
        case Reply::State::kRunning:
        case Reply::State::kBusy:
            m_failures = 0;
            return {};
        case Reply::State::kEntry:
            entry = m_reply.entry;
            return {};
        case Reply::State::kNamed:
            return ReadNamed(entry);
        case Reply::State::kForgotten:
            m_forgotten = true;
            [[fallthrough]];
        case Reply::State::kDone:
            m_poll.clear();
            Search(entry);
            return entry || !m_forgotten || ++m_searches < kMaxSearches ? Outcome{} : NoEntry();
        case Reply::State::kFailed:
            return DiagnoseTask(*m_reply.task);
        case Reply::State::kRefused:
            return Refused();
        case Reply::State::kNoAnswer:
        case Reply::State::kUnreadable:
            return Missed();
    }
    return {};
}

// Where the entry cannot be read at the place that the BMC names, its log may still have it.
Outcome Gathering::ReadNamed(std::optional<LogEntry>& entry) {
    const std::string path =
        Resolve(m_reply.entryUri, "/", EndpointOf(m_run.options), m_session.Address()).Target();
    const Answer answer = path.empty() ? Answer{} : m_session.Get(path);
    const auto object = answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
    if (object) entry = ReadEntry(*object);
    if (entry) return {};
    m_reply.state = Reply::State::kDone;
    return Step(entry);
}

void Gathering::Search(std::optional<LogEntry>& entry) {
    for (const std::string& log : m_logs) {
        Walk walk(BySession());
        entry = FindNewEntry(walk, log, m_wanted);
        if (!walk.Gap().empty()) m_gap = walk.Gap();
        if (entry) return;
    }
}

// Nobody is asked twice what has been answered: then only the log is looked at again.
void Gathering::AskAgain() {
    if (m_poll.empty()) return;
    TakeAnswer(m_session.Get(m_poll));
}

void Gathering::Pause() {
    const std::chrono::seconds usual(Own(m_run.options).interval);
    Clock::SleepFor(m_reply.retryAfter.value_or(usual));
}

void Gathering::TakeAnswer(const Answer& answer) {
    m_answer = answer;
    m_reply = ReadReply(answer);
    const Endpoint service = EndpointOf(m_run.options);
    if (!m_reply.monitor.empty()) {
        m_poll = Resolve(m_reply.monitor, "/", service, m_session.Address()).Target();
    }
    if (!m_reply.taskUri.empty()) m_task.uri = m_reply.taskUri;
    if (m_poll.empty()) m_poll = m_task.uri;
    if (m_task.uri.empty()) m_task.uri = m_poll;
    if (m_reply.state == Reply::State::kRunning && m_poll.empty()) {
        m_reply.state = Reply::State::kDone;  // accepted without a task: the log will tell
    }
    if (m_reply.state == Reply::State::kBusy) m_run.progress.State("BMC is busy (503)");
    Show(m_reply.task.value_or(m_task));
}

// From here on the task can be found again, whatever becomes of this run.
void Gathering::Show(const Task& task) {
    const std::string uri = m_task.uri;
    m_task = task;
    m_task.uri = uri;
    if (!uri.empty()) m_run.report.SetTask(m_task);
    if (task.state.empty()) return;
    m_run.progress.State("task " + task.state);
    m_run.progress.Work(task.percent, NewestMessage(task));
}

Outcome Gathering::Missed() {
    if (++m_failures < kMaxFailures) return {};
    return DiagnoseLostTask(m_answer);
}

// The operation's own answer is an error. What the task says may be more.
Outcome Gathering::Refused() {
    if (m_answer.httpCode == 401 || m_answer.httpCode == 403) return DiagnoseLostTask(m_answer);
    const Answer answer = m_task.uri.empty() ? Answer{} : m_session.Get(m_task.uri);
    const auto task = ReadReply(answer).task;
    if (task) Show(*task);
    const Outcome outcome = task ? DiagnoseTask(*task) : Outcome{};
    return outcome.Ok() ? DiagnoseError(m_answer, task) : outcome;
}

Outcome Gathering::NotFinished() {
    if (m_poll.empty()) return NoEntry();
    const ChannelOptions& own = Own(m_run.options);
    return Failure(kNotFinished, "The BMC has not finished collecting after " +
                                     std::to_string(own.tries) + " tries every " +
                                     std::to_string(own.interval) + " s." + BmcSays(m_task) +
                                     " It goes on.");
}

Outcome Gathering::NoEntry() const {
    const std::string what = m_forgotten ? "The BMC does not know the task any more"
                                         : "The BMC calls the collection done";
    return Failure(kTaskFailed, Cause::kTaskLost,
                   what + ", and no entry with its data has appeared in the log." +
                       (m_gap.empty() ? "" : " Not all of the log could be read: " + m_gap + "."));
}

}  // namespace Kemffdc::Redfish
