// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_IPMISESSIONS_H
#define VARNEX_PLATFORM_IPMISESSIONS_H

#include <chrono>

#pragma GCC visibility push(default)

namespace Varnex {

// Tells the BMCs of all IpmiClients of the process that their sessions end, for a host that ends
// without destroying them. Returns after `atMost` at the latest. May be called on any thread. An
// IpmiClient that is just waiting for its BMC is left alone, and later calls of a client whose
// session was ended find it lost.
void CloseIpmiSessions(std::chrono::milliseconds atMost);

}  // namespace Varnex

#pragma GCC visibility pop

#endif
