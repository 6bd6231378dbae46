// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_LISTENERS_H
#define VARNEX_PLATFORM_SRC_LISTENERS_H

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <vector>

// The sinks or watchers of the process, called by any number of threads at once. After Remove()
// no thread is inside the listener. What a listener itself causes on its thread is not told to
// listeners again. Listener and call must not be used from a listener to add or remove one.
template <class Listener>
class Listeners {
public:
    void Add(Listener* listener) {
        if (listener == nullptr) return;
        const std::lock_guard<std::mutex> gate(m_gate);
        const std::unique_lock<std::shared_mutex> alone(m_use);
        if (std::find(m_all.begin(), m_all.end(), listener) == m_all.end()) {
            m_all.push_back(listener);
        }
    }

    void Remove(Listener* listener) {
        const std::lock_guard<std::mutex> gate(m_gate);
        const std::unique_lock<std::shared_mutex> alone(m_use);
        m_all.erase(std::remove(m_all.begin(), m_all.end(), listener), m_all.end());
    }

    template <class Call>
    void ForEach(Call&& call) {
        if (s_inside) return;
        const std::shared_lock<std::shared_mutex> use = Enter();
        const Inside inside;
        for (Listener* listener : m_all) call(*listener);
    }

    // The same; what a listener throws is its own trouble.
    template <class Call>
    void Tell(Call&& call) noexcept {
        try {
            ForEach(call);
        } catch (...) {
        }
    }

private:
    struct Inside {
        Inside() { s_inside = true; }
        ~Inside() { s_inside = false; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;
    };

    // Through the gate: glibc prefers readers, and threads that log without pause would keep
    // Remove() out for ever.
    std::shared_lock<std::shared_mutex> Enter() {
        const std::lock_guard<std::mutex> gate(m_gate);
        return std::shared_lock<std::shared_mutex>(m_use);
    }

    static inline thread_local bool s_inside = false;
    std::mutex m_gate;
    std::shared_mutex m_use;
    std::vector<Listener*> m_all;
};

#endif
