// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_KEMACCOUNT_H
#define VARNEX_PLATFORM_KEMACCOUNT_H

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

namespace XM_WIDGETS {

// An account of the BMC's file service. The bytes are the BMC's own.
struct KEMAccount {
    std::string user;
    std::string password;
};

// Asks the local BMC, in band, for an account with which its files can be fetched. 0: `account`
// holds it; otherwise `account` is left as it was. `node`: the number of the node in an enclosure
// that the caller wants the account of.
//
// An implementer guarantees that no length that the BMC sends makes it read outside of the answer,
// that the password never reaches a log, and that the interface is free again afterwards.
//
// Our implementation opens /dev/ipmi0 for one request and closes it, so it reaches the node that
// it runs on, whatever `node` says. It returns 1 without a way to the BMC (the reason stands in
// the log), 2 when the request got no answer, 3 for a completion code other than 0, 4 for an
// answer whose lengths do not fit it. Blocks like IpmiClient. Any number of threads.
int GetKEMAccountViaKCS(KEMAccount& account, std::uint16_t node);

}  // namespace XM_WIDGETS

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
