// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Reports.h"

#include <gmock/gmock.h>

#include "cli/fleet/Metrics.h"
#include "cli/fleet/ResultsJournal.h"
#include "cli/fleet/ResultsJson.h"
#include "fleet/FleetHistory.h"
#include "fleet/SampleResults.h"
#include "support/DiskFaults.h"

namespace {

using Kemffdc::Fleet::Aftermath;
using Kemffdc::Fleet::AfterRun;
using Kemffdc::Fleet::MetricsText;
using Kemffdc::Fleet::NewestArchives;
using Kemffdc::Fleet::ReadResults;
using Kemffdc::Fleet::Results;
using Kemffdc::Fleet::WriteReports;
using Kemffdc::History::HostState;
using Kemffdc::History::Id;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class FleetReports : public testing::Test {
protected:
    Results Read(Id fleet) { return ReadResults(history.journal, *history.journal.Find(fleet)); }

    FleetHistory history;
};

// --- what the journal says --------------------------------------------------------------------

TEST_F(FleetReports, EveryHostOfThePlanIsInItWithAnOutcome) {
    const Id fleet = history.Begin({"bmc1", "bmc2", "bmc3", "bmc4"});
    const std::string path = history.Deliver(fleet, 1);
    history.Fail(fleet, 2, "login-refused", "The BMC refuses it.");
    history.journal.SetState(fleet, 3, HostState::kStarting);
    const Results results = Read(fleet);
    ASSERT_EQ(results.hosts.size(), 4U);
    EXPECT_EQ(results.hosts[0].outcome, "downloaded");
    EXPECT_EQ(results.hosts[0].archive, path);
    EXPECT_EQ(results.hosts[0].record, path + ".json");
    EXPECT_EQ(results.hosts[0].states.size(), 3U);
    EXPECT_EQ(results.hosts[1].outcome, "login-refused");
    EXPECT_EQ(results.hosts[1].reason, "The BMC refuses it.");
    EXPECT_EQ(results.hosts[2].outcome, "not-ended");
    EXPECT_EQ(results.hosts[3].outcome, "not-tried");
    EXPECT_TRUE(results.runs[0].live);
}

TEST_F(FleetReports, AKilledRunIsToldFromOneAtWork) {
    const Id fleet = history.Begin({"bmc1"});
    history.Kill(fleet);
    EXPECT_FALSE(Read(fleet).runs[0].live);
    EXPECT_EQ(Read(fleet).runs[0].ended, 0);
    EXPECT_THAT(ReportJson(Read(fleet)), HasSubstr("\"state\":\"killed\""));
}

TEST_F(FleetReports, WhatAnEarlierTrySaidIsNoOutcomeOfAHostThatIsTriedAgain) {
    const Id fleet = history.Begin({"bmc1"});
    history.Fail(fleet, 1, "unreachable", "Nothing answers.");
    history.journal.SetState(fleet, 1, HostState::kPausing, "Another try in 12 s.");
    EXPECT_EQ(Read(fleet).hosts[0].outcome, "not-ended");
    EXPECT_EQ(Read(fleet).hosts[0].reason, "Nothing answers.");
}

// --- the files --------------------------------------------------------------------------------

TEST_F(FleetReports, AllThreeStandInTheFolderForTheirOwnerAlone) {
    const Id fleet = history.Begin({"bmc1", "bmc2"});
    history.Deliver(fleet, 1);
    history.End(fleet, 20);
    EXPECT_EQ(WriteReports(history.journal, fleet, history.Folder(fleet)), "");
    for (const char* name : {"report.json", "report.csv", "report.html"}) {
        const std::string path = history.Folder(fleet) + "/" + name;
        EXPECT_THAT(Content(path), HasSubstr("bmc2")) << name;
        EXPECT_EQ(Mode(path), 0600U) << name;
    }
}

TEST_F(FleetReports, AFullDiskLeavesTheReportsBefore) {
    const Id fleet = history.Begin({"bmc1"});
    const std::string folder = history.Folder(fleet);
    ASSERT_EQ(WriteReports(history.journal, fleet, folder), "");
    const std::string before = Content(folder + "/report.json");
    history.Deliver(fleet, 1);
    {
        const DiskFaults faults("write:" + folder + "/.report.json:*:ENOSPC");
        EXPECT_THAT(WriteReports(history.journal, fleet, folder),
                    StartsWith("A report is missing: " + folder +
                               "/report.json cannot be written: "
                               "No space left on device."));
    }
    EXPECT_EQ(Content(folder + "/report.json"), before);
    EXPECT_THAT(Content(folder + "/report.csv"), HasSubstr("downloaded"));
}

TEST_F(FleetReports, ANumberThatIsNoRunIsTold) {
    EXPECT_THAT(WriteReports(history.journal, 7, history.place.Path()),
                HasSubstr("The history knows no fleet run of that number."));
}

// --- what follows a run -----------------------------------------------------------------------

TEST_F(FleetReports, TheProgramGetsItsArgumentsAndThePathOfTheReport) {
    const Id fleet = history.Begin({"bmc1"});
    history.End(fleet);
    const std::string said = history.place / "said";
    Aftermath aftermath;
    aftermath.onFinish = {"sh", "-c", "printf '%s|' \"$@\" > " + said, "x", "a b; $HOME"};
    EXPECT_THAT(AfterRun(history.store, history.journal, fleet, aftermath), IsEmpty());
    EXPECT_EQ(Content(said), "a b; $HOME|" + history.Folder(fleet) + "/report.json|");
}

TEST_F(FleetReports, AProgramThatFailsIsANote) {
    const Id fleet = history.Begin({"bmc1"});
    history.End(fleet);
    Aftermath aftermath;
    aftermath.onFinish = {"false"};
    EXPECT_THAT(AfterRun(history.store, history.journal, fleet, aftermath),
                ElementsAre("The program of --on-finish, false, ended with exit code 1."));
}

TEST_F(FleetReports, MetricsThatCannotBeWrittenAreANote) {
    const Id fleet = history.Begin({"bmc1"});
    history.End(fleet);
    Aftermath aftermath;
    aftermath.metrics = history.place / "no/ffdc.prom";
    EXPECT_THAT(AfterRun(history.store, history.journal, fleet, aftermath),
                ElementsAre(StartsWith("The metrics are missing: ")));
}

TEST_F(FleetReports, ARunKeepsSoManyArchivesOfEachHost) {
    std::vector<std::string> paths;
    Id fleet = 0;
    for (int night = 0; night < 3; ++night) {
        fleet = history.Begin({"bmc1"});
        paths.push_back(history.Deliver(fleet, 1));
        if (night < 2) history.End(fleet);
    }
    Aftermath aftermath;
    aftermath.keep = 2;
    EXPECT_THAT(AfterRun(history.store, history.journal, fleet, aftermath),
                ElementsAre("1 older archive was removed (7 B)."));
    EXPECT_FALSE(Exists(paths[0]));
    EXPECT_TRUE(Exists(paths[1]));
    EXPECT_TRUE(Exists(paths[2]));
    history.End(fleet);
}

// --- metrics ----------------------------------------------------------------------------------

TEST_F(FleetReports, MetricsCountOutcomesAndNameEachHost) {
    const Id fleet = history.Begin({"bmc1", "bmc2"});
    history.Deliver(fleet, 1);
    history.Fail(fleet, 2, "unreachable", "Nothing answers.");
    history.End(fleet, 20);
    const std::string text = MetricsText(Read(fleet), NewestArchives(history.journal));
    for (
        const char* line :
        {"\n# TYPE kemffdc_fleet_host_success gauge\n",
         "\nkemffdc_fleet_hosts{inventory=\"rack.csv\",outcome=\"unreachable\"} 1\n",
         "\nkemffdc_fleet_exit_code{inventory=\"rack.csv\"} 20\n",
         "\nkemffdc_fleet_host_success{inventory=\"rack.csv\",host=\"bmc2\",group=\"rack3\"} 0\n",
         "\nkemffdc_fleet_host_archive_bytes{inventory=\"rack.csv\",host=\"bmc1\",group=\"rack3\"} "
         "7\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr("age_seconds{inventory=\"rack.csv\",host=\"bmc2\"")));
}

TEST_F(FleetReports, TheNewestArchiveOfAHostIsOfAnyRun) {
    const Id first = history.Begin({"bmc1", "bmc2"});
    history.Deliver(first, 1);
    history.End(first);
    const Id second = history.Begin({"bmc1"});
    history.Fail(second, 1, "unreachable", "Nothing answers.");
    history.End(second, 21);
    const std::string text = MetricsText(Read(second), NewestArchives(history.journal));
    EXPECT_THAT(text, HasSubstr("newest_archive_age_seconds{inventory=\"rack.csv\",host=\"bmc1\""));
}

TEST(FleetMetrics, AgesCountFromWhenTheFileIsWritten) {
    SampleResults sample(1);
    const double written = sample.Get().written;
    const std::string text =
        MetricsText(sample.Get(), {{"bmc0001.example\nbmc0001.example", written - 86400}});
    EXPECT_THAT(text, HasSubstr("newest_archive_age_seconds{inventory=\"/etc/kemffdc/hosts.yaml\","
                                "host=\"bmc0001.example\",group=\"rack1\"} 86400\n"));
}

TEST(FleetMetrics, LabelsAreEscaped) {
    SampleResults sample(1);
    sample.Get().runs[0].inventory = "a\\b\"c\nd";
    EXPECT_THAT(MetricsText(sample.Get(), {}),
                HasSubstr("kemffdc_fleet_exit_code{inventory=\"a\\\\b\\\"c\\nd\"} 20\n"));
}

}  // namespace
