// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/FolderNames.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Fleet::FolderNames;
using testing::ElementsAre;

TEST(FolderNames, NamesOfHostsStayAsTheyAre) {
    EXPECT_THAT(FolderNames({"bmc001.example", "10.0.0.1", "rack_3-a"}),
                ElementsAre("bmc001.example", "10.0.0.1", "rack_3-a"));
}

TEST(FolderNames, WhatAPathOrAShellWouldTakeAmissIsReplaced) {
    EXPECT_THAT(FolderNames({"../../etc", "a/b", "-rf", ".hidden", "", "fe80::1%eth0",
                             "b\xC3\xBCro", "two words"}),
                ElementsAre("_.._.._etc", "a_b", "_-rf", "_.hidden", "_", "fe80__1_eth0", "b__ro",
                            "two_words"));
}

TEST(FolderNames, NoTwoAreTheSame) {
    EXPECT_THAT(FolderNames({"a/b", "a b", "a_b", "A_B", "a_b-2"}),
                ElementsAre("a_b", "a_b-2", "a_b-3", "A_B-4", "a_b-2-2"));
}

TEST(FolderNames, TheReportsKeepTheirNames) {
    EXPECT_THAT(FolderNames({"report.json", "Report.HTML"}),
                ElementsAre("report.json-2", "Report.HTML-2"));
}

TEST(FolderNames, LongOnesAreCut) {
    const auto names = FolderNames({std::string(300, 'x'), std::string(300, 'x')});

    EXPECT_EQ(names[0], std::string(100, 'x'));
    EXPECT_EQ(names[1], std::string(98, 'x') + "-2");
}

}  // namespace
