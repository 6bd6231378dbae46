// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_CONNECTIONINFO_H
#define VARNEX_CONNECTIONINFO_H

#include <cstdint>
#include <string>

namespace Varnex {
namespace VarnexConnection {

// How to reach one BMC (baseboard management controller). A plain value: the host fills it in,
// KEMFfdc copies every field. Which fields count depends on the channel; the rest is ignored.
struct ConnectionInfo {
    // Name, IPv4 or IPv6 address of the BMC. An IPv6 address stands without brackets.
    std::string host;

    // Account on the BMC. The password never reaches a log.
    std::string userid;
    std::string password;

    // TCP port of the service that the channel talks to: the Redfish service for Redfish, the
    // CIM server for CIM, the UDP port of the RMCP+ service for IPMI over the LAN.
    std::uint16_t port = 0;

    // Number of the BMC in an enclosure of several. Redfish: not used.
    std::uint16_t node = 0;

    // IPMI cipher suite (IPMI 2.0, table 22-20). Redfish: not used.
    std::uint16_t ciphersuite = 0;

    // CIM: 0 plain HTTP, 1 HTTPS. Redfish: not used.
    std::int32_t connection_type = 0;

    // IPMI: 1 over the LAN, else in band. CIM: 2, 3 or 4; 3 is a node's own namespace.
    // Redfish: not used.
    std::int32_t connection_case = 0;

    // 1: `host` is an IPv6 address. Redfish writes it in brackets in its URLs only then.
    std::int32_t connection_ipversion = 0;

    // Copied with the others, read by no channel.
    std::int32_t connection_reserved = 0;
};

}  // namespace VarnexConnection
}  // namespace Varnex

#endif
