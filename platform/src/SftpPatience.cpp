// SPDX-License-Identifier: Apache-2.0
#include "SftpPatience.h"

#include <curl/curl.h>

#include "SftpFailure.h"
#include "transfer_settings.h"

SftpPatience::SftpPatience(std::function<bool()> goOn)
    : m_goOn(std::move(goOn)),
      m_connectedBy(std::chrono::steady_clock::now() + ConnectTime()),
      m_stall(kStallSpeed, StallTime()) {}

void SftpPatience::Check() {
    constexpr std::chrono::milliseconds kOften(50);
    constexpr std::uint64_t kMuch = 256UL << 10;  // bytes
    const auto now = std::chrono::steady_clock::now();
    if (now - m_asked < kOften && m_bytes - m_askedAt < kMuch) return;
    m_asked = now;
    m_askedAt = m_bytes;
    AskWatcher();
    if (!m_loggedIn && now >= m_connectedBy) {
        throw SftpFailure{CURLE_OPERATION_TIMEDOUT,
                          "The server did not let us in within the time for connecting", true};
    }
    if (m_loggedIn && m_stall.Stalled(m_bytes)) {
        throw SftpFailure{CURLE_OPERATION_TIMEDOUT, "The server stalled", true};
    }
}

void SftpPatience::AskWatcher() {
    if (!m_goOn()) {
        throw SftpFailure{CURLE_ABORTED_BY_CALLBACK, "The download was stopped", true};
    }
}
