// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_HOSTRANGE_H
#define KEMFFDC_FLEET_HOSTRANGE_H

#include <cstddef>
#include <string>
#include <unordered_set>
#include <vector>

namespace Kemffdc::Fleet {

// An expression comes to no more hosts than this.
constexpr std::size_t kMaxHosts = 100000;

// The hosts that an expression stands for, in the order in which it names them, each once.
//
//   bmc[001-400,410].example    a number in brackets is a range; zeros in front keep its width
//   bmc[0-98/2]                 with a step
//   10.0.[1-4].[1-8]            several brackets: every combination, the last one counting fastest
//   bmc7.example, rack[1-2]     a comma outside of brackets joins
//   [2001:db8::7]               brackets around an IPv6 address are no range; they are dropped
//
// Returns false with the reason in `error`, which names the part that is wrong.
bool ExpandHosts(const std::string& expression, std::vector<std::string>& hosts,
                 std::string& error);

// The opposite: one expression for these hosts, ranges where numbers follow each other. Sorted as
// people count (bmc2 before bmc10), each host once; empty for no host.
std::string FoldHosts(const std::vector<std::string>& hosts);

// Hosts as --limit and --exclude name them: expressions, and patterns with * and ? as shells have
// them, joined by commas.
class HostFilter {
public:
    // Returns false with the reason in `error`, as ExpandHosts does.
    bool Read(const std::string& text, std::string& error);

    bool Matches(const std::string& host) const;

private:
    std::vector<std::string> m_patterns;
    std::unordered_set<std::string> m_hosts;
};

}  // namespace Kemffdc::Fleet

#endif
