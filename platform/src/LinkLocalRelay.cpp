// SPDX-License-Identifier: Apache-2.0
#include "LinkLocalRelay.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cstdint>
#include <system_error>

namespace {

constexpr std::size_t kLongestDatagram = 65536;

// sockaddr_in and its kin are what the socket calls take under the name of sockaddr.
sockaddr* Generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

// What cannot be sent is lost, as datagrams are.
void Pass(const shared::FileDescriptor& to, const std::uint8_t* datagram, ssize_t size) {
    if (size >= 0) (void)!send(to.Get(), datagram, static_cast<std::size_t>(size), 0);
}

}  // namespace

LinkLocalRelay::LinkLocalRelay(sa_family_t family)
    : m_near(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_far(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_stop(eventfd(0, EFD_CLOEXEC)) {}

LinkLocalRelay::~LinkLocalRelay() {
    const std::uint64_t stop = 1;
    (void)!write(m_stop.Get(), &stop, sizeof stop);
    if (m_thread.joinable()) m_thread.join();
}

std::unique_ptr<LinkLocalRelay> LinkLocalRelay::Start(const sockaddr& to, socklen_t length) {
    std::unique_ptr<LinkLocalRelay> relay(new LinkLocalRelay(to.sa_family));
    if (!relay->Open(to, length)) return nullptr;
    try {
        relay->m_thread = std::thread([carrier = relay.get()] { carrier->Carry(); });
    } catch (const std::system_error&) {
        return nullptr;
    }
    return relay;
}

bool LinkLocalRelay::Open(const sockaddr& to, socklen_t length) {
    if (!m_near.IsOpen() || !m_far.IsOpen() || !m_stop.IsOpen()) return false;
    sockaddr_in loopback{};
    loopback.sin_family = AF_INET;
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return bind(m_near.Get(), Generic(loopback), sizeof loopback) == 0 &&
           connect(m_far.Get(), &to, length) == 0;
}

std::string LinkLocalRelay::Endpoint() const {
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(m_near.Get(), Generic(bound), &length);
    return "127.0.0.1:" + std::to_string(ntohs(bound.sin_port));
}

void LinkLocalRelay::Carry() {
    std::array<std::uint8_t, kLongestDatagram> datagram;
    bool known = false;  // whether m_near is connected to its one peer
    pollfd ready[] = {
        {m_stop.Get(), POLLIN, 0}, {m_near.Get(), POLLIN, 0}, {m_far.Get(), POLLIN, 0}};
    for (;;) {
        if (poll(ready, 3, -1) < 0) continue;  // a signal
        if (ready[0].revents != 0) return;
        if (ready[1].revents != 0) {
            sockaddr_in peer{};
            socklen_t length = sizeof peer;
            const ssize_t size = recvfrom(m_near.Get(), datagram.data(), datagram.size(),
                                          MSG_DONTWAIT, Generic(peer), &length);
            if (size >= 0 && !known) known = connect(m_near.Get(), Generic(peer), length) == 0;
            if (size >= 0) m_steps.Sent(datagram.data(), static_cast<std::size_t>(size));
            Pass(m_far, datagram.data(), size);
        }
        if (ready[2].revents != 0) {
            const ssize_t size = recv(m_far.Get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
            if (known && size >= 0 &&
                m_steps.Passes(datagram.data(), static_cast<std::size_t>(size))) {
                Pass(m_near, datagram.data(), size);
            }
        }
    }
}
