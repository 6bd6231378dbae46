// SPDX-License-Identifier: Apache-2.0
//
// kemffdc fleet report, merge and prune, as they are typed.
#include "cli/commands/FleetReport.h"

#include <gmock/gmock.h>

#include <sstream>

#include "cli/Commands.h"
#include "cli/fleet/Reports.h"
#include "cli/fleet/ResultsJson.h"
#include "command_line.h"
#include "fleet/FleetHistory.h"

namespace {

using Kemffdc::Fleet::Results;
using Kemffdc::Fleet::WriteReports;
using Kemffdc::History::Id;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class FleetReportCommands : public testing::Test {
protected:
    // Runs the tool's command; returns its exit code.
    int Type(std::vector<std::string> words) {
        words.push_back("--state-dir");
        words.push_back(history.place / "state");
        const Kemffdc::Parsed parsed = Parse(words);
        out.str("");
        err.str("");
        out << parsed.out;
        err << parsed.err;
        if (!parsed.options) return parsed.exitCode;
        return EntryOf(parsed.options->command).run(*parsed.options, out, err);
    }

    // A run of these hosts, of which the first gets its archive and the others fail.
    Id Night(const std::vector<std::string>& names) {
        const Id fleet = history.Begin(names);
        history.Deliver(fleet, 1);
        for (std::size_t i = 2; i <= names.size(); ++i) {
            history.Fail(fleet, static_cast<int>(i), "unreachable", "Nothing answers.");
        }
        history.End(fleet, names.size() > 1 ? 20 : 0);
        EXPECT_EQ(WriteReports(history.journal, fleet, history.Folder(fleet)), "");
        return fleet;
    }

    Results Printed() {
        Results results;
        EXPECT_EQ(Kemffdc::Fleet::ReadReportJson(out.str(), "standard output", results).reason, "");
        return results;
    }

    FleetHistory history;
    std::ostringstream out;
    std::ostringstream err;
};

// --- report -----------------------------------------------------------------------------------

TEST_F(FleetReportCommands, TheNewestRunIsReportedUnlessAnotherIsNamed) {
    const Id first = Night({"bmc1"});
    Night({"bmc2"});
    ASSERT_EQ(Type({"fleet", "report", "--json"}), 0) << err.str();
    EXPECT_EQ(Printed().hosts.at(0).name, "bmc2");
    ASSERT_EQ(Type({"fleet", "report", std::to_string(first), "--json"}), 0);
    EXPECT_EQ(Printed().hosts.at(0).name, "bmc1");
    ASSERT_EQ(Type({"fleet", "report", history.Folder(first), "--json"}), 0);
    EXPECT_EQ(Printed().hosts.at(0).name, "bmc1");
}

TEST_F(FleetReportCommands, AReportComesInEachForm) {
    Night({"bmc1"});
    ASSERT_EQ(Type({"fleet", "report", "--csv"}), 0);
    EXPECT_THAT(out.str(), StartsWith("name,host,group,"));
    ASSERT_EQ(Type({"fleet", "report", "--html"}), 0);
    EXPECT_THAT(out.str(),
                AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("href=\"bmc1/bmc1.tgz\"")));
}

TEST_F(FleetReportCommands, ARunIsReportedWhileItWorksAndAfterItWasKilled) {
    const Id fleet = history.Begin({"bmc1", "bmc2"});
    history.Deliver(fleet, 1);
    ASSERT_EQ(Type({"fleet", "report", "--html"}), 0);
    EXPECT_THAT(out.str(), HasSubstr("This run is at work"));
    history.Kill(fleet);
    ASSERT_EQ(Type({"fleet", "report", "--html"}), 0);
    EXPECT_THAT(out.str(), HasSubstr("This run has ended without a word."));
    EXPECT_THAT(out.str(), HasSubstr("Not tried"));
}

TEST_F(FleetReportCommands, LinksOfAPageStartWhereItIsWritten) {
    Night({"bmc1"});
    const std::string file = history.place / "night.html";
    ASSERT_EQ(Type({"fleet", "report", "--html", "--output", file}), 0);
    EXPECT_EQ(out.str(), "");
    EXPECT_THAT(Content(file), HasSubstr("href=\"run1/bmc1/bmc1.tgz\""));
}

TEST_F(FleetReportCommands, WithoutAFormAllThreeGoIntoAFolder) {
    Night({"bmc1"});
    ASSERT_EQ(Type({"fleet", "report", "--output", history.place / "www"}), 0) << err.str();
    EXPECT_THAT(Content(history.place / "www/report.html"),
                HasSubstr("href=\"../run1/bmc1/bmc1.tgz\""));
    EXPECT_TRUE(Exists(history.place / "www/report.csv"));
    EXPECT_TRUE(Exists(history.place / "www/report.json"));
}

TEST_F(FleetReportCommands, WhatCannotBeReportedIsTold) {
    EXPECT_EQ(Type({"fleet", "report", "--csv"}), 8);
    EXPECT_EQ(err.str(), "kemffdc: No fleet run is known. [exit code 8]\n");
    Night({"bmc1"});
    EXPECT_EQ(Type({"fleet", "report", "7", "--csv"}), 8);
    EXPECT_THAT(err.str(), HasSubstr("No fleet run 7 is known."));
    EXPECT_EQ(Type({"fleet", "report"}), 2);
    EXPECT_THAT(err.str(), HasSubstr("Which report? --html, --csv or --json; or --output FOLDER"));
    EXPECT_EQ(Type({"fleet", "report", "--csv", "--html"}), 2);
    EXPECT_THAT(err.str(), HasSubstr("--html, --csv and --json exclude each other."));
    EXPECT_EQ(Type({"fleet", "report", "--csv", "--output", history.place / "no/x.csv"}), 8);
    EXPECT_THAT(err.str(), HasSubstr("no/x.csv cannot be written: No such file or directory."));
}

// --- merge ------------------------------------------------------------------------------------

TEST_F(FleetReportCommands, RunsOfSeveralStationsBecomeOneReport) {
    const Id first = Night({"bmc1", "bmc2"});
    const Id second = Night({"bmc3"});
    ASSERT_EQ(Type({"fleet", "merge", history.Folder(first),
                    history.Folder(second) + "/report.json", "--json"}),
              0)
        << err.str();
    const Results merged = Printed();
    ASSERT_EQ(merged.hosts.size(), 3U);
    EXPECT_EQ(merged.runs.size(), 2U);
    EXPECT_EQ(merged.hosts[2].name, "bmc3");
    EXPECT_EQ(merged.hosts[2].run, 1U);
    EXPECT_THAT(merged.notes, IsEmpty());
}

TEST_F(FleetReportCommands, ARunOfThisStationCanBeMergedByItsNumber) {
    const Id first = Night({"bmc1"});
    Night({"bmc2"});
    ASSERT_EQ(Type({"fleet", "merge", std::to_string(first), "2", "--csv"}), 0);
    EXPECT_THAT(out.str(), AllOf(HasSubstr("\nbmc1,"), HasSubstr("\nbmc2,")));
}

TEST_F(FleetReportCommands, OfAHostInTwoRunsTheNewestGoodResultCounts) {
    const Id good = Night({"bmc1"});
    const Id bad = Night({"bmc9", "bmc1"});
    const std::vector<std::vector<std::string>> orders{{history.Folder(good), history.Folder(bad)},
                                                       {history.Folder(bad), history.Folder(good)}};
    for (const std::vector<std::string>& order : orders) {
        ASSERT_EQ(Type({"fleet", "merge", order[0], order[1], "--json"}), 0);
        const Results merged = Printed();
        ASSERT_EQ(merged.hosts.size(), 2U);
        for (const auto& host : merged.hosts) EXPECT_EQ(host.outcome, "downloaded");
        EXPECT_THAT(merged.notes, ElementsAre("1 host is in more than one run; of each the newest "
                                              "good result counts: bmc1."));
    }
}

TEST_F(FleetReportCommands, OfTwoGoodResultsTheNewerOneCounts) {
    const Id first = Night({"bmc1"});
    const Id second = Night({"bmc1"});
    ASSERT_EQ(Type({"fleet", "merge", history.Folder(second), history.Folder(first), "--json"}), 0);
    EXPECT_EQ(Printed().hosts.at(0).archive, history.Folder(second) + "/bmc1/bmc1.tgz");
}

TEST_F(FleetReportCommands, ArchivesAreLookedForBesideAReportThatWasMoved) {
    const Id fleet = Night({"bmc1"});
    std::filesystem::rename(history.Folder(fleet), history.place / "site1");
    ASSERT_EQ(Type({"fleet", "merge", history.place / "site1", "--html", "--output",
                    history.place / "all.html"}),
              0);
    EXPECT_THAT(Content(history.place / "all.html"),
                AllOf(HasSubstr("href=\"site1/bmc1/bmc1.tgz\""),
                      HasSubstr("href=\"site1/bmc1/bmc1.tgz.json\"")));
}

TEST_F(FleetReportCommands, AMergedReportCanBeMergedAgain) {
    const Id first = Night({"bmc1"});
    const Id second = Night({"bmc2"});
    const Id third = Night({"bmc3"});
    ASSERT_EQ(Type({"fleet", "merge", history.Folder(first), history.Folder(second), "--output",
                    history.place / "both"}),
              0);
    ASSERT_EQ(Type({"fleet", "merge", history.place / "both", history.Folder(third), "--json"}), 0);
    EXPECT_EQ(Printed().runs.size(), 3U);
    EXPECT_EQ(Printed().hosts.at(1).archive, history.Folder(second) + "/bmc2/bmc2.tgz");
}

TEST_F(FleetReportCommands, WhatCannotBeMergedIsTold) {
    EXPECT_EQ(Type({"fleet", "merge", "--json"}), 2);
    EXPECT_THAT(err.str(), HasSubstr("RUN is required."));
    EXPECT_EQ(Type({"fleet", "merge", history.place.Path(), "--csv"}), 8);
    EXPECT_THAT(err.str(), HasSubstr("/report.json does not exist."));
    history.place.Write("report.json", "{}");
    EXPECT_EQ(Type({"fleet", "merge", history.place.Path(), "--csv"}), 8);
    EXPECT_THAT(err.str(), HasSubstr("is no report of a fleet run."));
}

// --- prune ------------------------------------------------------------------------------------

TEST_F(FleetReportCommands, OlderArchivesAreToldBeforeTheyGo) {
    const Id old = Night({"bmc1"});
    Night({"bmc1"});
    const std::string path = history.Folder(old) + "/bmc1/bmc1.tgz";
    ASSERT_EQ(Type({"fleet", "prune", "--keep", "1", "--dry-run"}), 0) << err.str();
    EXPECT_EQ(out.str(), "would remove " + path + " (7 B)\nwould remove " + history.Folder(old) +
                             "\n1 file of 1 BMC, 7 B. Nothing was removed.\n");
    EXPECT_TRUE(Exists(path));
    ASSERT_EQ(Type({"fleet", "prune", "--keep", "1"}), 0);
    EXPECT_EQ(out.str(), "removed " + path + " (7 B)\nremoved " + history.Folder(old) +
                             "\n1 file of 1 BMC, 7 B.\n");
    EXPECT_FALSE(Exists(path));
    ASSERT_EQ(Type({"fleet", "prune", "--keep", "1"}), 0);
    EXPECT_EQ(out.str(), "Nothing is older than the newest 1 of its BMC.\n");
}

TEST_F(FleetReportCommands, HowManyStayMustBeSaid) {
    EXPECT_EQ(Type({"fleet", "prune"}), 2);
    EXPECT_THAT(err.str(), HasSubstr("--keep N is required"));
    EXPECT_EQ(Type({"fleet", "prune", "--keep", "0"}), 2);
    EXPECT_THAT(err.str(), HasSubstr("--keep: \"0\""));
}

TEST_F(FleetReportCommands, AFileThatStaysIsAFault) {
    const Id old = Night({"bmc1"});
    Night({"bmc1"});
    std::ofstream(history.Folder(old) + "/bmc1/bmc1.tgz") << "somebody has written here";
    EXPECT_EQ(Type({"fleet", "prune", "--keep", "1"}), 8);
    EXPECT_THAT(err.str(), HasSubstr("1 file could not be removed."));
}

}  // namespace
