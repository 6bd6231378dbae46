// SPDX-License-Identifier: Apache-2.0
#include "cli/report/EventLines.h"

#include <boost/json.hpp>

#include "cli/Utc.h"
#include "cli/report/Json.h"

namespace Kemffdc {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

constexpr auto kPatience = 30s;

}  // namespace

EventLines::EventLines(int descriptor)
    : m_start(std::chrono::steady_clock::now()), m_writer(descriptor) {}

// Under the lock until the line is in its place: numbers come in order.
void EventLines::Tell(const char* event, const json::object& members) {
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

bool EventLines::Finish(const json::object& result) {
    return m_writer.Finish(JsonText(result), kPatience);
}

}  // namespace Kemffdc
