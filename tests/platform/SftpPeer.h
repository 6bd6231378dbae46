// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_SFTPPEER_H
#define VARNEX_TESTS_PLATFORM_SFTPPEER_H

#include <string>
#include <vector>

#include "HttpsPeer.h"
#include "Uri.h"
#include "support/Peer.h"
#include "support/TempFolder.h"

// sftp_peer.py, serving a folder of the test's.
class SftpPeer {
public:
    explicit SftpPeer(const TempFolder& root, const std::vector<std::string>& options = {})
        : m_peer(Command(root, options)), m_ready(ParseJson(m_peer.Line())) {}

    std::uint16_t Port() const {
        return static_cast<std::uint16_t>(std::stoi(Member(m_ready, "port")));
    }
    std::string Fingerprint() const { return Member(m_ready, "fingerprint"); }
    std::string PublicKey() const { return Member(m_ready, "public"); }  // "type base64"
    Uri At(const std::string& path, const std::string& host = "127.0.0.1") const {
        return Uri("sftp", host, Port(), "admin", "secret", path);
    }
    // How known hosts call it.
    std::string Name() const { return "[127.0.0.1]:" + std::to_string(Port()); }

private:
    static std::vector<std::string> Command(const TempFolder& root,
                                            const std::vector<std::string>& options) {
        std::vector<std::string> command = {"/usr/bin/python3", VARNEX_TEST_FOLDER "/sftp_peer.py",
                                            "--root", root.Path()};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    Peer m_peer;
    Json m_ready;
};

#endif
