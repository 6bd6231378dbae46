// SPDX-License-Identifier: Apache-2.0
#include "cli/Channels.h"

#include <gtest/gtest.h>

#include <string>

#include "cli/Options.h"

namespace {

using Kemffdc::BmcOf;
using Kemffdc::Options;

struct Row {
    const char* via;
    const char* host;
    std::uint16_t port;
    const char* bmc;
    const char* why;
};

// One run at a time works on a BMC: those that are named alike wait for each other.
TEST(BmcOf, IsTheSameForAllWaysToIt) {
    const Row rows[] = {
        {"redfish", "bmc7.example", 443, "bmc7.example", "the usual port"},
        {"cim", "BMC7.example", 5989, "bmc7.example", "another channel's usual port"},
        {"ipmi", "bmc7.example", 623, "bmc7.example", "another channel's usual port"},
        {"auto", "bmc7.example", 0, "bmc7.example", "the port is found by the run"},
        {"redfish", "bmc7.example", 8443, "bmc7.example:8443", "behind one address can be several"},
        {"kcs", "", 0, "this machine", "in band"},
        {"kcs", "192.0.2.7", 0, "this machine", "in band, with the address of its file service"},
    };
    for (const Row& row : rows) {
        Options options;
        options.via = row.via;
        options.host = row.host;
        options.port = row.port;
        EXPECT_EQ(BmcOf(options), row.bmc) << row.why;
    }
}

}  // namespace
