// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Events.h"

#include <boost/json.hpp>
#include <new>

#include "LogSink.h"
#include "cli/Utc.h"
#include "cli/report/Json.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

constexpr auto kBetweenBytes = 1s;
constexpr auto kPatience = 30s;

// What is shown on the terminal may hold what a BMC said.
json::value Shown(const std::string& text) {
    return TextOrNull(Varnex::WithoutHiddenSecrets(text));
}

}  // namespace

Events::Events(int descriptor) : m_start(std::chrono::steady_clock::now()), m_writer(descriptor) {}

void Events::RunBegun(const RunRecord& run) {
    Tell("run-begun", {{"version", KEMFFDC_VERSION},
                       {"run", run.number ? json::value(*run.number) : nullptr},
                       {"command", TextOrNull(run.command)},
                       {"channel", TextOrNull(run.channel)},
                       {"host", TextOrNull(run.host)},
                       {"port", PortOrNull(run.port)},
                       {"user", TextOrNull(run.user)}});
}

void Events::WayChosen(const std::string& channel, std::uint16_t port) {
    Tell("way-chosen", {{"channel", channel}, {"port", PortOrNull(port)}});
}

void Events::AttemptEnded(const Attempt& attempt) {
    Tell("attempt-ended", {{"attempt", AttemptObject(attempt)}});
}

void Events::StepBegun(const std::string& name) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_step = name;
    }
    Tell("step-begun", {{"name", name}});
}

void Events::StepEnded(const Step& step) { Tell("step-ended", {{"step", StepObject(step)}}); }

void Events::FactsChanged(const BmcFacts& facts) {
    Tell("bmc-described", {{"bmc", FactsObject(facts)}});
}

void Events::TaskChanged(const Task& task) { Tell("task-read", {{"task", TaskValue(task)}}); }

void Events::DeliveryChanged(const Delivery& delivery) {
    Tell("delivered", {{"path", TextOrNull(delivery.path)},
                       {"size", delivery.path.empty() ? nullptr : json::value(delivery.size)},
                       {"sha256", TextOrNull(delivery.sha256)},
                       {"export_uri", TextOrNull(delivery.exportUri)}});
}

// A step of the report may show several of its own: "download, file 2 of 5".
void Events::StepShown(const std::string& step) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_bytesTold.reset();
        if (step == m_step) return;
    }
    Tell("state", {{"state", Shown(step)}});
}

void Events::StateShown(const std::string& state) { Tell("state", {{"state", Shown(state)}}); }

void Events::WorkShown(std::optional<int> percent, const std::string& message) {
    Tell("work",
         {{"percent", percent ? json::value(*percent) : nullptr}, {"message", Shown(message)}});
}

void Events::BytesShown(std::uint64_t bytes, std::uint64_t expected) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        const Time now = std::chrono::steady_clock::now();
        if (m_bytesTold && now - *m_bytesTold < kBetweenBytes) return;
        m_bytesTold = now;
    }
    try {
        Tell("bytes",
             {{"bytes", bytes}, {"expected", expected > 0 ? json::value(expected) : nullptr}});
    } catch (const std::bad_alloc&) {
        // The download goes on; it must not see an exception.
    }
}

void Events::LineShown(const std::string& line) { Tell("note", {{"text", Shown(line)}}); }

bool Events::End(const RunRecord& record) {
    return m_writer.Finish(JsonText(RunObject(record)), kPatience);
}

// Under the lock until the line is in its place: numbers come in order.
void Events::Tell(const char* event, const json::object& members) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_start;
    const std::lock_guard<std::mutex> hold(m_lock);
    json::object line{{"schema", kJsonSchema},
                      {"number", ++m_number},
                      {"event", event},
                      {"time", UtcNow()},
                      {"elapsed", Seconds(elapsed.count())}};
    for (const json::key_value_pair& member : members) line.insert(member);
    m_writer.Write(JsonText(line));
}

}  // namespace Kemffdc
