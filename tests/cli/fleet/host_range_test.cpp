// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/HostRange.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Kemffdc::Fleet::ExpandHosts;
using Kemffdc::Fleet::FoldHosts;
using Kemffdc::Fleet::HostFilter;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using Hosts = std::vector<std::string>;

Hosts Expanded(const std::string& expression) {
    Hosts hosts;
    std::string error;
    EXPECT_TRUE(ExpandHosts(expression, hosts, error)) << error;
    return hosts;
}

std::string WhyNot(const std::string& expression) {
    Hosts hosts{"untouched"};
    std::string error;
    EXPECT_FALSE(ExpandHosts(expression, hosts, error)) << expression;
    EXPECT_THAT(hosts, ElementsAre("untouched"));
    return error;
}

struct ExpansionRow {
    const char* expression;
    Hosts hosts;
};

const ExpansionRow kExpansions[] = {
    {"bmc7.example", {"bmc7.example"}},
    {"bmc[08-11]", {"bmc08", "bmc09", "bmc10", "bmc11"}},
    {"bmc[8-11]", {"bmc8", "bmc9", "bmc10", "bmc11"}},
    {"bmc[001,410].example", {"bmc001.example", "bmc410.example"}},
    {"bmc[0-6/3]", {"bmc0", "bmc3", "bmc6"}},
    {"10.0.[1-2].[8-9]", {"10.0.1.8", "10.0.1.9", "10.0.2.8", "10.0.2.9"}},
    {"a, b[1-2] ,a", {"a", "b1", "b2"}},
    {"[2001:db8::7],fe80::1%eth0", {"2001:db8::7", "fe80::1%eth0"}},
};

TEST(ExpandHosts, RangesCountAndKeepTheirWidth) {
    for (const ExpansionRow& row : kExpansions) {
        EXPECT_EQ(row.hosts, Expanded(row.expression)) << row.expression;
    }
}

struct BadRow {
    const char* expression;
    const char* said;
};

const BadRow kBad[] = {
    {"bmc[1-", "\"bmc[1-\" has a bracket without its partner"},
    {"bmc1]", "\"bmc1]\" has a bracket without its partner"},
    {"bmc[1-[2]]", "\"bmc[1-[2]]\" has a bracket without its partner"},
    {"bmc[a-c]", "\"a-c\" is neither a number nor a range of numbers like 1-40"},
    {"bmc[]", "\"\" is neither a number"},
    {"bmc[1-2-3]", "\"1-2-3\" is neither a number"},
    {"bmc[1-9999999999]", "\"1-9999999999\" is neither a number"},
    {"bmc[9-1]", "\"9-1\" counts nothing"},
    {"bmc[1-9/0]", "\"1-9/0\" counts nothing"},
    {"bmc[01-100]", "both ends of a range with zeros in front have one width"},
    {"bmc[1-010]", "both ends of a range with zeros in front have one width"},
    {"a,,b", "\"a,,b\" has an empty name between its commas"},
    {"", "has an empty name"},
    {"bmc[0-100000]", "\"[0-100000]\" is more than 100000 hosts"},
    {"bmc[1-1000].[1-1000]", "more than 100000 hosts"},
};

TEST(ExpandHosts, WhatIsWrongIsNamed) {
    for (const BadRow& row : kBad) EXPECT_THAT(WhyNot(row.expression), HasSubstr(row.said));
}

TEST(ExpandHosts, AsManyAsAreAllowedAreTaken) {
    EXPECT_THAT(Expanded("bmc[1-1000].[1-100]"), SizeIs(100000));
}

struct FoldRow {
    Hosts hosts;
    const char* folded;
};

const FoldRow kFolds[] = {
    {{}, ""},
    {{"bmc7.example"}, "bmc7.example"},
    {{"bmc2", "bmc10", "bmc1", "bmc2"}, "bmc[1-2,10]"},
    {{"bmc003", "bmc017", "bmc018", "bmc019", "bmc020"}, "bmc[003,017-020]"},
    {{"bmc099", "bmc100", "bmc101"}, "bmc[099-101]"},
    {{"bmc9", "bmc10"}, "bmc[9-10]"},
    {{"bmc1", "bmc01"}, "bmc[1,01]"},
    {{"bmc9", "bmc09", "bmc10", "bmc11"}, "bmc[9,09-11]"},
    {{"r1n1", "r1n2", "r2n1", "r2n2"}, "r[1-2]n[1-2]"},
    {{"r1n1", "r1n2", "r2n1"}, "r1n[1-2],r2n1"},
    {{"alpha", "beta"}, "alpha,beta"},
    {{"2001:db8::1", "2001:db8::2"}, "[2001:db8::1],[2001:db8::2]"},
    {{"bmc12345678901234567890"}, "bmc12345678901234567890"},
};

TEST(FoldHosts, NumbersThatFollowEachOtherAreOneRange) {
    for (const FoldRow& row : kFolds) EXPECT_EQ(row.folded, FoldHosts(row.hosts));
}

// Ranges without end would be told by their time: 50,000 of them took minutes once.
TEST(FoldHosts, ManyGapsTakeNoLongerThanManyHosts) {
    Hosts hosts;
    for (int i = 0; i < 50000; ++i) hosts.push_back("bmc" + std::to_string(i * 7));

    const std::string folded = FoldHosts(hosts);

    EXPECT_THAT(folded, testing::StartsWith("bmc[0,7,14,21,"));
    EXPECT_THAT(Expanded(folded), SizeIs(50000));
}

TEST(FoldHosts, IsUndoneByExpanding) {
    const Hosts hosts = Expanded("r[1-3]n[08-12,40].example,10.0.[1-4].[1-8],x");

    EXPECT_THAT(Expanded(FoldHosts(hosts)), testing::UnorderedElementsAreArray(hosts));
}

TEST(HostFilter, TakesPatternsAndExpressions) {
    HostFilter filter;
    std::string error;
    ASSERT_TRUE(filter.Read("bmc0*,rack[1-2],x?", error)) << error;

    for (const char* host : {"bmc017", "rack1", "rack2", "xy"}) EXPECT_TRUE(filter.Matches(host));
    for (const char* host : {"bmc117", "rack3", "x", "xyz"}) EXPECT_FALSE(filter.Matches(host));
}

TEST(HostFilter, ABrokenExpressionIsToldAsOne) {
    HostFilter filter;
    std::string error;

    EXPECT_FALSE(filter.Read("bmc[2-1]", error));

    EXPECT_THAT(error, HasSubstr("counts nothing"));
}

}  // namespace
