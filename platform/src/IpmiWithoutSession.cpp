// SPDX-License-Identifier: Apache-2.0
#include "IpmiWithoutSession.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <vector>

#include "shared/FileDescriptor.h"

namespace {

using Steady = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr int kCopiesOfOneWait = 2;
constexpr std::size_t kMostCopies = 60;  // fewer than there are sequence numbers
constexpr std::size_t kLongestDatagram = 1024;

// IPMI v2.0 sections 13.6 and 22.13. Sequence number and checksum are filled in.
constexpr std::uint8_t kAskCapabilities[] = {
    0x06, 0x00, 0xFF, 0x07,                                   // RMCP, no acknowledgement, IPMI
    0x00, 0,    0,    0,    0,    0,    0,    0,    0,    9,  // no session, 9 bytes follow
    0x20, 0x18, 0xC8, 0x81, 0x00, 0x38, 0x8E, 0x04, 0x00,     // this channel, administrator
};
constexpr std::size_t kSequence = 18;
constexpr std::size_t kCommand = 19;
constexpr std::size_t kChecksum = 22;

// Sections 13.6 and 13.17: the highest level that the suite allows, one algorithm of each kind.
constexpr std::uint8_t kAskSession[] = {
    0x06, 0x00, 0xFF, 0x07,                                            // RMCP
    0x06, 0x10, 0,    0,    0,    0,    0,    0,    0, 0, 0x20, 0x00,  // RMCP+, 32 bytes follow
    0x00, 0x00, 0x00, 0x00, 0xA4, 0xA3, 0xA2, 0xA0,                    // tag, level, identifier
    0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00,                    // authentication
    0x01, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00,                    // integrity
    0x02, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00,                    // confidentiality
};
constexpr std::size_t kTag = 16;
constexpr std::size_t kStatus = 17;
constexpr std::size_t kFirstAlgorithm = 28;
constexpr std::size_t kBetweenAlgorithms = 8;
constexpr std::uint8_t kSessionAnswer = 0x11;

// With a byte `last`.
bool IsRmcp(const Bytes& datagram, std::size_t last) {
    return datagram.size() > last && datagram[0] == 0x06 && datagram[3] == 0x07;
}

Bytes CapabilitiesRequest(std::size_t copy) {
    Bytes datagram(std::begin(kAskCapabilities), std::end(kAskCapabilities));
    datagram[kSequence] = static_cast<std::uint8_t>(copy << 2U);
    std::uint8_t sum = 0;
    for (std::size_t i = kSequence - 1; i < kChecksum; ++i) {
        sum = static_cast<std::uint8_t>(sum + datagram[i]);
    }
    datagram[kChecksum] = static_cast<std::uint8_t>(-sum);
    return datagram;
}

std::optional<std::size_t> CopyOfCapabilities(const Bytes& answer) {
    if (!IsRmcp(answer, kCommand) || answer[4] != 0 || answer[kCommand] != 0x38)
        return std::nullopt;
    return answer[kSequence] >> 2U;
}

Bytes SessionRequest(std::size_t copy, const IpmiAlgorithms& algorithms) {
    Bytes datagram(std::begin(kAskSession), std::end(kAskSession));
    datagram[kTag] = static_cast<std::uint8_t>(copy);
    for (std::size_t i = 0; i < algorithms.size(); ++i) {
        datagram[kFirstAlgorithm + i * kBetweenAlgorithms] = algorithms[i];
    }
    return datagram;
}

std::optional<std::size_t> CopyOfSession(const Bytes& answer) {
    // Some BMCs send nothing behind the status of a refusal.
    const bool isAnswer =
        IsRmcp(answer, kStatus) && answer[4] == 0x06 && answer[5] == kSessionAnswer;
    if (!isAnswer) return std::nullopt;
    return answer[kTag];
}

// One question to one address.
class Question {
public:
    using Request = std::function<Bytes(std::size_t copy)>;
    using CopyOf = std::function<std::optional<std::size_t>(const Bytes& answer)>;

    explicit Question(const addrinfo& address)
        : m_udp(socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (!m_udp.IsOpen() || connect(m_udp.Get(), address.ai_addr, address.ai_addrlen) != 0) {
            m_error = errno;
        }
    }

    // 0: answered, or the time is over; else the error of the socket.
    int Ask(const Request& request, const CopyOf& copyOf, milliseconds firstWait,
            milliseconds atMost) {
        const Steady::time_point end = Steady::now() + atMost;
        while (m_error == 0 && !m_answerTime && m_sent.size() < kMostCopies &&
               Steady::now() < end) {
            if (!Send(request(m_sent.size()))) return m_error;
            const auto wait = WaitBeforeCopy(firstWait, static_cast<int>(m_sent.size()) - 1);
            AwaitAnswer(copyOf, std::min(m_sent.back() + wait, end));
        }
        return m_error;
    }

    const std::optional<milliseconds>& AnswerTime() const { return m_answerTime; }
    const Bytes& Answer() const { return m_answer; }

private:
    bool Send(const Bytes& datagram) {
        m_sent.push_back(Steady::now());
        if (send(m_udp.Get(), datagram.data(), datagram.size(), 0) < 0) m_error = errno;
        return m_error == 0;
    }

    void AwaitAnswer(const CopyOf& copyOf, Steady::time_point until) {
        while (m_error == 0 && !m_answerTime) {
            const auto left = std::chrono::ceil<milliseconds>(until - Steady::now());
            pollfd ready{m_udp.Get(), POLLIN, 0};
            if (left.count() <= 0) return;
            if (poll(&ready, 1, static_cast<int>(left.count())) > 0) Receive(copyOf);
        }
    }

    void Receive(const CopyOf& copyOf) {
        m_answer.resize(kLongestDatagram);
        const ssize_t size = recv(m_udp.Get(), m_answer.data(), m_answer.size(), MSG_DONTWAIT);
        if (size < 0) {
            if (errno != EAGAIN && errno != EINTR) m_error = errno;
            return;
        }
        m_answer.resize(static_cast<std::size_t>(size));
        const std::optional<std::size_t> copy = copyOf(m_answer);
        if (!copy || *copy >= m_sent.size()) return;
        m_answerTime = std::chrono::ceil<milliseconds>(Steady::now() - m_sent[*copy]);
    }

    shared::FileDescriptor m_udp;
    int m_error = 0;
    std::vector<Steady::time_point> m_sent;
    std::optional<milliseconds> m_answerTime;
    Bytes m_answer;
};

}  // namespace

milliseconds WaitBeforeCopy(milliseconds first, int copies) {
    return first * (copies / kCopiesOfOneWait + 1);
}

IpmiProbe ProbeIpmi(const addrinfo& address, milliseconds firstWait, milliseconds atMost) {
    Question question(address);
    const int error = question.Ask(CapabilitiesRequest, CopyOfCapabilities, firstWait, atMost);
    return {error, question.AnswerTime()};
}

std::optional<std::uint8_t> AskOpenSessionStatus(const addrinfo& address,
                                                 const IpmiAlgorithms& algorithms,
                                                 milliseconds firstWait, milliseconds atMost) {
    Question question(address);
    const auto request = [&](std::size_t copy) { return SessionRequest(copy, algorithms); };
    if (question.Ask(request, CopyOfSession, firstWait, atMost) != 0) return std::nullopt;
    if (!question.AnswerTime()) return std::nullopt;
    return question.Answer()[kStatus];
}
