// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPPATIENCE_H
#define VARNEX_PLATFORM_SRC_SFTPPATIENCE_H

#include <chrono>
#include <cstdint>
#include <functional>

#include "StallWatch.h"

// Decides, while an SFTP exchange waits, whether it goes on: the time for connecting holds until
// LoggedIn(), the limit for stalls from there on, and a watcher's word always.
class SftpPatience {
public:
    explicit SftpPatience(std::function<bool()> goOn);

    void LoggedIn() { m_loggedIn = true; }
    bool IsLoggedIn() const { return m_loggedIn; }
    void Received(std::size_t size) { m_bytes += size; }

    // To be called at least once a second; may be called as often as one likes. Throws SftpFailure.
    void Check();
    void AskWatcher();

private:
    std::function<bool()> m_goOn;
    std::chrono::steady_clock::time_point m_connectedBy;
    std::chrono::steady_clock::time_point m_asked;
    std::uint64_t m_askedAt = 0;  // bytes
    bool m_loggedIn = false;
    std::uint64_t m_bytes = 0;
    StallWatch m_stall;
};

#endif
