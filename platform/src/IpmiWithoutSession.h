// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_IPMIWITHOUTSESSION_H
#define VARNEX_PLATFORM_SRC_IPMIWITHOUTSESSION_H

#include <netdb.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

// What can be asked of a BMC over UDP without a session.

// What a request waits before its next copy: a multiple of the first wait, as FreeIPMI has it.
std::chrono::milliseconds WaitBeforeCopy(std::chrono::milliseconds first, int copies);

struct IpmiProbe {
    int error = 0;  // of the socket; ECONNREFUSED: nothing listens on the port
    // What the BMC took to answer a request; none: it did not.
    std::optional<std::chrono::milliseconds> answerTime;
};

// Asks for the BMC's ways of authentication until it answers, the port is refused or the time is
// over; copies are sent after `firstWait`, then more and more seldom.
IpmiProbe ProbeIpmi(const addrinfo& address, std::chrono::milliseconds firstWait,
                    std::chrono::milliseconds atMost);

// Authentication, integrity and confidentiality of a cipher suite, as numbers of the wire.
using IpmiAlgorithms = std::array<std::uint8_t, 3>;

// The RMCP+ status code with which the BMC answers the request for a session; none: no answer.
std::optional<std::uint8_t> AskOpenSessionStatus(const addrinfo& address,
                                                 const IpmiAlgorithms& algorithms,
                                                 std::chrono::milliseconds firstWait,
                                                 std::chrono::milliseconds atMost);

#endif
