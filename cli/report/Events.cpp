// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Events.h"

#include <boost/json.hpp>
#include <new>

#include "LogSink.h"
#include "cli/report/Json.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

constexpr auto kBetweenBytes = 1s;

// What is shown on the terminal may hold what a BMC said.
json::value Shown(const std::string& text) {
    return TextOrNull(Varnex::WithoutHiddenSecrets(text));
}

}  // namespace

void Events::RunBegun(const RunRecord& run) {
    m_lines.Tell("run-begun", {{"version", KEMFFDC_VERSION},
                               {"run", run.number ? json::value(*run.number) : nullptr},
                               {"command", TextOrNull(run.command)},
                               {"channel", TextOrNull(run.channel)},
                               {"host", TextOrNull(run.host)},
                               {"port", PortOrNull(run.port)},
                               {"user", TextOrNull(run.user)}});
}

void Events::WayChosen(const std::string& channel, std::uint16_t port) {
    m_lines.Tell("way-chosen", {{"channel", channel}, {"port", PortOrNull(port)}});
}

void Events::OperationChosen(const std::string& operation, const std::string& why) {
    m_lines.Tell("operation-chosen", {{"operation", operation}, {"reason", TextOrNull(why)}});
}

void Events::AttemptEnded(const Attempt& attempt) {
    m_lines.Tell("attempt-ended", {{"attempt", AttemptObject(attempt)}});
}

void Events::StepBegun(const std::string& name) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_step = name;
    }
    m_lines.Tell("step-begun", {{"name", name}});
}

void Events::StepEnded(const Step& step) {
    m_lines.Tell("step-ended", {{"step", StepObject(step)}});
}

void Events::FactsChanged(const BmcFacts& facts) {
    m_lines.Tell("bmc-described", {{"bmc", FactsObject(facts)}});
}

void Events::TaskChanged(const Task& task) {
    m_lines.Tell("task-read", {{"task", TaskValue(task)}});
}

void Events::DeliveryChanged(const Delivery& delivery) {
    m_lines.Tell("delivered",
                 {{"path", TextOrNull(delivery.path)},
                  {"size", delivery.path.empty() ? nullptr : json::value(delivery.size)},
                  {"sha256", TextOrNull(delivery.sha256)},
                  {"export_uri", TextOrNull(delivery.exportUri)}});
}

void Events::MilestoneReached(Milestone milestone, const std::string& detail) {
    if (!m_milestones) return;
    m_lines.Tell("host-state", {{"state", NameOf(milestone)}, {"detail", TextOrNull(detail)}});
}

void Events::TurnWanted() { m_lines.Tell("turn", {}); }

// A step of the report may show several of its own: "download, file 2 of 5".
void Events::StepShown(const std::string& step) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_bytesTold.reset();
        if (step == m_step) return;
    }
    m_lines.Tell("state", {{"state", Shown(step)}});
}

void Events::StateShown(const std::string& state) {
    m_lines.Tell("state", {{"state", Shown(state)}});
}

void Events::WorkShown(std::optional<int> percent, const std::string& message) {
    m_lines.Tell("work", {{"percent", percent ? json::value(*percent) : nullptr},
                          {"message", Shown(message)}});
}

void Events::BytesShown(std::uint64_t bytes, std::uint64_t expected) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        const Time now = std::chrono::steady_clock::now();
        if (m_bytesTold && now - *m_bytesTold < kBetweenBytes) return;
        m_bytesTold = now;
    }
    try {
        m_lines.Tell("bytes", {{"bytes", bytes},
                               {"expected", expected > 0 ? json::value(expected) : nullptr}});
    } catch (const std::bad_alloc&) {
        // The download goes on; it must not see an exception.
    }
}

void Events::LineShown(const std::string& line) { m_lines.Tell("note", {{"text", Shown(line)}}); }

bool Events::End(const RunRecord& record) { return m_lines.Finish(RunObject(record)); }

}  // namespace Kemffdc
