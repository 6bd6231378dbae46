// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_OPTIONS_H
#define KEMFFDC_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

namespace Kemffdc {

enum class Command { kCollect, kCheck };

// What the operator asked for. Holds no password: only where passwords come from.
struct Options {
    Command command = Command::kCollect;
    std::string via;   // name of a channel (Channels.h)
    std::string host;  // name or address, IPv6 without brackets; empty: this machine's BMC
    bool ipv6 = false;
    std::uint16_t port = 0;
    std::string user = "admin";
    std::string passwordFile;  // "-": standard input; empty: environment or prompt
    bool needsPassword = true;

    // PEM file of CAs that the BMC's certificate is checked against; empty: not checked. The
    // environment's, where the option is not given, is added by SettleCaFile().
    std::string caFile;
    bool plain = false;                 // CIM: without TLS
    std::optional<std::uint16_t> node;  // CIM: of an enclosure; none: the machine itself
    bool initialize = false;            // CIM: sent along as InitializationNeeded
    bool miniLog = false;               // Redfish: the logs alone

    std::uint16_t cipherSuite = 17;  // IPMI over LAN
    int mode = 2;                    // IPMI: which account and which files; ffdc's own number

    std::string exportUri;  // empty: the archive is downloaded (CIM: never empty)
    std::string exportUser;
    std::string exportPasswordFile;
    int tries = 120;   // questions for the task's state
    int interval = 5;  // seconds between them
    std::string output = ".";
    std::uint64_t maxSize = std::uint64_t{16} << 30;  // bytes of all downloads; 0: no limit
    std::uint64_t keepFree = std::uint64_t{1} << 30;  // bytes, on the disk of `output`
    std::int64_t deadline = std::int64_t{2} * 3600;   // seconds for the whole run; 0: none

    bool json = false;
    bool noProxy = false;
    bool liveProgress = false;  // standard error is a terminal that understands cursor control
    std::optional<int> logLevel;
    std::string logFile;
};

}  // namespace Kemffdc

#endif
