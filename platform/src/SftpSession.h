// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPSESSION_H
#define VARNEX_PLATFORM_SRC_SFTPSESSION_H

#include <memory>
#include <string>
#include <vector>

#include "SftpChannel.h"
#include "SshSession.h"
#include "Uri.h"

// A login with its SFTP channels. Quiet between two exchanges: no answer is awaited.
class SftpSession {
public:
    // Throws SftpFailure.
    SftpSession(const Uri& uri, SftpPatience& patience);

    SshSession& Ssh() { return *m_ssh; }
    SftpChannel& First() { return *m_channels.front(); }

    // As many channels as `count`, or fewer where the server allows no more.
    std::vector<SftpChannel*> Channels(std::size_t count, SftpPatience& patience);

    void Abandon();

private:
    std::unique_ptr<SshSession> m_ssh;
    std::vector<std::unique_ptr<SftpChannel>> m_channels;  // before m_ssh goes
    bool m_refused = false;                                // one more channel
};

// The one session that the process keeps between two exchanges, for two seconds.
namespace held_session {

// Null where none fits. What is taken is nobody else's.
std::unique_ptr<SftpSession> Take(const Uri& uri);

void Keep(const Uri& uri, std::unique_ptr<SftpSession> session);

}  // namespace held_session

#endif
