// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SSHALGORITHMS_H
#define VARNEX_PLATFORM_SRC_SSHALGORITHMS_H

#include <set>
#include <string>

// What we offer an SSH server, best first. Old servers are reached by what stands last.
namespace ssh_algorithms {

std::string KeyExchanges();
std::string Ciphers();
std::string Macs();

// With the types that are known for a host first: a server that has gained a second key shows the
// one that we know. ssh-rsa, which signs with SHA-1, only `withSha1`.
std::string HostKeys(const std::set<std::string>& known, bool withSha1);

// Whether `algorithm`, of whatever kind, is one that nobody should have to use any more.
bool IsWeak(const std::string& algorithm);

}  // namespace ssh_algorithms

#endif
