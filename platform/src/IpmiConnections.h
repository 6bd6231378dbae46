// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_IPMICONNECTIONS_H
#define VARNEX_PLATFORM_SRC_IPMICONNECTIONS_H

#include <memory>
#include <mutex>
#include <utility>

#include "../ipmi/module.h"
#include "LinkLocalRelay.h"

// An open session over the LAN, or an open device; or none.
class IpmiSession {
public:
    IpmiSession() = default;
    ~IpmiSession() { Close(); }
    IpmiSession(IpmiSession&& other) noexcept = default;
    IpmiSession(const IpmiSession&) = delete;
    IpmiSession& operator=(const IpmiSession&) = delete;

    void Take(varnex_ipmi_session* opened, const varnex_ipmi_module& module, bool inBand) {
        m_open = {opened, CloseInModule{&module}};
        m_inBand = inBand;
    }

    // Tells the watchers of IpmiEvents.h, where there was one.
    void Close();

    bool IsOpen() const { return m_open != nullptr; }
    varnex_ipmi_session* Get() const { return m_open.get(); }

    std::unique_ptr<LinkLocalRelay> relay;  // which the session goes through; mostly none

private:
    struct CloseInModule {
        const varnex_ipmi_module* module;
        void operator()(varnex_ipmi_session* ended) const { module->close(ended); }
    };

    std::unique_ptr<varnex_ipmi_session, CloseInModule> m_open{nullptr, CloseInModule{nullptr}};
    bool m_inBand = false;
};

// The session of a client, as the whole process sees it: CloseIpmiSessions ends those that are
// idle.
class ClientConnection {
public:
    ClientConnection();
    ~ClientConnection();
    ClientConnection(const ClientConnection&) = delete;
    ClientConnection& operator=(const ClientConnection&) = delete;

    std::mutex inUse;  // held while an operation of the client is at work
    IpmiSession session;
};

#endif
