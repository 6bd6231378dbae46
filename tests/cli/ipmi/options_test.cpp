// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/ipmi/Options.h"

namespace {

using Kemffdc::Options;
using Kemffdc::Parsed;
using Kemffdc::Ipmi::Own;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(ParseIpmiOptions, CollectOverTheLanHasItsDefaults) {
    const Options options = Accepted({"collect", "--via", "ipmi", "192.0.2.10"});

    EXPECT_EQ(options.host, "192.0.2.10");
    EXPECT_EQ(options.port, 623);
    EXPECT_EQ(Own(options).cipherSuite, 17);
    EXPECT_EQ(Own(options).mode, 2);
    EXPECT_EQ(options.user, "admin");
    EXPECT_TRUE(options.needsPassword);
    EXPECT_EQ(options.output, ".");
}

TEST(ParseIpmiOptions, CollectOverTheLanTakesItsOptions) {
    const Options options =
        Accepted({"collect", "--via", "ipmi", "[fe80::1%eth0]", "--port", "6230", "--cipher-suite",
                  "3", "--mode", "5", "--user", "a:b", "--output", "/var/ffdc"});

    EXPECT_EQ(options.host, "fe80::1%eth0");
    EXPECT_TRUE(options.ipv6);
    EXPECT_EQ(options.port, 6230);
    EXPECT_EQ(Own(options).cipherSuite, 3);
    EXPECT_EQ(Own(options).mode, 5);
    EXPECT_EQ(options.user, "a:b") << "only HTTP cannot carry a colon";
    EXPECT_EQ(options.output, "/var/ffdc");
}

TEST(ParseIpmiOptions, EveryCipherSuiteThatTheClientKnowsIsTaken) {
    for (const int suite : {0, 1, 2, 3, 6, 7, 8, 11, 12, 15, 16, 17}) {
        EXPECT_EQ(Own(Accepted({"check", "--via", "ipmi", "bmc", "--cipher-suite",
                                std::to_string(suite)}))
                      .cipherSuite,
                  suite);
    }
    for (const char* suite : {"4", "18", "-1", "x", ""}) {
        EXPECT_EQ(Parse({"check", "--via", "ipmi", "bmc", "--cipher-suite", suite}).exitCode, 2)
            << suite;
    }
}

TEST(ParseIpmiOptions, InBandAHostIsTheAddressOfTheFileService) {
    EXPECT_EQ(Accepted({"collect", "--via", "kcs", "169.254.0.17"}).host, "169.254.0.17");
    EXPECT_FALSE(Accepted({"collect", "--via", "kcs", "fe80::1%usb0"}).needsPassword);
}

TEST(ParseIpmiOptions, InBandNobodyHasToNameAHostAndNobodyLogsIn) {
    for (const char* command : {"collect", "check"}) {
        const Options options = Accepted({command, "--via", "kcs"});

        EXPECT_EQ(options.host, "");
        EXPECT_EQ(options.port, 0);
        EXPECT_EQ(options.user, "");
        EXPECT_FALSE(options.needsPassword);
        EXPECT_EQ(Own(options).mode, 2);
    }
}

TEST(ParseIpmiOptions, InBandAnAccountMayBeGivenForTheModesThatFallBackToIt) {
    const Options options = Accepted(
        {"collect", "--via", "kcs", "--mode", "3", "--user", "root", "--password-file", "-"});

    EXPECT_EQ(options.user, "root");
    EXPECT_TRUE(options.needsPassword);
    EXPECT_EQ(Accepted({"collect", "--via", "kcs", "--mode", "3"}).user, "");
}

struct UsageRow {
    std::vector<std::string> arguments;
    const char* text;
};

TEST(ParseIpmiOptions, WhatCannotBeMeantEndsWithTwoAndSaysWhy) {
    const char* kLogsInNowhere =
        "--via kcs logs in nowhere: --user and --password-file are for collect in modes other "
        "than 2.";
    const UsageRow rows[] = {
        {{"collect", "--via", "ipmi"}, "HOST is required."},
        {{"collect", "--via", "kcs", "--user", "root"}, kLogsInNowhere},
        {{"check", "--via", "kcs", "--password-file", "-"}, kLogsInNowhere},
        {{"collect", "--via", "kcs", "--port", "623"},
         "--port is an option of --via redfish, cim and ipmi."},
        {{"collect", "--via", "kcs", "--cipher-suite", "3"},
         "--cipher-suite is an option of --via ipmi."},
        {{"collect", "--via", "redfish", "bmc", "--mode", "3"},
         "--mode is an option of --via ipmi and kcs."},
        {{"collect", "--via", "cim", "bmc", "--export-uri", "sftp://s/", "--output", "/x"},
         "--output is an option of --via redfish, ipmi and kcs."},
        {{"collect", "--via", "ipmi", "bmc", "--export-uri", "sftp://s/"},
         "--export-uri is an option of --via redfish and cim."},
        {{"collect", "--via", "ipmi", "bmc", "--tries", "3"},
         "--tries is an option of --via redfish."},
        {{"collect", "--via", "ipmi", "bmc", "--mode", "-3"}, "--mode"},
        {{"collect", "--via", "ipmi", "bmc", "--mode", ""}, "--mode is empty."},
    };
    for (const UsageRow& row : rows) {
        const Parsed parsed = Parse(row.arguments);
        EXPECT_EQ(parsed.exitCode, 2) << row.text;
        EXPECT_THAT(parsed.err, HasSubstr(row.text));
        EXPECT_THAT(parsed.out, IsEmpty());
    }
}

}  // namespace
