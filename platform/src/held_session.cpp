// SPDX-License-Identifier: Apache-2.0
#include <openssl/crypto.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "SftpSession.h"
#include "SigPipeGuard.h"
#include "environment.h"

namespace {

constexpr std::chrono::seconds kIdle(2);

// Everything that decides where a session leads, and as whom.
std::string KeyOf(const Uri& uri) {
    std::string key =
        uri.host() + '\0' + std::to_string(uri.port()) + '\0' + uri.user() + '\0' + uri.password();
    for (const char* name :
         {"sftp_proxy", "SFTP_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        key += '\0' + EnvironmentText(name);
    }
    return key;
}

class Holder {
public:
    std::unique_ptr<SftpSession> Take(const std::string& key) {
        const std::lock_guard<std::mutex> hold(m_lock);
        return m_session && m_key == key ? std::move(m_session) : nullptr;
    }

    void Keep(const std::string& key, std::unique_ptr<SftpSession> session) {
        {
            const std::lock_guard<std::mutex> hold(m_lock);
            if (m_ended) return;
            std::swap(m_session, session);
            m_key = key;
            m_until = std::chrono::steady_clock::now() + kIdle;
            if (!m_timing) StartTimer();
        }
        session.reset();  // an older one, outside the lock
    }

    void End() {
        {
            const std::lock_guard<std::mutex> hold(m_lock);
            m_ended = true;
            m_wake.notify_all();
        }
        if (m_timer.joinable()) m_timer.join();
    }

    std::mutex& Lock() { return m_lock; }

    // In a child: the connection is the parent's.
    void Abandon() {
        if (m_session) m_session->Abandon();
    }

private:
    void StartTimer() {
        if (m_timer.joinable()) m_timer.join();  // it has ended
        m_timer = std::thread([this] { Time(); });
        m_timing = true;
    }

    // It ends two seconds after the last session was kept, also while that one is in use: a folder
    // of files needs no new thread for each.
    void Time() {
        const SigPipeGuard guard;
        std::unique_ptr<SftpSession> closing;
        std::unique_lock<std::mutex> hold(m_lock);
        while (!m_ended && std::chrono::steady_clock::now() < m_until) {
            m_wake.wait_until(hold, m_until);
        }
        std::swap(closing, m_session);
        m_timing = false;
    }

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::unique_ptr<SftpSession> m_session;
    std::string m_key;
    std::chrono::steady_clock::time_point m_until;
    bool m_timing = false;
    bool m_ended = false;
    std::thread m_timer;
};

Holder*& TheHolder() {
    static auto* holder = new Holder;  // never destroyed: a thread may still download
    return holder;
}

void BeforeFork() { TheHolder()->Lock().lock(); }
void InParent() { TheHolder()->Lock().unlock(); }

// The timer's thread is not here, and nothing of what it held can be trusted.
void InChild() {
    TheHolder()->Abandon();
    TheHolder() = new Holder;
}

// Registered behind OpenSSL's own end, so it comes before it: closing a session needs OpenSSL. It
// comes too when this library's code is unloaded.
void PrepareEnds() {
    static std::once_flag once;
    std::call_once(once, [] {
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
        pthread_atfork(&BeforeFork, &InParent, &InChild);
        std::atexit([] { TheHolder()->End(); });
    });
}

}  // namespace

std::unique_ptr<SftpSession> held_session::Take(const Uri& uri) {
    return TheHolder()->Take(KeyOf(uri));
}

void held_session::Keep(const Uri& uri, std::unique_ptr<SftpSession> session) {
    PrepareEnds();
    TheHolder()->Keep(KeyOf(uri), std::move(session));
}
