// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_REPORT_H
#define KEMFFDC_REPORT_REPORT_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/Options.h"
#include "cli/report/Milestone.h"
#include "cli/report/RunRecord.h"

namespace Kemffdc {

// Hears of each change in a report, on the thread that made it. What it is given is free of
// secrets.
class ReportObserver {
public:
    virtual ~ReportObserver() = default;

    virtual void RunBegun(const RunRecord& run) { (void)run; }
    virtual void WayChosen(const std::string& channel, std::uint16_t port) {
        (void)channel;
        (void)port;
    }
    virtual void OperationChosen(const std::string& operation, const std::string& why) {
        (void)operation;
        (void)why;
    }
    virtual void AttemptEnded(const Attempt& attempt) { (void)attempt; }
    virtual void StepBegun(const std::string& name) { (void)name; }
    virtual void StepEnded(const Step& step) { (void)step; }
    virtual void FactsChanged(const BmcFacts& facts) { (void)facts; }
    virtual void TaskChanged(const Task& task) { (void)task; }
    virtual void DeliveryChanged(const Delivery& delivery) { (void)delivery; }
    virtual void MilestoneReached(Milestone milestone, const std::string& detail) {
        (void)milestone;
        (void)detail;
    }
    virtual void TurnWanted() {}
};

// Gathers what there is to tell about a run while it works, free of the secrets that were named to
// the log. Any thread may call any operation.
class Report {
public:
    explicit Report(const Options& options);

    // To be called before anything is told; the caller keeps owning it. Observers may block: the
    // report is not locked meanwhile.
    void AddObserver(ReportObserver* observer) { m_observers.push_back(observer); }

    // The way to the BMC that the run takes, where the options left it open.
    void SetWay(const std::string& channel, std::uint16_t port);

    // What the channel alone has to tell, instead of what it has set before.
    void SetPart(std::shared_ptr<const ChannelPart> part);
    // No channel is chosen, or the one that was is given up: what it alone has told is forgotten.
    void LeaveWayOpen();
    void SetNumber(std::int64_t number);  // of the run, in the history; before Begin()
    void SetLogKind(const std::string& kind);

    // Which of the channel's operations the run takes, and why; the reason fit for display.
    void SetOperation(const std::string& operation, const std::string& why);

    // Tells the observers what is known before the BMC is asked anything.
    void Begin();

    void AddAttempt(const Attempt& attempt);

    void BeginStep(const std::string& name);
    void EndStep(int code, const std::string& detail = "");
    void SetFacts(const BmcFacts& facts);
    void AddNote(const std::string& sentence);  // stays, whatever facts are set
    void SetTrust(CertificateTrust trust);      // in the certificate of facts that come later
    void SetTask(const Task& task);
    void SetDelivery(const Delivery& delivery);
    // Nothing is told of one that is repeated. `detail`: of kGathering the task's URI.
    void Reach(Milestone milestone, const std::string& detail = "");
    // The run asks for its turn, and waits.
    void WantTurn();

    // All of it so far.
    RunRecord Now();

    // All of it at the run's end: a step that is open has not ended. Nothing when another thread is
    // stuck inside this object.
    std::optional<RunRecord> End(const Outcome& outcome);

private:
    Step CloseStep(int code, const std::string& detail);

    // `tell`: an operation of the observer.
    template <class... Told, class... Given>
    void Tell(void (ReportObserver::*tell)(Told...), const Given&... what) const {
        for (ReportObserver* observer : m_observers) (observer->*tell)(what...);
    }

    std::vector<ReportObserver*> m_observers;
    std::mutex m_lock;
    RunRecord m_record;
    std::vector<std::string> m_notes;  // that were added
    CertificateTrust m_trust = CertificateTrust::kNobody;
    std::optional<Milestone> m_milestone;
    std::string m_open;  // name of the step that has not ended
    std::chrono::steady_clock::time_point m_openSince;
};

}  // namespace Kemffdc

#endif
