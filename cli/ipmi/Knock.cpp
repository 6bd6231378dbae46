// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Knock.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "cli/Channel.h"
#include "shared/FileDescriptor.h"
#include "shared/HostName.h"

namespace Kemffdc::Ipmi {
namespace {

constexpr std::chrono::milliseconds kRepeat{1000};  // a datagram may be lost
constexpr int kQuestions = kKnockTime / kRepeat;    // no more, whatever comes back

// RMCP for IPMI, no session; Get Channel Authentication Capabilities of this channel, IPMI v2.0
// data, for an administrator.
constexpr std::uint8_t kQuestion[] = {0x06, 0x00, 0xFF, 0x07, 0x00, 0x00, 0x00, 0x00,
                                      0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x20, 0x18,
                                      0xC8, 0x81, 0x00, 0x38, 0x8E, 0x04, 0xB5};
constexpr std::uint8_t kRmcp[] = {0x06, 0x00, 0xFF, 0x07};

struct FreeAddresses {
    void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

Addresses Resolve(const Options& options, std::string& trouble) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(options.port);
    const int code = getaddrinfo(options.host.c_str(), port.c_str(), &hints, &found);
    if (code != 0) trouble = gai_strerror(code);
    return Addresses(found);
}

std::string Place(const Options& options) {
    return shared::WithBrackets(options.host) + " port " + std::to_string(options.port) + " (UDP)";
}

Outcome Silent(const Options& options, const std::string& why) {
    return Failure(kNotConnected, Cause::kUnreachable,
                   "No BMC answers at " + Place(options) + " (" + why + ").");
}

// One question and what comes within `patience`. 1: an answer; 0: nothing; -1: errno says why not.
int Ask(int socket, std::chrono::milliseconds patience) {
    if (send(socket, kQuestion, sizeof kQuestion, MSG_NOSIGNAL) < 0) return -1;
    pollfd ready{socket, POLLIN, 0};
    const int count = poll(&ready, 1, static_cast<int>(patience.count()));
    if (count <= 0) return count == 0 || errno == EINTR ? 0 : -1;
    std::uint8_t answer[256];
    const ssize_t size = recv(socket, answer, sizeof answer, MSG_DONTWAIT);
    if (size < 0) return errno == EAGAIN ? 0 : -1;
    const bool rmcp = size > static_cast<ssize_t>(sizeof kRmcp) &&
                      std::equal(std::begin(kRmcp), std::end(kRmcp), answer);
    return rmcp ? 1 : 0;
}

}  // namespace

Outcome Knock(const Options& options) {
    std::string trouble;
    const Addresses addresses = Resolve(options, trouble);
    if (!addresses) {
        return Failure(kNotConnected, Cause::kUnknownHost,
                       "\"" + options.host + "\" has no address (" + trouble + ").");
    }
    const shared::FileDescriptor socket(
        ::socket(addresses->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen() || connect(socket.Get(), addresses->ai_addr, addresses->ai_addrlen) != 0) {
        return Silent(options, std::strerror(errno));
    }
    for (int question = 0; question < kQuestions; ++question) {
        const int answered = Ask(socket.Get(), kRepeat);
        if (answered > 0) return {};
        if (answered < 0) return Silent(options, std::strerror(errno));
    }
    return Silent(options, "silence");
}

}  // namespace Kemffdc::Ipmi
