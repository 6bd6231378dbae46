// SPDX-License-Identifier: Apache-2.0
#include "SftpSession.h"

#include <curl/curl.h>

#include "SftpFailure.h"

SftpSession::SftpSession(const Uri& uri, SftpPatience& patience)
    : m_ssh(std::make_unique<SshSession>(uri, patience)) {
    m_channels.push_back(SftpChannel::Open(*m_ssh, patience));
    if (!m_channels.front()) {
        const std::string why = ssh_get_error(m_ssh->Get());
        throw SftpFailure{CURLE_SSH,
                          "The SSH server offers no SFTP" + (why.empty() ? "" : ": " + why), true};
    }
}

std::vector<SftpChannel*> SftpSession::Channels(std::size_t count, SftpPatience& patience) {
    while (m_channels.size() < count && !m_refused) {
        std::unique_ptr<SftpChannel> channel = SftpChannel::Open(*m_ssh, patience);
        m_refused = channel == nullptr;
        if (channel) m_channels.push_back(std::move(channel));
    }
    std::vector<SftpChannel*> channels;
    for (const auto& channel : m_channels) {
        if (channels.size() < count) channels.push_back(channel.get());
    }
    return channels;
}

void SftpSession::Abandon() {
    m_ssh->Abandon();
    for (auto& channel : m_channels) (void)channel.release();
    (void)m_ssh.release();
}
