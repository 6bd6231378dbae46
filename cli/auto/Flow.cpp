// SPDX-License-Identifier: Apache-2.0
#include "cli/auto/Flow.h"

#include <chrono>
#include <string>
#include <vector>

#include "cli/Context.h"
#include "cli/auto/Search.h"

namespace Kemffdc::Auto {
namespace {

using Clock = std::chrono::steady_clock;
using Work = Outcome (*Channel::*)(Context& run);  // Channel::collect or Channel::check

// Whether another channel may do better. Nothing has been started on the BMC then.
bool IsWorthAnother(const Outcome& outcome, const Context& run) {
    if (outcome.code == kLimited || outcome.cause == Cause::kUnsupported) return true;
    if (outcome.code != kNotConnected || run.bmcGathers) return false;
    switch (outcome.cause) {
        case Cause::kUnreachable:
        case Cause::kTlsFailed:
        case Cause::kNoService:
        case Cause::kBmcFault:
            return true;
        default:
            return false;
    }
}

// The search, from the first question to the end of the run.
class Search {
public:
    explicit Search(Context& run) : m_run(run) {}

    Outcome Run(Work work) {
        m_run.Begin("search");
        const std::vector<Candidate> candidates = FindCandidates(m_run.options);
        Outcome interrupted = m_run.End(0, {});
        if (!interrupted.Ok()) return interrupted;
        for (const Candidate& candidate : candidates) {
            if (!candidate.outcome.Ok()) {
                Note(candidate, candidate.outcome, candidate.seconds);
                continue;
            }
            Outcome outcome = Try(candidate, work);
            if (!IsWorthAnother(outcome, m_run)) return outcome;
        }
        return Nothing();
    }

private:
    Outcome Try(const Candidate& candidate, Work work) {
        const Clock::time_point begin = Clock::now();
        m_run.progress.Say("Trying " + Named(candidate) + ".");
        m_run.report.LeaveWayOpen();
        m_run.report.SetWay(candidate.channel->name, candidate.options.port);
        candidate.channel->outline(candidate.options, m_run.report);
        Context chosen{candidate.options, m_run.trust,    m_run.password, m_run.exportPassword,
                       m_run.progress,    m_run.report,   m_run.folder,   m_run.interrupt,
                       m_run.limits,      m_run.arrivals, m_run.recorder, m_run.bmcGathers,
                       m_run.farewell,    m_run.turns};
        Outcome outcome = (candidate.channel->*work)(chosen);
        Note(candidate, outcome, std::chrono::duration<double>(Clock::now() - begin).count(),
             m_run.report.Now().operation);
        return outcome;
    }

    static std::string Named(const Candidate& candidate) {
        return std::string(candidate.channel->name) + ", port " +
               std::to_string(candidate.options.port);
    }

    void Note(const Candidate& candidate, const Outcome& outcome, double seconds,
              const std::string& operation = "") {
        m_run.report.AddAttempt(
            {candidate.channel->name, candidate.options.port, outcome, seconds, operation});
        if (outcome.Ok()) return;
        m_told += (m_told.empty() ? "" : " ") + Named(candidate) + ": " + outcome.reason;
        m_reached = m_reached || candidate.outcome.Ok();
    }

    Outcome Nothing() const {
        m_run.report.LeaveWayOpen();
        if (m_reached) {
            return Failure(kLimited, Cause::kUnsupported,
                           "The BMC is reached, but no channel gets its service data. " + m_told);
        }
        return Failure(kNotConnected, Cause::kUnreachable,
                       "None of the BMC's services can be used. " + m_told);
    }

    Context& m_run;
    std::string m_told;      // of all attempts that failed, whole sentences
    bool m_reached = false;  // a service answered
};

}  // namespace

Outcome Collect(Context& run) { return Search(run).Run(&Channel::collect); }

Outcome Check(Context& run) { return Search(run).Run(&Channel::check); }

}  // namespace Kemffdc::Auto
