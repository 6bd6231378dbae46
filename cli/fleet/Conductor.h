// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_CONDUCTOR_H
#define KEMFFDC_FLEET_CONDUCTOR_H

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "cli/fleet/Scene.h"
#include "cli/fleet/Scheduler.h"
#include "cli/fleet/WorkerLine.h"
#include "cli/fleet/WorkerProcess.h"
#include "cli/history/FleetJournal.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Fleet {

// Carries out one fleet run: a worker process for each host, within the limits of its pace. The
// scheduler decides, workers work, the journal remembers, the audience sees. One thread; each host
// fails alone, whatever becomes of its worker.
class Conductor {
public:
    struct Job {
        History::FleetRunRow run;                  // has begun, or goes on, in the journal
        std::vector<History::FleetHostRow> hosts;  // in the order of the plan
        // Who logs in, for each host: equal where the same user and password do.
        std::vector<std::string> logins;
        Scheduler::Pace pace;
        std::vector<std::string> worker;  // program and arguments
        // The line that the worker of a host is told first; it may hold passwords.
        std::function<Secret(const History::FleetHostRow& host)> hello;
    };

    // Journal and audience outlive the object.
    Conductor(Job job, History::FleetJournal& journal, Audience& audience);
    ~Conductor();

    // Returns the exit code once all hosts have ended; an interrupted run ends within about a
    // second. Takes SIGINT, SIGTERM and SIGHUP meanwhile, where they are not ignored. Neither ends
    // the run in the journal nor tells the audience of its end. Once.
    int Run();

    const Scene& TheScene() const { return m_scene; }

private:
    using Time = Scheduler::Time;

    // A host, and the worker that is at it.
    struct Work {
        std::unique_ptr<WorkerProcess> process;
        std::optional<ResultTold> result;
        std::optional<Scheduler::Why> stopped;
        std::optional<Time> killAt;
        bool babbled = false;  // it has said what no worker says
    };

    void Queue();
    void ListenToSignals();
    void Interrupted();
    void Tick();

    void Pulse();
    void CarryOut(const Scheduler::Orders& orders);
    void Start(std::size_t host);
    void Stop(const Scheduler::Stop& stop);
    void KillLateWorkers(Time now);
    void SetTimer(Time now);

    void Said(std::size_t host, const std::string& line);
    void Take(std::size_t host, const StateTold& told);
    void Take(std::size_t host, const ChannelTold& told);
    void Take(std::size_t host, const OperationTold& told);
    void Take(std::size_t host, const WorkTold& told);
    void Take(std::size_t host, const BytesTold& told);
    void Take(std::size_t host, const TurnAsked& told);
    void Take(std::size_t host, const ResultTold& told);
    void Take(std::size_t /*host*/, const SomethingElse& /*told*/) {}

    void WorkerEnded(std::size_t host, const WorkerProcess::End& end);
    void Conclude(std::size_t host, const ResultTold& result, bool byWorker);
    void EndByStop(std::size_t host, Scheduler::Why why);

    void SetState(std::size_t host, History::HostState state);
    void Changed(std::size_t host);
    void Note(const std::string& sentence);
    void NoteClosed(std::size_t host);
    template <class Write>
    void WriteRow(const Write& write);

    int Number(std::size_t host) const { return m_job.hosts[host].number; }
    int ExitCode() const;

    const Job m_job;
    History::FleetJournal& m_journal;
    Audience& m_audience;

    boost::asio::io_context m_context;
    boost::asio::signal_set m_signals;
    boost::asio::steady_timer m_timer;  // for what the scheduler has to say next
    boost::asio::steady_timer m_ticks;
    std::mt19937 m_random;
    std::unique_ptr<Scheduler> m_scheduler;  // while the run goes
    Scene m_scene;
    std::vector<Work> m_work;
    int m_interrupts = 0;
    bool m_pulseComes = false;
    bool m_journalFails = false;
    std::set<std::string> m_closed;  // logins that the audience has been told of
};

}  // namespace Kemffdc::Fleet

#endif
