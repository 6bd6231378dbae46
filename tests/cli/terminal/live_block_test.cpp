// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/LiveBlock.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::LiveBlock;

TEST(LiveBlock, IsDrawnWhereTheCursorIs) {
    LiveBlock block;
    EXPECT_EQ(block.Next({}, {"one", "two"}), "\rone\033[K\ntwo\033[J");
}

TEST(LiveBlock, TakesThePlaceOfTheOneBefore) {
    LiveBlock block;
    (void)block.Next({}, {"one", "two"});
    EXPECT_EQ(block.Next({}, {"1", "2", "3"}), "\r\033[2A1\033[K\n2\033[K\n3\033[J");
    EXPECT_EQ(block.Next({}, {"last"}), "\r\033[3Alast\033[J");
}

TEST(LiveBlock, WritesNothingWhereNothingHasChanged) {
    LiveBlock block;
    EXPECT_EQ(block.Next({}, {}), "");
    (void)block.Next({}, {"one"});
    EXPECT_EQ(block.Next({}, {"one"}), "");
}

TEST(LiveBlock, GoesDownByTheLinesThatStay) {
    LiveBlock block;
    (void)block.Next({}, {"one", "two"});
    EXPECT_EQ(block.Next({"said"}, {"one", "two"}), "\r\033[2Asaid\033[K\none\033[K\ntwo\033[J");
    EXPECT_EQ(block.Next({}, {"three", "four"}), "\r\033[2Athree\033[K\nfour\033[J");
}

TEST(LiveBlock, LeavesNothingButWhatWasSaid) {
    LiveBlock block;
    (void)block.Next({}, {"one", "two"});
    EXPECT_EQ(block.Next({"the end"}, {}), "\r\033[2Athe end\033[J");
    EXPECT_EQ(block.Next({"more"}, {}), "\rmore\033[J");
}

TEST(LiveBlock, ComesBelowWhatSomebodyElseHasWritten) {
    LiveBlock block;
    (void)block.Next({}, {"one", "two"});
    block.Forget();
    EXPECT_EQ(block.Next({}, {"one", "two"}), "\rone\033[K\ntwo\033[J");
}

}  // namespace
