// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_HOSTKEYCHECK_H
#define VARNEX_PLATFORM_SRC_HOSTKEYCHECK_H

#include <string>

#include "KnownHosts.h"
#include "Transfer.h"

// Whether an SSH server is the one that we think it is. VARNEX_SFTP_HOST_KEYS says how strictly:
//   accept-new   the default: a host's first key is taken and remembered, another one refused
//   strict       only known keys
//   insecure     any key
class HostKeyCheck {
public:
    HostKeyCheck(const std::string& host, unsigned port);

    // Logs what was decided, but for a refusal, and tells the watchers of Transfer.h. On false
    // Refusal() says why, and what the operator may do.
    bool Accepts(const HostKey& key);

    const std::string& Refusal() const { return m_refusal; }

private:
    using Decision = Varnex::HostKeyDecision;

    bool AcceptsUnknown(const HostKey& key);
    bool Judge(const KnownHosts::Result& result, const HostKey& key);
    bool Decide(Decision decision, const HostKey& key, const KnownHosts::Result& found,
                const std::string& text);
    std::string Described(const HostKey& key) const;

    std::string m_path;
    std::string m_name;
    std::string m_refusal;
};

#endif
