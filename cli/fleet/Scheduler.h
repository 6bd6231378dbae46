// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_SCHEDULER_H
#define KEMFFDC_FLEET_SCHEDULER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/fleet/Guard.h"

namespace Kemffdc::Fleet {

// Decides what happens next in a fleet run: which host is tried, which one may download, which one
// has had its time. It starts nothing and knows no clock: the conductor tells what has happened
// and when, asks for orders, and carries them out. Hosts are named by their place in the plan.
class Scheduler {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::milliseconds;

    struct Pace {
        std::size_t gathering = 256;  // hosts from their start until they may download
        std::size_t transfers = 8;    // hosts that download
        Duration startGap{10};        // between two starts
        int retries = 2;              // further tries of a host
        Duration pause{10000};        // before the first of them; three times as long each time
        Duration longestPause{300000};
        Duration hostDeadline{0};  // from a host's first start, all tries and pauses; 0: none
        Duration runDeadline{0};   // of the whole run; 0: none
    };

    struct Host {
        std::string credential;  // equal where the same user and password log in
        bool done = false;       // by an earlier run: there is nothing to do
        bool doubtful = false;   // its login was refused in an earlier run: it is tried last
        Duration patience{0};    // that its worker has for one try, by its own clock; 0: for ever
    };

    enum class Why {
        kGuard,  // its credential was refused elsewhere
        kHostDeadline,
        kRunDeadline,
        kHung,         // past its own deadline and silent: its worker has to be killed
        kInterrupted,  // somebody ends the run
    };
    struct Stop {
        std::size_t host = 0;
        Why why = Why::kInterrupted;
        bool atWork = false;  // a worker is at it and has to be ended; the host ends with it
    };
    // What is to be done now; each of it is said once.
    struct Orders {
        std::vector<std::size_t> start;
        std::vector<std::size_t> go;  // they may download
        std::vector<Stop> stop;
    };

    struct Result {
        bool refused = false;    // the BMC has refused user or password
        bool retryable = false;  // another try may end better
    };

    // `random`: from 0 up to 1; jitter of the pauses. Neither number of `pace` is 0 where it
    // limits.
    Scheduler(const Pace& pace, const std::vector<Host>& hosts, Time now,
              std::function<double()> random);

    Orders Take(Time now);
    // When Take() has orders again if nothing happens until then; none: only what happens counts.
    std::optional<Time> Next(Time now) const;

    void Heard(std::size_t host, Time now);         // its worker has said something
    void LoggedIn(std::size_t host);                // the BMC has taken the login
    void AskedForTurn(std::size_t host, Time now);  // it wants to download
    // Its worker has ended. When it is tried again; none: it has ended for good.
    std::optional<Time> Ended(std::size_t host, const Result& result, Time now);
    // All hosts that have not ended are to be stopped.
    void Interrupt() { m_interrupted = true; }

    bool HasEnded() const;  // all hosts have
    std::size_t AtWork() const;
    int Tries(std::size_t host) const { return m_hosts[host].tries; }

private:
    enum class Phase { kQueued, kAtWork, kAsking, kTransferring, kPausing, kStopping, kEnded };

    struct HostState {
        Phase phase = Phase::kQueued;
        bool doubtful = false;
        Duration patience{0};
        int tries = 0;
        Time begun;     // its first try
        Time tryBegun;  // that of now, without the time that it has waited for its turn
        Time heard;
        Time asked;  // for its turn
        Time pausedTill;
    };

    static bool IsAtWork(Phase phase);
    std::size_t Count(Phase phase) const;

    std::optional<Why> WhyStop(std::size_t host, Time now) const;
    void StopHosts(Time now, Orders& orders);
    void GiveTurns(Time now, Orders& orders);
    void StartHosts(Time now, Orders& orders);
    std::optional<std::size_t> NextToStart(Time now) const;
    bool IsReady(std::size_t host, Time now) const;

    std::optional<Time> HostDeadline(const HostState& host) const;
    std::optional<Time> HungAt(const HostState& host) const;
    Duration Pause(int tries);

    const Pace m_pace;
    const Time m_begun;
    const std::function<double()> m_random;
    Guard m_guard;
    std::vector<HostState> m_hosts;
    Time m_nextStart;
    bool m_interrupted = false;
};

}  // namespace Kemffdc::Fleet

#endif
