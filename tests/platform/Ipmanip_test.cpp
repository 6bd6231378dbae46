// SPDX-License-Identifier: Apache-2.0
#include "Ipmanip.h"

#include "gtest/gtest.h"

namespace {

TEST(IpmanipIsIpv6, TellsAddressesFromEverythingElse) {
    const struct {
        std::string host;
        bool expected;
        const char* why;
    } rows[] = {
        {"::", true, "the unspecified address"},
        {"::1", true, "loopback"},
        {"fe80::1", true, "link-local"},
        {"2001:db8:0:0:0:0:0:1", true, "nothing left out"},
        {"2001:DB8::A", true, "capital digits"},
        {"::ffff:192.0.2.1", true, "an IPv4 address in an IPv6 address"},
        {"fe80::1%eth0", true, "scope by name"},
        {"fe80::1%3", true, "scope by number"},
        {"fe80::1%eth0.100", true, "the name of a VLAN"},
        {"", false, "nothing"},
        {"%eth0", false, "a scope alone"},
        {"fe80::1%", false, "no scope after the sign"},
        {"fe80::1%a%b", false, "two scopes"},
        {"fe80::1%a b", false, "a blank in the scope"},
        {"fe80::1%a/b", false, "a slash in the scope"},
        {"[::1]", false, "brackets"},
        {"192.0.2.1", false, "IPv4"},
        {"bmc.example", false, "a name"},
        {"fe80", false, "a name that looks like a piece of an address"},
        {"1::2::3", false, "two gaps"},
        {"2001:db8:0:0:0:0:0:0:1", false, "too long"},
        {"::12345", false, "five digits"},
        {"::1 ", false, "a blank after it"},
        {" ::1", false, "a blank before it"},
        {"::1:443x", false, "no digit"},
        {"192.0.2.1:443", false, "IPv4 and a port"},
        {std::string("::1\0", 4), false, "a NUL byte after it"},
        {std::string("::1%e\0", 6), false, "a NUL byte in the scope"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.expected, Ipmanip::is_ipv6(row.host)) << row.why;
}

}  // namespace
