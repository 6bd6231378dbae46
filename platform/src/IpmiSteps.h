// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_IPMISTEPS_H
#define VARNEX_PLATFORM_SRC_IPMISTEPS_H

#include <cstddef>
#include <cstdint>
#include <optional>

// Keeps the set-up of a session in step: of the answers to its requests one for each passes, and
// only while that request is the newest. Networks double and delay datagrams, and FreeIPMI gives
// the set-up up at one that belongs to an earlier step. What belongs to no step passes.
class IpmiSteps {
public:
    void Sent(const std::uint8_t* datagram, std::size_t size);
    bool Passes(const std::uint8_t* datagram, std::size_t size);

private:
    struct Step {
        std::uint8_t answer;  // kind of the answer
        std::uint8_t number;  // of the request, and of its answer
    };
    std::optional<Step> m_awaited;
};

#endif
