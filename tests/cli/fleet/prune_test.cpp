// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Prune.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "cli/fleet/Reports.h"
#include "fleet/FleetHistory.h"

namespace {

using Kemffdc::Fleet::Prune;
using Kemffdc::Fleet::Pruning;
using Kemffdc::Fleet::WriteReports;
using Kemffdc::History::Id;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FleetPrune : public testing::Test {
protected:
    // A run of bmc1 alone, which brings `content`; returns where it lies.
    std::string Night(const std::string& content = "archive", std::optional<bool> whole = true) {
        fleet = history.Begin({"bmc1"});
        const std::string path = history.Deliver(fleet, 1, content, whole);
        history.End(fleet);
        EXPECT_EQ(WriteReports(history.journal, fleet, history.Folder(fleet)), "");
        return path;
    }

    Pruning Keep(int count, bool dryRun = false) {
        return Prune(history.store, history.journal, count, dryRun);
    }

    FleetHistory history;
    Id fleet = 0;  // the latest run
};

TEST_F(FleetPrune, TheNewestGoodOnesStay) {
    const std::string first = Night();
    const std::string second = Night();
    const std::string third = Night();
    const Pruning pruning = Keep(2);
    ASSERT_EQ(pruning.files.size(), 1U);
    EXPECT_EQ(pruning.files[0].path, first);
    EXPECT_EQ(pruning.Bytes(), 7U);
    EXPECT_FALSE(Exists(first));
    EXPECT_TRUE(Exists(second));
    EXPECT_TRUE(Exists(third));
}

TEST_F(FleetPrune, TheFolderOfARunGoesWhenNothingIsLeftInIt) {
    Night();
    const std::string folder = history.Folder(fleet);
    Night();
    EXPECT_THAT(Keep(1).folders, ElementsAre(folder));
    EXPECT_FALSE(Exists(folder));
}

TEST_F(FleetPrune, WhatSomebodyElseHasPutThereStays) {
    Night();
    const std::string folder = history.Folder(fleet);
    std::ofstream(folder + "/notes.txt") << "mine";
    Night();
    EXPECT_THAT(Keep(1).folders, IsEmpty());
    EXPECT_EQ(Content(folder + "/notes.txt"), "mine");
    EXPECT_FALSE(Exists(folder + "/bmc1"));
}

TEST_F(FleetPrune, ADryRunRemovesNothing) {
    const std::string first = Night();
    const std::string folder = history.Folder(fleet);
    Night();
    const Pruning told = Keep(1, true);
    ASSERT_EQ(told.files.size(), 1U);
    EXPECT_EQ(told.files[0].path, first);
    EXPECT_THAT(told.folders, ElementsAre(folder));
    EXPECT_TRUE(Exists(first));
    EXPECT_TRUE(Exists(first + ".json"));
    EXPECT_TRUE(Exists(folder + "/report.html"));
    EXPECT_EQ(Keep(1).files.size(), 1U);
}

TEST_F(FleetPrune, TheHistorySaysThatAFileWasRemoved) {
    const std::string first = Night();
    const Id old = fleet;
    Night();
    Keep(1);
    ASSERT_EQ(history.journal.Archives(old).size(), 1U);
    EXPECT_NE(history.journal.Archives(old)[0].file.removedAt, "");
    EXPECT_THAT(history.store.ArchivesAt(first), IsEmpty());
    EXPECT_THAT(Keep(1).files, IsEmpty());
}

TEST_F(FleetPrune, DamagedArchivesDoNotPushOutGoodOnes) {
    const std::string good = Night();
    const std::string damaged = Night("damaged", false);
    const std::string changed = Night();
    std::ofstream(changed) << "somebody has written here";
    EXPECT_THAT(Keep(1).files, IsEmpty());
    EXPECT_TRUE(Exists(good));
    EXPECT_TRUE(Exists(damaged));
    EXPECT_TRUE(Exists(changed));
}

TEST_F(FleetPrune, ARunThatBroughtNothingPushesOutNothing) {
    const std::string good = Night();
    fleet = history.Begin({"bmc1"});
    history.Fail(fleet, 1, "unreachable", "Nothing answers.");
    history.End(fleet, 21);
    EXPECT_THAT(Keep(1).files, IsEmpty());
    EXPECT_TRUE(Exists(good));
}

TEST_F(FleetPrune, HostsOfOtherNamesAreOthers) {
    fleet = history.Begin({"bmc1", "bmc2"});
    const std::string first = history.Deliver(fleet, 1);
    const std::string other = history.Deliver(fleet, 2);
    history.End(fleet);
    Night();
    Keep(1);
    EXPECT_FALSE(Exists(first));
    EXPECT_TRUE(Exists(other));
}

TEST_F(FleetPrune, TheReportsOfARunThatLosesSomeAreWrittenAgain) {
    fleet = history.Begin({"bmc1", "bmc2"});
    const Id old = fleet;
    history.Deliver(fleet, 1);
    history.Deliver(fleet, 2);
    history.End(fleet);
    ASSERT_EQ(WriteReports(history.journal, old, history.Folder(old)), "");
    Night();
    EXPECT_THAT(Keep(1).folders, IsEmpty());
    EXPECT_THAT(Content(history.Folder(old) + "/report.html"), HasSubstr(">removed 20"));
    EXPECT_THAT(Content(history.Folder(old) + "/report.html"), HasSubstr("href=\"bmc2/bmc2.tgz\""));
}

TEST_F(FleetPrune, AFileThatIsNotAsItCameStaysAndIsTold) {
    const std::string first = Night();
    Night();
    std::ofstream(first) << "somebody has written here";
    const Pruning pruning = Keep(1);
    EXPECT_THAT(pruning.files, IsEmpty());
    EXPECT_THAT(pruning.notes, ElementsAre(first + " stays: it is not as it came."));
    EXPECT_TRUE(Exists(first));
}

TEST_F(FleetPrune, ALinkInItsPlaceLeadsNowhere) {
    const std::string first = Night();
    Night();
    const std::string elsewhere = history.place.Write("elsewhere", "archive");
    unlink(first.c_str());
    ASSERT_EQ(symlink(elsewhere.c_str(), first.c_str()), 0);
    EXPECT_THAT(Keep(1).notes, ElementsAre(HasSubstr("stays: it is not as it came")));
    EXPECT_TRUE(Exists(elsewhere));
}

TEST_F(FleetPrune, AFolderThatLeadsOutOfTheRunIsNotFollowed) {
    const std::string first = Night();
    const std::string folder = history.Folder(fleet);
    Night();
    std::filesystem::rename(folder + "/bmc1", history.place / "moved");
    std::filesystem::create_directory_symlink(history.place / "moved", folder + "/bmc1");
    EXPECT_THAT(Keep(1).notes,
                ElementsAre(first + " stays: it does not lie in the folder of its run."));
    EXPECT_TRUE(Exists(history.place / "moved/bmc1.tgz"));
}

TEST_F(FleetPrune, AFileThatIsGoneAlreadyIsNotedAsRemoved) {
    const std::string first = Night();
    Night();
    unlink(first.c_str());
    EXPECT_EQ(Keep(1).files.size(), 1U);
    EXPECT_THAT(Keep(1).files, IsEmpty());
    EXPECT_FALSE(Exists(first + ".json"));
}

TEST_F(FleetPrune, ARunAtWorkIsLeftAlone) {
    const Id atWork = history.Begin({"bmc1"});
    const std::string path = history.Deliver(atWork, 1);
    Night();
    EXPECT_THAT(Keep(1).files, IsEmpty());
    EXPECT_TRUE(Exists(path));
    history.End(atWork);
    EXPECT_EQ(Keep(1).files.size(), 1U);
}

TEST_F(FleetPrune, AtLeastOneStays) {
    const std::string only = Night();
    EXPECT_THAT(Keep(0).files, IsEmpty());
    EXPECT_TRUE(Exists(only));
}

}  // namespace
