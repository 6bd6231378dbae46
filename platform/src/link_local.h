// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_LINK_LOCAL_H
#define VARNEX_PLATFORM_SRC_LINK_LOCAL_H

#include <string>

// The number of the interface through which a link-local IPv6 address without a scope is meant,
// where there is no choice: a single one, the loopback apart, is up and has such an address itself.
// 0 for every other host, and where there is a choice.
unsigned ScopeOfLinkLocal(const std::string& host);

#endif
