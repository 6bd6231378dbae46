// SPDX-License-Identifier: Apache-2.0
#include "IpmiSteps.h"

namespace {

// Where what stands in a datagram, without a session and in the set-up of one.
constexpr std::size_t kFormat = 4;
constexpr std::size_t kPayload = 5;
constexpr std::size_t kTag = 16;
constexpr std::size_t kSequence = 18;
constexpr std::size_t kShortest = 19;

constexpr std::uint8_t kWithoutSession = 0x00;
constexpr std::uint8_t kRmcpPlus = 0x06;
constexpr std::uint8_t kOpenSession = 0x10;  // requests are even, their answers one more
constexpr std::uint8_t kRakp4 = 0x15;

struct Kind {
    std::uint8_t payload;
    std::uint8_t number;
};

std::optional<Kind> KindOf(const std::uint8_t* datagram, std::size_t size) {
    if (size < kShortest) return std::nullopt;
    if (datagram[kFormat] == kWithoutSession) return Kind{kWithoutSession, datagram[kSequence]};
    const std::uint8_t payload = datagram[kPayload];
    if (datagram[kFormat] != kRmcpPlus || payload < kOpenSession || payload > kRakp4) {
        return std::nullopt;
    }
    return Kind{payload, datagram[kTag]};
}

}  // namespace

void IpmiSteps::Sent(const std::uint8_t* datagram, std::size_t size) {
    m_awaited.reset();
    if (const std::optional<Kind> request = KindOf(datagram, size)) {
        const bool plain = request->payload == kWithoutSession;
        m_awaited = Step{plain ? kWithoutSession : static_cast<std::uint8_t>(request->payload + 1),
                         request->number};
    }
}

bool IpmiSteps::Passes(const std::uint8_t* datagram, std::size_t size) {
    const std::optional<Kind> answer = KindOf(datagram, size);
    if (!answer) return true;
    const bool awaited =
        m_awaited && answer->payload == m_awaited->answer && answer->number == m_awaited->number;
    if (awaited) m_awaited.reset();
    return awaited;
}
