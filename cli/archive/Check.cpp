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
    if (!m_thread.joinable()) m_thread = std::thread([this] { Work(); });
    m_waiting.push_back(path);
    ++m_begun[path];
    m_changed.notify_all();
}

bool Check::HasBegun(const std::string& path) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    return m_begun.count(path) > 0;
}

Reading Check::Result(const std::string& path) {
    std::unique_lock<std::mutex> hold(m_lock);
    const auto isRead = [&] { return m_done.count(path) > 0 && m_begun[path] == 0; };
    while (!isRead() && !MustStop()) m_changed.wait_for(hold, kLook);
    if (isRead()) return m_done[path];
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
        --m_begun[path];
        m_changed.notify_all();
    }
}

}  // namespace Kemffdc::Archives
