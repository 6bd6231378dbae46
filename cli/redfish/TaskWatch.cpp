// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/TaskWatch.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "cli/CertificateGuard.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Task.h"

namespace Kemffdc::Redfish {
namespace {

using namespace std::chrono_literals;

constexpr int kMaxSeconds = 10;
constexpr std::chrono::seconds kShortestPause = 1s;

}  // namespace

TaskWatch::TaskWatch(const Options& options, const Trust& trust, const Secret& password,
                     std::string uri, std::chrono::seconds interval, Found found)
    : m_options(options),
      m_trust(trust),
      m_password(password),
      m_uri(std::move(uri)),
      m_pause(std::max(interval, kShortestPause)),
      m_found(std::move(found)),
      m_thread([this] { Run(); }) {}

TaskWatch::~TaskWatch() {
    TaskEnded();
    m_thread.join();
}

void TaskWatch::TaskGoesOn(const std::string& state) {
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_due = true;
        m_state = state;
    }
    m_wake.notify_all();
}

void TaskWatch::TaskEnded() {
    {
        std::lock_guard<std::mutex> hold(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
}

void TaskWatch::Run() {
    try {
        while (WaitForTurn() && Look()) {
            std::unique_lock<std::mutex> hold(m_lock);
            m_wake.wait_for(hold, m_pause, [this] { return m_stop.load(); });
        }
    } catch (const std::bad_alloc&) {
        // Nothing more is shown; the wait goes on.
    }
}

bool TaskWatch::WaitForTurn() {
    std::unique_lock<std::mutex> hold(m_lock);
    m_wake.wait(hold, [this] { return m_due || m_stop; });
    m_due = false;
    return !m_stop;
}

bool TaskWatch::Look() {
    Transport transport(EndpointOf(m_options), m_trust, kRedfishService,
                        std::min(RequestSeconds(), kMaxSeconds));
    transport.StopWith(&m_stop);
    const std::optional<Task> task =
        AskForTask(transport, BasicLogin(m_options.user, m_password.Reveal()), m_uri);
    const std::lock_guard<std::mutex> hold(m_lock);
    const bool isOld = task && m_due && task->state != m_state;
    if (task && !m_stop && !isOld) m_found(*task);
    return task.has_value();
}

}  // namespace Kemffdc::Redfish
