// SPDX-License-Identifier: Apache-2.0
#include "SftpChannel.h"

#include <algorithm>
#include <new>

#include "SftpFailure.h"

namespace {

constexpr std::uint32_t kVersion = 3;
constexpr std::uint32_t kLeastRead = 1024;
constexpr char kLimits[] = "limits@openssh.com";

// What libssh lets the server send ahead of us, and more than a server may have in flight.
constexpr std::size_t kMostAhead = 4UL * 1024 * 1024;

std::string Packet(std::uint8_t type, const std::string& body) {
    SftpWriter head;
    head.Number(static_cast<std::uint32_t>(body.size() + 1));
    return head.Bytes() + static_cast<char>(type) + body;
}

}  // namespace

std::unique_ptr<SftpChannel> SftpChannel::Open(SshSession& session, SftpPatience& patience) {
    std::unique_ptr<SftpChannel> channel(new SftpChannel(session));
    if (!channel->Begin(patience)) return nullptr;
    channel->Greet(patience);
    return channel;
}

SftpChannel::~SftpChannel() {
    if (m_channel == nullptr) return;
    ssh_remove_channel_callbacks(m_channel, &m_callbacks);
    ssh_channel_free(m_channel);
}

bool SftpChannel::Begin(SftpPatience& patience) {
    m_channel = ssh_channel_new(m_session.Get());
    if (m_channel == nullptr) throw std::bad_alloc();
    m_callbacks.userdata = this;
    m_callbacks.channel_data_function = &SftpChannel::OnData;
    ssh_callbacks_init(&m_callbacks);
    ssh_set_channel_callbacks(m_channel, &m_callbacks);
    int result = SSH_AGAIN;
    while ((result = ssh_channel_open_session(m_channel)) == SSH_AGAIN) m_session.Wait(patience);
    if (result != SSH_OK) return false;
    while ((result = ssh_channel_request_subsystem(m_channel, "sftp")) == SSH_AGAIN) {
        m_session.Wait(patience);
    }
    return result == SSH_OK;
}

void SftpChannel::Greet(SftpPatience& patience) {
    Write(Packet(sftp::kInit, SftpWriter().Number(kVersion).Bytes()));
    const SftpPacket answer = WaitForPacket(patience);
    if (answer.type != sftp::kVersion) throw SftpNonsense("no greeting");
    SftpReader fields(answer.body);
    if (fields.Number() < kVersion) throw SftpNonsense("an older version than 3");
    bool limits = false;
    while (!fields.AtEnd()) {
        limits = fields.Text() == kLimits || limits;
        (void)fields.Text();
    }
    m_lastNumber = 1;  // from here on packets have numbers
    if (limits) AskForLimits(patience);
}

void SftpChannel::AskForLimits(SftpPatience& patience) {
    const SftpPacket answer = Ask(sftp::kExtended, SftpWriter().Text(kLimits).Bytes(), patience);
    if (answer.type != sftp::kExtendedReply) return;
    SftpReader fields(answer.body);
    (void)fields.Long();  // longest packet
    const std::uint64_t read = fields.Long();
    if (read == 0) return;
    m_longestRead = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(m_longestRead, std::max<std::uint64_t>(read, kLeastRead)));
}

std::uint32_t SftpChannel::Send(std::uint8_t type, const std::string& body) {
    const std::uint32_t number = ++m_lastNumber;
    Write(Packet(type, SftpWriter().Number(number).Bytes() + body));
    return number;
}

void SftpChannel::Tell(std::uint8_t type, const std::string& body) {
    constexpr std::size_t kMostUnanswered = 64;
    if (m_told.size() >= kMostUnanswered) throw SftpNonsense("no answers any more");
    m_told.insert(Send(type, body));
}

void SftpChannel::Write(const std::string& packet) {
    m_out += packet;
    Flush();
}

void SftpChannel::Flush() {
    while (!m_out.empty()) {
        const int written =
            ssh_channel_write(m_channel, m_out.data(), static_cast<std::uint32_t>(m_out.size()));
        if (written == SSH_ERROR) throw SftpNonsense("nothing more: it has closed the channel");
        if (written <= 0) return;
        m_out.erase(0, static_cast<std::size_t>(written));
    }
}

bool SftpChannel::Receive(SftpPacket& packet) {
    Flush();
    while (ReceiveAny(packet)) {
        if (m_told.erase(packet.number) == 0) return true;
    }
    return false;
}

bool SftpChannel::ReceiveAny(SftpPacket& packet) {
    if (m_taken > 0 && (m_taken == m_in.size() || m_taken > sftp::kLongestPacket)) {
        m_in.erase(0, m_taken);
        m_taken = 0;
    }
    if (m_in.size() > kMostAhead) throw SftpNonsense("more than it was asked for");
    const std::size_t size =
        ReadSftpPacket(std::string_view(m_in).substr(m_taken), m_lastNumber > 0, packet);
    m_taken += size;
    if (size == 0 &&
        (ssh_channel_is_eof(m_channel) != 0 || ssh_channel_is_closed(m_channel) != 0)) {
        throw SftpNonsense("nothing more: it has closed the channel");
    }
    return size > 0;
}

SftpPacket SftpChannel::WaitForPacket(SftpPatience& patience) {
    SftpPacket packet;
    while (!Receive(packet)) m_session.Wait(patience);
    return packet;
}

SftpPacket SftpChannel::Ask(std::uint8_t type, const std::string& body, SftpPatience& patience) {
    const std::uint32_t number = Send(type, body);
    const SftpPacket answer = WaitForPacket(patience);
    if (answer.number != number) throw SftpNonsense("an answer to a question that was never asked");
    return answer;
}

int SftpChannel::OnData(ssh_session, ssh_channel, void* data, std::uint32_t size, int isStderr,
                        void* self) {
    try {
        auto& channel = *static_cast<SftpChannel*>(self);
        channel.m_session.CountReceived(size);
        if (isStderr == 0) channel.m_in.append(static_cast<const char*>(data), size);
        return static_cast<int>(size);
    } catch (...) {  // no exception goes through libssh; what stays there shows as a bad packet
        return 0;
    }
}
