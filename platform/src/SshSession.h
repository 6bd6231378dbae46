// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SSHSESSION_H
#define VARNEX_PLATFORM_SRC_SSHSESSION_H

#include <libssh/libssh.h>

#include <chrono>
#include <memory>
#include <string>

#include "HostKeyCheck.h"
#include "SftpPatience.h"
#include "SshTunnel.h"
#include "Uri.h"

// A connection to an SSH server, logged in. Belongs to one thread at a time. Nothing in it blocks
// but for Wait().
class SshSession {
public:
    // Connects, has the host key judged, and logs in by password or by answering the server's
    // questions with it. Throws SftpFailure.
    SshSession(const Uri& uri, SftpPatience& patience);
    ~SshSession();
    SshSession(const SshSession&) = delete;
    SshSession& operator=(const SshSession&) = delete;

    // Waits a moment for bytes and hands them to the channels. Throws SftpFailure where the
    // connection is lost, or `patience` is at its end.
    void Wait(SftpPatience& patience);

    // Told by the channels: bytes that have come.
    void CountReceived(std::size_t size) { m_received += size; }

    // Whether the server still accepts the key that the session was made with: policy and known
    // hosts may have changed. Throws SftpFailure.
    void CheckHostKey(const Uri& uri) const;

    ssh_session Get() const { return m_session.get(); }

    // In a child of the process that made the session: frees nothing and says nothing to the
    // server.
    void Abandon();

private:
    struct Free {
        void operator()(ssh_session session) const noexcept;
        void operator()(ssh_event event) const noexcept { ssh_event_free(event); }
    };

    void Connect(const Uri& uri, SftpPatience& patience);
    bool TryToConnect(const Uri& uri, bool withSha1, SftpPatience& patience);
    void SetOptions(const Uri& uri, bool withSha1, int socket);
    void ReadHostKey();
    void NameWeakAlgorithms(const Uri& uri) const;
    void LogIn(const Uri& uri, SftpPatience& patience);
    int ByPassword(const Uri& uri, SftpPatience& patience);
    int ByQuestions(const Uri& uri, SftpPatience& patience);
    void Answer(const std::string& password);
    unsigned Offered() const;
    static std::string Refusal(unsigned offered);
    void WaitForBytes(SftpPatience& patience) const;
    template <class Call>
    int Repeat(Call call, SftpPatience& patience);

    std::unique_ptr<SshTunnel> m_tunnel;
    std::unique_ptr<ssh_session_struct, Free> m_session;
    std::unique_ptr<ssh_event_struct, Free> m_event;
    std::string m_hostKey;  // as it came
    bool m_withSha1 = false;
    std::size_t m_received = 0;  // since the last Wait()
};

#endif
