// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/RunFolder.h"

#include <gmock/gmock.h>

#include "support/TempFolder.h"

namespace {

using Kemffdc::kLocalFile;
using Kemffdc::Fleet::RunFolder;
using testing::HasSubstr;
using testing::MatchesRegex;

TEST(RunFolder, TwoRunsOfOneSecondHaveFoldersOfTheirOwn) {
    const TempFolder folder;
    RunFolder first;
    RunFolder second;

    ASSERT_TRUE(first.Make(folder / "runs").Ok());
    ASSERT_TRUE(second.Make(folder / "runs").Ok());

    EXPECT_NE(first.Path(), second.Path());
    EXPECT_THAT(first.Path(), MatchesRegex(".*/runs/fleet_20[0-9]{6}T[0-9]{6}Z"));
    EXPECT_EQ(Mode(first.Path()), 0700U);
}

TEST(RunFolder, IsOneConductorsAtATime) {
    const TempFolder folder;
    RunFolder first;
    ASSERT_TRUE(first.Make(folder.Path()).Ok());

    RunFolder second;
    const auto taken = second.Take(first.Path());
    EXPECT_EQ(taken.code, kLocalFile);
    EXPECT_EQ(taken.cause, Kemffdc::Cause::kLocked);
    EXPECT_THAT(taken.reason, HasSubstr("Another run is at work in " + first.Path()));

    first.Release();
    EXPECT_FALSE(Exists(first.PathOf(".lock")));
    EXPECT_TRUE(RunFolder().Take(first.Path()).Ok());
}

TEST(RunFolder, OneThatIsGoneIsMadeAgain) {
    const TempFolder folder;

    ASSERT_TRUE(RunFolder().Take(folder / "gone").Ok());

    EXPECT_TRUE(Exists(folder / "gone"));
}

TEST(RunFolder, AFolderThatCannotBeMadeIsTold) {
    RunFolder run;

    const auto made = run.Make("/nonexistent/below/this");

    EXPECT_EQ(made.code, kLocalFile);
    EXPECT_EQ(made.reason,
              "The folder /nonexistent/below/this cannot be made: No such file or directory.");
}

}  // namespace
