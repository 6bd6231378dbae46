// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_BMCNAME_H
#define KEMFFDC_HISTORY_BMCNAME_H

#include <cstdint>
#include <string>

namespace Kemffdc::History {

// One spelling for a host: names in lower case, IPv6 addresses as RFC 5952 writes them, without
// brackets, the scope as it is.
std::string SameHost(const std::string& host);

// One spelling for a host and port: "bmc7.example:443", "[2001:db8::7]:443".
std::string SameBmc(const std::string& host, std::uint16_t port);

// This machine's own name.
std::string ThisMachine();

}  // namespace Kemffdc::History

#endif
