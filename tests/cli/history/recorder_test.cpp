// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Recorder.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <system_error>
#include <vector>

#include "support/DiskFaults.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::BmcFacts;
using Kemffdc::DeliveredFile;
using Kemffdc::Delivery;
using Kemffdc::RunRecord;
using Kemffdc::History::ArchiveRow;
using Kemffdc::History::Recorder;
using Kemffdc::History::RunRow;
using Kemffdc::History::Store;
using testing::HasSubstr;
using testing::SizeIs;

class RecorderTest : public testing::Test {
protected:
    void Begin() {
        RunRow run;
        run.command = "collect";
        run.toolVersion = "1.0.0";
        run.channel = "redfish";
        run.host = "bmc7";
        recorder.Begin(folder, run);
    }

    RunRow Row() const { return Store(folder).FindRun(recorder.Number()).value(); }
    std::vector<ArchiveRow> Archives() const { return Store(folder).Archives(recorder.Number()); }

    void Arrive(const std::string& path, const std::string& sha256) {
        recorder.Started(path);
        recorder.Completed({path, 5, sha256, 0, 0, 0});
        recorder.Ended(path, {});
    }

    void Deliver(const std::vector<DeliveredFile>& files) {
        Delivery delivery;
        delivery.files = files;
        recorder.DeliveryChanged(delivery);
    }

    void End(Kemffdc::Outcome outcome) {
        RunRecord record;
        record.command = "collect";
        record.outcome = outcome;
        recorder.End(record);
    }

    TempFolder place;
    const std::string folder = place / "state";
    Recorder recorder;
};

TEST_F(RecorderTest, WritesWhatItHears) {
    Begin();
    recorder.StepBegun("preflight");
    recorder.StepEnded({"preflight", 2, 0.5, "because"});
    BmcFacts facts;
    facts.serial = "SN1";
    facts.address = "192.0.2.7";
    facts.certificate.emplace();
    facts.certificate->sha256 = "AA";
    recorder.FactsChanged(facts);
    recorder.TaskChanged({"/tasks/1", "Running", "", {}, {}});
    recorder.TaskChanged({"/tasks/1", "Running", "", 40, {}});
    recorder.OperationChosen("oem", "the BMC offers it");
    recorder.SetBmcPath("/download/a.tgz");
    recorder.WayChosen("ipmi", 623);
    EXPECT_EQ(Row().endedAt, "");
    End(Kemffdc::Failure(Kemffdc::kTaskFailed, "It failed."));

    const RunRow row = Row();
    EXPECT_EQ(row.channel, "ipmi");
    EXPECT_EQ(row.port, 623);
    EXPECT_EQ(row.bmc.serial, "SN1");
    EXPECT_EQ(row.bmc.address, "192.0.2.7");
    EXPECT_EQ(row.bmc.certificate, "AA");
    EXPECT_EQ(row.task, "/tasks/1");
    EXPECT_EQ(SQLite::Database(folder + "/history.db")
                  .execAndGet("SELECT task_percent FROM runs")
                  .getInt(),
              40);
    EXPECT_EQ(row.operation, "oem");
    EXPECT_EQ(row.taskState, "Running");
    EXPECT_EQ(row.bmcPath, "/download/a.tgz");
    EXPECT_EQ(row.exitCode, 5);
    EXPECT_EQ(row.outcome, "task-failed");
    EXPECT_EQ(row.reason, "It failed.");
    const auto steps = Store(folder).Steps(recorder.Number());
    ASSERT_THAT(steps, SizeIs(1));
    EXPECT_EQ(steps[0].code, 2);
    EXPECT_EQ(steps[0].detail, "because");
    EXPECT_EQ(recorder.TakeTrouble(), "");
}

TEST_F(RecorderTest, FollowsAFileFromItsBeginningToItsPlace) {
    Begin();
    recorder.SetBmcPath("/download/a.tgz");
    recorder.Started("/archives/.part/bmc7_a.tgz");
    EXPECT_EQ(Archives().at(0).name, "a.tgz") << "as the BMC calls it";
    recorder.PartBegun({"/archives/.part/bmc7_a.tgz", 0, 77, "\"v1\""});
    EXPECT_EQ(Archives().at(0).partial, "/archives/.part/bmc7_a.tgz.varnex-part");
    EXPECT_EQ(Archives().at(0).validator, "\"v1\"");
    EXPECT_EQ(Archives().at(0).expected, 77U);
    recorder.Completed({"/archives/.part/bmc7_a.tgz", 77, "sum", 0, 0, 0});
    recorder.Ended("/archives/.part/bmc7_a.tgz", {});
    Deliver({{"/out/bmc7_a-2.tgz", 77, "sum", false, "is cut"}});
    ASSERT_THAT(Archives(), SizeIs(1));
    const ArchiveRow row = Archives()[0];
    EXPECT_EQ(row.path, "/out/bmc7_a-2.tgz");
    EXPECT_EQ(row.size, 77U);
    EXPECT_EQ(row.sha256, "sum");
    EXPECT_EQ(row.whole, std::optional<bool>(false));
    EXPECT_EQ(row.detail, "is cut");
    EXPECT_EQ(row.partial, "");
}

TEST_F(RecorderTest, AFileThatFailsKeepsItsPart) {
    Begin();
    recorder.Started("/archives/.part/a.tgz");
    recorder.PartBegun({"/archives/.part/a.tgz", 0, 77, "\"v1\""});
    recorder.Ended("/archives/.part/a.tgz", std::make_error_code(std::errc::connection_reset));
    const ArchiveRow row = Archives().at(0);
    EXPECT_EQ(row.detail, "Connection reset by peer");
    EXPECT_NE(row.endedAt, "");
    EXPECT_NE(row.partial, "");
    EXPECT_EQ(row.path, "");
}

TEST_F(RecorderTest, FilesOfOneContentAreToldApartByTheirNames) {
    Begin();
    for (const char* path :
         {"/archives/.part/x/a.log", "/archives/.part/x/b.log", "/archives/.part/x/c.log"})
        Arrive(path, "same");
    Deliver({{"/out/x/c.log", 5, "same", {}, ""},
             {"/out/x/a.log", 5, "same", {}, ""},
             {"/out/x/b.log", 5, "same", {}, ""}});
    ASSERT_THAT(Archives(), SizeIs(3));
    for (const ArchiveRow& row : Archives()) EXPECT_EQ(row.path, "/out/x/" + row.name);
}

TEST_F(RecorderTest, AFileThatNobodySawComingHasARowToo) {
    Begin();
    Deliver({{"/out/a.tgz", 5, "sum", true, ""}});
    ASSERT_THAT(Archives(), SizeIs(1));
    EXPECT_EQ(Archives()[0].name, "a.tgz");
}

TEST_F(RecorderTest, WithoutAHistoryNothingHappensAndOneReasonIsGiven) {
    place.Write("state", "a file");
    Begin();
    EXPECT_EQ(recorder.Number(), 0);
    EXPECT_THAT(recorder.TakeTrouble(), HasSubstr("is not a folder"));
    EXPECT_EQ(recorder.TakeTrouble(), "");
    recorder.StepBegun("preflight");
    Arrive("/archives/.part/a", "sum");
    End({});
    EXPECT_EQ(recorder.TakeTrouble(), "");
}

TEST_F(RecorderTest, AfterTroubleOnlyTheEndIsTriedAgain) {
    Begin();
    recorder.StepBegun("preflight");
    {
        const DiskFaults faults("write:" + folder + ":*:ENOSPC");
        recorder.StepEnded({"preflight", 0, 0.5, ""});
        const int played = faults.Played();
        EXPECT_GT(played, 0);
        recorder.StepBegun("export");
        recorder.TaskChanged({"/tasks/1", "", "", {}, {}});
        EXPECT_EQ(faults.Played(), played) << "nothing more was written";
    }
    EXPECT_THAT(recorder.TakeTrouble(), HasSubstr("database or disk is full"));
    End({});
    EXPECT_EQ(Row().exitCode, 0);
    EXPECT_EQ(recorder.TakeTrouble(), "");
    EXPECT_THAT(Store(folder).Steps(recorder.Number()), SizeIs(1));
}

TEST_F(RecorderTest, InAHurryItWaitsForNobody) {
    Begin();
    SQLite::Database other(folder + "/history.db", SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    recorder.Hurry();
    const auto begin = std::chrono::steady_clock::now();
    End({});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_THAT(recorder.TakeTrouble(), HasSubstr("locked"));
}

}  // namespace
