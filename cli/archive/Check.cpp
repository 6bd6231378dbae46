// SPDX-License-Identifier: Apache-2.0
#include "cli/archive/Check.h"

#include <chrono>
#include <utility>

namespace Kemffdc::Archives {
namespace {

constexpr auto kLook = std::chrono::milliseconds(50);

}  // namespace

Check::Check(Bounds bounds) : m_bounds(std::move(bounds)) {}

Check::~Check() {
    m_ends = true;
    m_changed.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

void Check::Begin(const std::string& path) {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_waiting.push_back(path);
    if (!m_thread.joinable()) m_thread = std::thread([this] { Work(); });
    m_changed.notify_all();
}

Reading Check::Result(const std::string& path) {
    std::unique_lock<std::mutex> hold(m_lock);
    while (m_done.count(path) == 0 && !MustStop()) m_changed.wait_for(hold, kLook);
    const auto found = m_done.find(path);
    if (found != m_done.end()) return found->second;
    return {Reading::State::kStopped, "was not read to its end"};
}

void Check::Work() {
    const Bounds bounds{m_bounds.bytes, [this] { return MustStop(); }};
    std::unique_lock<std::mutex> hold(m_lock);
    while (!MustStop()) {
        if (m_waiting.empty()) {
            m_changed.wait_for(hold, kLook);
            continue;
        }
        const std::string path = m_waiting.front();
        m_waiting.pop_front();
        hold.unlock();
        const Reading reading = ReadArchive(path, bounds);
        hold.lock();
        m_done[path] = reading;
        m_changed.notify_all();
    }
}

}  // namespace Kemffdc::Archives
