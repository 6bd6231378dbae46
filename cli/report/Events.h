// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_EVENTS_H
#define KEMFFDC_REPORT_EVENTS_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "cli/report/EventLines.h"
#include "cli/report/Report.h"
#include "cli/terminal/Progress.h"

namespace Kemffdc {

// What --events prints: a line for each change while a run works, and its result as the last one.
class Events : public ReportObserver, public ProgressObserver {
public:
    // Constraints of `descriptor` and of the moment: see LineWriter.
    // `milestones`: whether those of the run are told too, for the conductor of a fleet.
    explicit Events(int descriptor, bool milestones = false)
        : m_milestones(milestones), m_lines(descriptor) {}

    void RunBegun(const RunRecord& run) override;
    void WayChosen(const std::string& channel, std::uint16_t port) override;
    void OperationChosen(const std::string& operation, const std::string& why) override;
    void AttemptEnded(const Attempt& attempt) override;
    void StepBegun(const std::string& name) override;
    void StepEnded(const Step& step) override;
    void FactsChanged(const BmcFacts& facts) override;
    void TaskChanged(const Task& task) override;
    void DeliveryChanged(const Delivery& delivery) override;
    void MilestoneReached(Milestone milestone, const std::string& detail) override;
    void TurnWanted() override;

    void StepShown(const std::string& step) override;
    void StateShown(const std::string& state) override;
    void WorkShown(std::optional<int> percent, const std::string& message) override;
    void BytesShown(std::uint64_t bytes, std::uint64_t expected) override;
    void LineShown(const std::string& line) override;

    // The last line: the object of the whole run. Blocks, and returns, as EventLines::Finish().
    bool End(const RunRecord& record);

private:
    using Time = std::chrono::steady_clock::time_point;

    const bool m_milestones;
    std::mutex m_lock;
    std::string m_step;  // of the report
    std::optional<Time> m_bytesTold;
    EventLines m_lines;
};

}  // namespace Kemffdc

#endif
