// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Conductor.h"

#include <sys/wait.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "cli/ExitCodes.h"
#include "cli/fleet/Arguments.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

using History::FleetHostRow;
using History::HostState;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Why = Scheduler::Why;

constexpr char kLoginRefused[] = "login-refused";
constexpr milliseconds kTick{250};
constexpr milliseconds kMomentToEnd{900};  // of a worker that has been asked to
constexpr std::size_t kErrorShown = 300;   // bytes of what a crash has left

bool IsIgnored(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

std::vector<Scheduler::Host> ToSchedule(const Conductor::Job& job) {
    std::vector<Scheduler::Host> hosts;
    hosts.reserve(job.hosts.size());
    for (std::size_t i = 0; i < job.hosts.size(); ++i) {
        const FleetHostRow& row = job.hosts[i];
        hosts.push_back({job.logins[i], row.state == HostState::kDone, row.outcome == kLoginRefused,
                         PatienceOf(FromJson(row.arguments))});
    }
    return hosts;
}

std::vector<SceneHost> ToShow(const std::vector<FleetHostRow>& rows) {
    std::vector<SceneHost> hosts;
    hosts.reserve(rows.size());
    for (const FleetHostRow& row : rows) {
        SceneHost host;
        host.name = row.name;
        host.channel = row.channel;
        if (row.state == HostState::kDone) {
            host.state = row.state;
            host.outcome = row.outcome;
            host.bytes = host.expected = row.size;
        }
        hosts.push_back(std::move(host));
    }
    return hosts;
}

std::string TailOf(const std::string& errors) {
    const std::string text = errors.substr(0, errors.find_last_not_of('\n') + 1);
    return Clean(text.substr(text.size() - std::min(text.size(), kErrorShown)), kErrorShown);
}

ResultTold Crashed(const WorkerProcess::End& end, bool babbled) {
    std::string reason = "The worker ";
    if (babbled || end.babbled) {
        reason += "said what no worker says, and was ended.";
    } else if (WIFSIGNALED(end.status)) {
        const int signal = WTERMSIG(end.status);
        reason += "was ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ").";
    } else {
        reason += "ended with exit code " + std::to_string(WEXITSTATUS(end.status)) +
                  " and without a result.";
    }
    const std::string errors = TailOf(end.errors);
    if (!errors.empty()) reason += " It wrote: " + errors;
    return {kLocalFile, "crashed", reason, !babbled && !end.babbled};
}

const char* ReasonOf(Why why) {
    switch (why) {
        case Why::kGuard:
            return "Its user and password were refused by two other hosts, and accounts lock after "
                   "a few failures.";
        case Why::kHostDeadline:
            return "Not done at the deadline of a host.";
        case Why::kRunDeadline:
            return "Not done at the deadline of the run.";
        case Why::kHung:
            return "The worker was silent beyond its deadline, and was ended.";
        case Why::kInterrupted:
            break;
    }
    return "The run was interrupted.";
}

// What becomes of a host that is stopped.
ResultTold StoppedBy(Why why, int tries) {
    const std::string reason = ReasonOf(why);
    if (why == Why::kGuard) return {kNotConnected, "guarded", reason, false};
    if (why == Why::kHung) return {kLocalFile, "hung", reason, false};
    const int code = why == Why::kInterrupted ? kInterrupted : kNotFinished;
    if (tries == 0) return {code, "not-tried", reason, true};
    return {code, why == Why::kInterrupted ? "interrupted" : "deadline", reason, true};
}

}  // namespace

Conductor::Conductor(Job job, History::FleetJournal& journal, Audience& audience)
    : m_job(std::move(job)),
      m_journal(journal),
      m_audience(audience),
      m_signals(m_context),
      m_timer(m_context),
      m_ticks(m_context),
      m_random(std::random_device()()),
      m_work(m_job.hosts.size()) {
    m_scene.fleet = m_job.run.id;
    m_scene.command = m_job.run.command;
    m_scene.folder = m_job.run.folder;
    m_scene.live = true;
    m_scene.hosts = ToShow(m_job.hosts);
}

Conductor::~Conductor() = default;

int Conductor::Run() {
    m_scene.begun = m_scene.now = std::chrono::system_clock::now();
    std::uniform_real_distribution<double> jitter(0, 1);
    m_scheduler =
        std::make_unique<Scheduler>(m_job.pace, ToSchedule(m_job), steady_clock::now(),
                                    [this, jitter]() mutable { return jitter(m_random); });
    m_audience.Begun(m_scene);
    Queue();
    ListenToSignals();
    Tick();
    Pulse();
    m_context.run();
    m_scene.now = std::chrono::system_clock::now();
    m_scene.live = false;
    m_scene.ended = true;
    return ExitCode();
}

// Hosts of an earlier run that are tried again: who looks on sees where it goes on.
void Conductor::Queue() {
    for (const FleetHostRow& row : m_job.hosts) {
        if (row.state == HostState::kDone || row.state == HostState::kQueued) continue;
        WriteRow([&] { m_journal.SetState(m_job.run.id, row.number, HostState::kQueued); });
    }
}

void Conductor::ListenToSignals() {
    if (m_interrupts == 0) {
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            if (!IsIgnored(number)) m_signals.add(number);
        }
    }
    m_signals.async_wait([this](const boost::system::error_code& error, int) {
        if (error) return;
        Interrupted();
        ListenToSignals();
    });
}

void Conductor::Interrupted() {
    if (++m_interrupts == 1) {
        Note("The run is interrupted: workers are asked to end. kemffdc fleet resume " +
             std::to_string(m_job.run.id) + " goes on with it.");
        m_scheduler->Interrupt();
    } else {
        for (const Work& work : m_work) {
            if (work.process) work.process->Kill();
        }
    }
    Pulse();
}

void Conductor::Tick() {
    m_scene.now = std::chrono::system_clock::now();
    m_audience.Tick(m_scene);
    m_ticks.expires_after(kTick);
    m_ticks.async_wait([this](const boost::system::error_code& error) {
        // One that has come due can no longer be cancelled, and another would keep the run from
        // ending.
        if (!error && !m_scheduler->HasEnded()) Tick();
    });
}

// Something has happened, or a time has come: once for all that happens together.
void Conductor::Pulse() {
    if (std::exchange(m_pulseComes, true)) return;
    boost::asio::post(m_context, [this] {
        m_pulseComes = false;
        const Time now = steady_clock::now();
        CarryOut(m_scheduler->Take(now));
        KillLateWorkers(now);
        SetTimer(now);
        if (!m_scheduler->HasEnded()) return;
        m_ticks.cancel();
        m_timer.cancel();
        m_signals.cancel();
        m_signals.clear();  // what follows the run ends by a signal as any program does
    });
}

// Who has to end is told before anything is written: the journal may take its time.
void Conductor::CarryOut(const Scheduler::Orders& orders) {
    for (const Scheduler::Stop& stop : orders.stop) {
        if (stop.atWork) Stop(stop);
    }
    for (const std::size_t host : orders.go) m_work[host].process->Tell("go");
    for (const Scheduler::Stop& stop : orders.stop) {
        if (stop.why == Why::kGuard) NoteClosed(stop.host);
        if (!stop.atWork) EndByStop(stop.host, stop.why);
    }
    for (const std::size_t host : orders.start) Start(host);
}

void Conductor::Start(std::size_t host) {
    Work& work = m_work[host];
    work = Work();
    SceneHost& shown = m_scene.hosts[host];
    ++shown.attempts;
    shown.percent.reset();
    shown.message.clear();
    shown.bytes = shown.expected = 0;
    SetState(host, HostState::kStarting);
    if (shown.attempts == 1) shown.begun = shown.since;
    WriteRow([&] { m_journal.SetState(m_job.run.id, Number(host), HostState::kStarting); });
    try {
        work.process = std::make_unique<WorkerProcess>(
            m_context, m_job.worker, m_job.hello(m_job.hosts[host]),
            WorkerProcess::Listener{
                [this, host](const std::string& line) { Said(host, line); },
                [this, host](const WorkerProcess::End& end) { WorkerEnded(host, end); }});
    } catch (const std::system_error& error) {
        const ResultTold result{kLocalFile, "crashed",
                                "No worker can be started: " + error.code().message() + ".", true};
        Conclude(host, result, false);
    }
}

void Conductor::Stop(const Scheduler::Stop& stop) {
    Work& work = m_work[stop.host];
    work.stopped = stop.why;
    if (stop.why == Why::kHung) {
        work.process->Kill();
        return;
    }
    work.process->CloseInput();
    work.killAt = steady_clock::now() + kMomentToEnd;
}

void Conductor::KillLateWorkers(Time now) {
    for (Work& work : m_work) {
        if (!work.process || !work.killAt || now < *work.killAt) continue;
        work.process->Kill();
        work.killAt.reset();
    }
}

void Conductor::SetTimer(Time now) {
    std::optional<Time> next = m_scheduler->Next(now);
    for (const Work& work : m_work) {
        if (work.killAt && (!next || *work.killAt < *next)) next = work.killAt;
    }
    if (!next) return;
    m_timer.expires_at(*next);
    m_timer.async_wait([this](const boost::system::error_code& error) {
        if (!error) Pulse();
    });
}

void Conductor::Said(std::size_t host, const std::string& line) {
    m_scheduler->Heard(host, steady_clock::now());
    const auto told = ReadWorkerLine(line);
    if (told && !m_work[host].babbled) {
        std::visit([this, host](const auto& what) { Take(host, what); }, *told);
        return;
    }
    m_work[host].babbled = true;
    m_work[host].process->Kill();
}

void Conductor::Take(std::size_t host, const StateTold& told) {
    if (told.state >= HostState::kReached && told.state <= HostState::kTransferring) {
        m_scheduler->LoggedIn(host);
        Pulse();
    }
    // How it ends is told by its result.
    if (!History::HasEnded(told.state)) SetState(host, told.state);
}

void Conductor::Take(std::size_t host, const ChannelTold& told) {
    if (told.channel.empty()) return;
    m_scene.hosts[host].channel = told.channel;
    Changed(host);
}

void Conductor::Take(std::size_t host, const OperationTold& told) {
    m_scene.hosts[host].operation = told.operation;
    Changed(host);
}

void Conductor::Take(std::size_t host, const WorkTold& told) {
    m_scene.hosts[host].percent = told.percent;
    if (!told.message.empty()) m_scene.hosts[host].message = told.message;
    Changed(host);
}

void Conductor::Take(std::size_t host, const BytesTold& told) {
    m_scene.hosts[host].bytes = told.bytes;
    m_scene.hosts[host].expected = told.expected;
    Changed(host);
}

void Conductor::Take(std::size_t host, const TurnAsked& /*told*/) {
    m_scheduler->AskedForTurn(host, steady_clock::now());
    Pulse();
}

void Conductor::Take(std::size_t host, const ResultTold& told) { m_work[host].result = told; }

void Conductor::WorkerEnded(std::size_t host, const WorkerProcess::End& end) {
    Work& work = m_work[host];
    const bool hasSaid = work.result && !work.babbled;
    // Asked to end, it says that it was interrupted: why stands here.
    const bool asked = work.stopped && (!hasSaid || work.result->exitCode == kInterrupted);
    const ResultTold result = asked     ? StoppedBy(*work.stopped, m_scheduler->Tries(host))
                              : hasSaid ? *work.result
                                        : Crashed(end, work.babbled);
    const bool byWorker = hasSaid && !asked;
    const auto ended = std::move(work.process);
    Conclude(host, result, byWorker);
}

// An attempt has ended. What a worker has said stands in the journal already.
void Conductor::Conclude(std::size_t host, const ResultTold& result, bool byWorker) {
    const Time now = steady_clock::now();
    const std::optional<Scheduler::Why> stopped = m_work[host].stopped;
    m_work[host].killAt.reset();
    const auto again =
        m_scheduler->Ended(host, {result.outcome == kLoginRefused, result.retryable}, now);
    SceneHost& shown = m_scene.hosts[host];
    shown.outcome = result.outcome;
    shown.reason = result.reason;
    const HostState state = result.exitCode == kDone                         ? HostState::kDone
                            : again                                          ? HostState::kPausing
                            : stopped && !byWorker && *stopped != Why::kHung ? HostState::kStopped
                                                                             : HostState::kFailed;
    if (!byWorker) {
        const HostState ended = again ? HostState::kFailed : state;
        WriteRow([&] {
            m_journal.EndHost(m_job.run.id, Number(host), ended, result.exitCode, result.outcome,
                              result.reason);
        });
    }
    if (again) {
        const auto pause = std::chrono::ceil<std::chrono::seconds>(*again - now).count();
        WriteRow([&] {
            m_journal.SetState(m_job.run.id, Number(host), HostState::kPausing,
                               "Another try in " + std::to_string(pause) + " s.");
        });
    }
    SetState(host, state);
    Pulse();
}

// A host that no worker is at. What its last try has come to stays known.
void Conductor::EndByStop(std::size_t host, Why why) {
    const ResultTold result = StoppedBy(why, m_scheduler->Tries(host));
    SceneHost& shown = m_scene.hosts[host];
    const std::string before = shown.reason.empty() ? "" : " Before: " + shown.reason;
    shown.outcome = result.outcome;
    shown.reason = result.reason + before;
    WriteRow([&] {
        m_journal.EndHost(m_job.run.id, Number(host), HostState::kStopped, result.exitCode,
                          result.outcome, shown.reason);
    });
    SetState(host, HostState::kStopped);
}

void Conductor::SetState(std::size_t host, HostState state) {
    m_scene.hosts[host].state = state;
    m_scene.hosts[host].since = std::chrono::system_clock::now();
    Changed(host);
}

void Conductor::Changed(std::size_t host) {
    m_scene.now = std::chrono::system_clock::now();
    m_audience.Changed(m_scene, host);
}

void Conductor::Note(const std::string& sentence) { m_audience.Noted(sentence); }

void Conductor::NoteClosed(std::size_t host) {
    if (!m_closed.insert(m_job.logins[host]).second) return;
    const std::string& credential = m_job.hosts[host].credential;
    const std::string whose =
        credential.empty() ? "The user and password of the run" : "The credential " + credential;
    Note(Clean(whose) +
         " has been refused twice and is used on no further host: accounts lock "
         "after a few failures. Hosts where it was taken go on.");
}

// A run goes on without its journal; what is not written is done again by a resume.
template <class Write>
void Conductor::WriteRow(const Write& write) {
    try {
        write();
    } catch (const History::StoreError& error) {
        if (std::exchange(m_journalFails, true)) return;
        Note(std::string(error.what()) + " The run goes on; fleet status may be behind.");
    }
}

int Conductor::ExitCode() const {
    if (m_interrupts > 0) return kInterrupted;
    const auto& hosts = m_scene.hosts;
    const auto done = std::count_if(hosts.begin(), hosts.end(), [](const SceneHost& host) {
        return host.state == HostState::kDone;
    });
    if (done == 0) return kFleetNone;
    return static_cast<std::size_t>(done) == hosts.size() ? kDone : kFleetSome;
}

}  // namespace Kemffdc::Fleet
