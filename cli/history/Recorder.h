// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_RECORDER_H
#define KEMFFDC_HISTORY_RECORDER_H

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Transfer.h"
#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"
#include "cli/report/Report.h"

namespace Kemffdc::History {

// Writes one run into the history as it happens: its steps, its task, and each file from the moment
// on that its download begins. An attempt of a fleet run is written into the fleet's journal too.
// No run fails because of its history: after the first trouble nothing is written any more, and
// Trouble() says why. Any thread; nothing throws.
class Recorder : public ReportObserver, public Varnex::TransferWatcher {
public:
    Recorder() = default;
    ~Recorder() override;

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Until then, and where it fails, nothing is recorded. Once.
    void Begin(const std::string& stateFolder, const RunRow& run);

    Id Number() const { return m_run; }  // of the run; 0: it is not recorded

    // Where the BMC has the archive that is going to be fetched.
    void SetBmcPath(const std::string& path);

    // It brings archives of several tasks, one after the other: nobody can go on with it.
    void SetSeveral();
    bool HasSeveral() const { return m_several; }

    // From now on nothing waits for another process. Does not wait itself.
    void Hurry() { m_hurry = true; }

    // The run has ended; an attempt of a fleet run has ended for its host. Gives up where another
    // thread is stuck inside this object.
    void End(const RunRecord& record);

    // Why the history is not written any more; empty where it is, and after the first call.
    std::string TakeTrouble();

    void WayChosen(const std::string& channel, std::uint16_t port) override;
    void OperationChosen(const std::string& operation, const std::string& why) override;
    void StepBegun(const std::string& name) override;
    void StepEnded(const Step& step) override;
    void FactsChanged(const BmcFacts& facts) override;
    void TaskChanged(const Task& task) override;
    void DeliveryChanged(const Delivery& delivery) override;
    void MilestoneReached(Milestone milestone, const std::string& detail) override;

    void Started(const std::string& localPath) override;
    void PartBegun(const Varnex::PartialFile& part) override;
    bool Progress(const Varnex::TransferProgress&) override { return true; }
    void Completed(const Varnex::TransferResult& result) override;
    void Ended(const std::string& localPath, const std::error_code& error) override;

private:
    struct Coming {
        Id id = 0;
        std::string sha256;  // empty until it has arrived
    };

    template <class Work>
    void Write(const Work& work) noexcept;
    void Deliver(const DeliveredFile& file);
    void DeliverToFleet(const Delivery& delivery);
    void EndInFleet(const RunRecord& record);
    Id RowOf(const DeliveredFile& file);

    std::atomic<bool> m_hurry{false};
    std::atomic<Id> m_run{0};
    std::atomic<bool> m_several{false};
    std::mutex m_lock;  // of all below
    std::unique_ptr<Store> m_store;
    std::unique_ptr<FleetJournal> m_journal;  // null: it is no attempt of a fleet run
    Id m_fleet = 0;
    int m_fleetNumber = 0;
    bool m_broken = false;
    std::string m_trouble;
    Task m_task;  // as it was written last
    std::string m_bmcPath;
    std::map<std::string, Coming> m_files;  // by local path; those that are not delivered yet
};

}  // namespace Kemffdc::History

#endif
