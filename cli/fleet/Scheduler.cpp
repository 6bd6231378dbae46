// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Scheduler.h"

#include <algorithm>
#include <utility>

namespace Kemffdc::Fleet {
namespace {

constexpr std::chrono::seconds kSilence{60};  // of a worker that is past its own deadline

std::vector<std::string> CredentialsOf(const std::vector<Scheduler::Host>& hosts) {
    std::vector<std::string> names;
    names.reserve(hosts.size());
    for (const Scheduler::Host& host : hosts) names.push_back(host.credential);
    return names;
}

}  // namespace

Scheduler::Scheduler(const Pace& pace, const std::vector<Host>& hosts, Time now,
                     std::function<double()> random)
    : m_pace(pace),
      m_begun(now),
      m_random(std::move(random)),
      m_guard(CredentialsOf(hosts)),
      m_hosts(hosts.size()),
      m_nextStart(now) {
    for (std::size_t host = 0; host < hosts.size(); ++host) {
        m_hosts[host].patience = hosts[host].patience;
        m_hosts[host].doubtful = hosts[host].doubtful;
        if (hosts[host].done) m_hosts[host].phase = Phase::kEnded;
    }
}

Scheduler::Orders Scheduler::Take(Time now) {
    Orders orders;
    StopHosts(now, orders);
    GiveTurns(now, orders);
    StartHosts(now, orders);
    return orders;
}

bool Scheduler::IsAtWork(Phase phase) {
    return phase == Phase::kAtWork || phase == Phase::kAsking || phase == Phase::kTransferring;
}

std::size_t Scheduler::Count(Phase phase) const {
    return static_cast<std::size_t>(
        std::count_if(m_hosts.begin(), m_hosts.end(),
                      [phase](const HostState& host) { return host.phase == phase; }));
}

std::size_t Scheduler::AtWork() const {
    return static_cast<std::size_t>(
        std::count_if(m_hosts.begin(), m_hosts.end(), [](const HostState& host) {
            return IsAtWork(host.phase) || host.phase == Phase::kStopping;
        }));
}

bool Scheduler::HasEnded() const { return Count(Phase::kEnded) == m_hosts.size(); }

std::optional<Scheduler::Why> Scheduler::WhyStop(std::size_t host, Time now) const {
    if (m_interrupted) return Why::kInterrupted;
    if (m_pace.runDeadline.count() > 0 && now >= m_begun + m_pace.runDeadline) {
        return Why::kRunDeadline;
    }
    const auto deadline = HostDeadline(m_hosts[host]);
    if (deadline && now >= *deadline) return Why::kHostDeadline;
    if (m_guard.IsClosedFor(host)) return Why::kGuard;
    const auto hung = HungAt(m_hosts[host]);
    if (hung && now >= *hung) return Why::kHung;
    return std::nullopt;
}

void Scheduler::StopHosts(Time now, Orders& orders) {
    for (std::size_t host = 0; host < m_hosts.size(); ++host) {
        Phase& phase = m_hosts[host].phase;
        if (phase == Phase::kEnded || phase == Phase::kStopping) continue;
        const auto why = WhyStop(host, now);
        if (!why) continue;
        const bool atWork = IsAtWork(phase);
        orders.stop.push_back({host, *why, atWork});
        phase = atWork ? Phase::kStopping : Phase::kEnded;
    }
}

// The one that has waited longest comes first.
void Scheduler::GiveTurns(Time now, Orders& orders) {
    for (std::size_t free =
             m_pace.transfers - std::min(m_pace.transfers, Count(Phase::kTransferring));
         free > 0; --free) {
        const auto first = std::min_element(
            m_hosts.begin(), m_hosts.end(), [](const auto& one, const auto& other) {
                const bool asks = one.phase == Phase::kAsking;
                const bool otherAsks = other.phase == Phase::kAsking;
                return asks && (!otherAsks || one.asked < other.asked);
            });
        if (first == m_hosts.end() || first->phase != Phase::kAsking) return;
        first->phase = Phase::kTransferring;
        first->tryBegun = now;
        orders.go.push_back(static_cast<std::size_t>(first - m_hosts.begin()));
    }
}

void Scheduler::StartHosts(Time now, Orders& orders) {
    std::size_t gathering = Count(Phase::kAtWork) + Count(Phase::kAsking);
    while (now >= m_nextStart && gathering < m_pace.gathering) {
        const auto next = NextToStart(now);
        if (!next) return;
        HostState& host = m_hosts[*next];
        host.phase = Phase::kAtWork;
        host.tryBegun = host.heard = now;
        if (++host.tries == 1) host.begun = now;
        m_guard.Started(*next, now);
        m_nextStart = std::max(m_nextStart, now - m_pace.startGap) + m_pace.startGap;
        ++gathering;
        orders.start.push_back(*next);
    }
}

bool Scheduler::IsReady(std::size_t host, Time now) const {
    const HostState& asked = m_hosts[host];
    const bool due = asked.phase == Phase::kQueued ||
                     (asked.phase == Phase::kPausing && now >= asked.pausedTill);
    return due && m_guard.MayStart(host, now);
}

// Those that nobody has tried come first: a host that failed may fail again. And those whose login
// was refused come last: the guard may end the run there.
std::optional<std::size_t> Scheduler::NextToStart(Time now) const {
    std::optional<std::size_t> next;
    int rank = 3;
    for (std::size_t host = 0; host < m_hosts.size() && rank > 0; ++host) {
        const HostState& state = m_hosts[host];
        const int own = state.doubtful ? 2 : state.phase == Phase::kPausing ? 1 : 0;
        if (own >= rank || !IsReady(host, now)) continue;
        next = host;
        rank = own;
    }
    return next;
}

std::optional<Scheduler::Time> Scheduler::HostDeadline(const HostState& host) const {
    if (m_pace.hostDeadline.count() == 0 || host.tries == 0) return std::nullopt;
    return host.begun + m_pace.hostDeadline;
}

// A worker has a deadline of its own. One that says nothing for a while behind it is stuck.
std::optional<Scheduler::Time> Scheduler::HungAt(const HostState& host) const {
    const bool works = host.phase == Phase::kAtWork || host.phase == Phase::kTransferring;
    if (!works || host.patience.count() == 0) return std::nullopt;
    return std::max(host.tryBegun + host.patience, host.heard) + kSilence;
}

std::optional<Scheduler::Time> Scheduler::Next(Time now) const {
    std::optional<Time> next;
    const auto at = [&next](std::optional<Time> time) {
        if (time && (!next || *time < *next)) next = time;
    };
    const bool room = Count(Phase::kAtWork) + Count(Phase::kAsking) < m_pace.gathering;
    for (std::size_t host = 0; host < m_hosts.size(); ++host) {
        const HostState& state = m_hosts[host];
        if (state.phase == Phase::kEnded || state.phase == Phase::kStopping) continue;
        at(HostDeadline(state));
        at(HungAt(state));
        if (state.phase == Phase::kPausing && state.pausedTill > now) at(state.pausedTill);
        if (room && IsReady(host, now)) at(m_nextStart);
        if (m_pace.runDeadline.count() > 0) at(m_begun + m_pace.runDeadline);
    }
    at(m_guard.NextChange(now));
    return next;
}

void Scheduler::Heard(std::size_t host, Time now) { m_hosts[host].heard = now; }

void Scheduler::LoggedIn(std::size_t host) { m_guard.Accepted(host); }

void Scheduler::AskedForTurn(std::size_t host, Time now) {
    if (m_hosts[host].phase != Phase::kAtWork) return;
    m_hosts[host].phase = Phase::kAsking;
    m_hosts[host].asked = now;
}

// Half as long to one and a half times as long, so that hosts that failed together do not come
// back together.
Scheduler::Duration Scheduler::Pause(int tries) {
    Duration pause = m_pace.pause;
    for (int more = 1; more < tries && pause < m_pace.longestPause; ++more) pause *= 3;
    const auto jittered = static_cast<double>(pause.count()) * (0.5 + m_random());
    return std::min(Duration(static_cast<Duration::rep>(jittered)), m_pace.longestPause);
}

std::optional<Scheduler::Time> Scheduler::Ended(std::size_t host, const Result& result, Time now) {
    HostState& state = m_hosts[host];
    if (result.refused) {
        m_guard.Refused(host);
    } else {
        m_guard.Ended(host);
    }
    const bool stopped = state.phase == Phase::kStopping;
    state.phase = Phase::kEnded;
    if (stopped || result.refused || !result.retryable || state.tries > m_pace.retries) {
        return std::nullopt;
    }
    const Time again = now + Pause(state.tries);
    const auto deadline = HostDeadline(state);
    const bool late = (deadline && again >= *deadline) ||
                      (m_pace.runDeadline.count() > 0 && again >= m_begun + m_pace.runDeadline);
    if (late) return std::nullopt;
    state.phase = Phase::kPausing;
    state.pausedTill = again;
    return again;
}

}  // namespace Kemffdc::Fleet
