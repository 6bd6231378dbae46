// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPCHANNEL_H
#define VARNEX_PLATFORM_SRC_SFTPCHANNEL_H

#include <libssh/callbacks.h>
#include <libssh/libssh.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "SftpPacket.h"
#include "SshSession.h"

// One conversation with the server's SFTP subsystem (version 3). What the server sends is believed
// in nothing: packets are bounded, and numbers of requests that were never made end it.
class SftpChannel {
public:
    // Null where the server refuses one more. Throws SftpFailure.
    static std::unique_ptr<SftpChannel> Open(SshSession& session, SftpPatience& patience);
    ~SftpChannel();
    SftpChannel(const SftpChannel&) = delete;
    SftpChannel& operator=(const SftpChannel&) = delete;

    // Sends a request and gives its number.
    std::uint32_t Send(std::uint8_t type, const std::string& body);

    // Sends a request whose answer is of no interest, and will not be received.
    void Tell(std::uint8_t type, const std::string& body);

    // The next packet that has come whole; valid until the next call. False: none yet. Throws
    // SftpFailure for what is no packet, and where the server has closed the channel.
    bool Receive(SftpPacket& packet);

    // Sends a request and waits for its answer, where no other is awaited.
    SftpPacket Ask(std::uint8_t type, const std::string& body, SftpPatience& patience);

    // Bytes that the server gives at once to one read.
    std::uint32_t LongestRead() const { return m_longestRead; }

private:
    explicit SftpChannel(SshSession& session) : m_session(session) {}

    bool Begin(SftpPatience& patience);
    void Greet(SftpPatience& patience);
    void AskForLimits(SftpPatience& patience);
    bool ReceiveAny(SftpPacket& packet);
    void Write(const std::string& packet);
    void Flush();
    SftpPacket WaitForPacket(SftpPatience& patience);
    static int OnData(ssh_session session, ssh_channel channel, void* data, std::uint32_t size,
                      int isStderr, void* self);

    SshSession& m_session;
    ssh_channel m_channel = nullptr;
    ssh_channel_callbacks_struct m_callbacks{};
    std::string m_out;  // that the server's window had no room for yet
    std::string m_in;
    std::size_t m_taken = 0;  // of m_in
    std::uint32_t m_lastNumber = 0;
    std::set<std::uint32_t> m_told;  // of no interest
    std::uint32_t m_longestRead = 128 * 1024;
};

#endif
