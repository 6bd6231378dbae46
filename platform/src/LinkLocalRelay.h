// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_LINKLOCALRELAY_H
#define VARNEX_PLATFORM_LINKLOCALRELAY_H

#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "IpmiSteps.h"
#include "shared/FileDescriptor.h"

// Carries IPMI datagrams between 127.0.0.1 and a BMC whose address a library cannot be told (a
// link-local one with its scope), or whose answers to the set-up of a session have to be kept in
// step. One peer on this side: the first one that sends. Nothing is trusted that was not before:
// the session above authenticates every datagram.
class LinkLocalRelay {
public:
    // Null when a socket or the thread cannot be had.
    static std::unique_ptr<LinkLocalRelay> Start(const sockaddr& to, socklen_t length);
    ~LinkLocalRelay();

    LinkLocalRelay(const LinkLocalRelay&) = delete;
    LinkLocalRelay& operator=(const LinkLocalRelay&) = delete;

    std::string Endpoint() const;  // "127.0.0.1:PORT"

private:
    explicit LinkLocalRelay(sa_family_t family);
    bool Open(const sockaddr& to, socklen_t length);
    void Carry();

    shared::FileDescriptor m_near;
    shared::FileDescriptor m_far;
    shared::FileDescriptor m_stop;
    IpmiSteps m_steps;  // the thread's
    std::thread m_thread;
};

#endif
