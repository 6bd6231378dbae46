// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Preflight.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "IpmiClient.h"
#include "cli/ipmi/Options.h"

namespace Kemffdc::Ipmi {
namespace {

constexpr char kFileService[] = "115";
constexpr int kPatienceMs = 3000;

constexpr std::uint8_t kNetFnApp = 0x06;
constexpr std::uint8_t kGetDeviceId = 0x01;
constexpr std::size_t kShortestDeviceId = 11;

constexpr char kNothing[] = "no answer";

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};

// 0, or errno.
int Reaches(const addrinfo& address) {
    const int tcp = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (tcp < 0) return errno;
    int error = connect(tcp, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        pollfd done{tcp, POLLOUT, 0};
        socklen_t size = sizeof error;
        if (poll(&done, 1, kPatienceMs) <= 0) {
            error = ETIMEDOUT;
        } else {
            getsockopt(tcp, SOL_SOCKET, SO_ERROR, &error, &size);
        }
    }
    close(tcp);
    return error;
}

}  // namespace

bool ReadDeviceId(const std::vector<std::uint8_t>& data, BmcFacts& facts) {
    if (data.size() < kShortestDeviceId) return false;
    char text[32];
    // The minor firmware revision and the IPMI version are binary coded decimal.
    (void)std::snprintf(text, sizeof text, "%u.%02x", data[2] & 0x7FU, unsigned{data[3]});
    facts.firmware = text;
    (void)std::snprintf(text, sizeof text, "IPMI %u.%u", data[4] & 0x0FU, data[4] >> 4U);
    facts.serviceVersion = text;
    const unsigned manufacturer =
        unsigned{data[6]} | unsigned{data[7]} << 8U | (data[8] & 0x0FU) << 16U;
    facts.vendor = "enterprise number " + std::to_string(manufacturer);
    facts.product =
        "product number " + std::to_string(unsigned{data[9]} | unsigned{data[10]} << 8U);
    return true;
}

std::string AskDeviceId(const Options& options, const Secret& password, BmcFacts& facts) {
    const auto client =
        !Own(options).inBand
            ? std::make_unique<IpmiClient>(options.host, options.user, password.Reveal(),
                                           std::to_string(options.port), Own(options).cipherSuite)
            : std::make_unique<IpmiClient>(0);
    std::vector<std::uint8_t> data;
    std::uint8_t completionCode = 0;
    if (client->connect() != 0) return kNothing;
    const int sent = client->send({kGetDeviceId, {}, kNetFnApp}, data, completionCode);
    client->disconnect();
    if (sent != 0) return kNothing;
    if (completionCode != 0) {
        char text[32];
        (void)std::snprintf(text, sizeof text, "completion code %02Xh", unsigned{completionCode});
        return text;
    }
    ReadDeviceId(data, facts);
    return "";
}

std::string WhyNoFileService(const std::string& host) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int unknown = getaddrinfo(host.c_str(), kFileService, &hints, &found);
    if (unknown != 0) return gai_strerror(unknown);
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    int error = 0;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        error = Reaches(*address);
        if (error == 0) return "";
    }
    return std::strerror(error);
}

}  // namespace Kemffdc::Ipmi
