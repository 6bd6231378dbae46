// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Results.h"

#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <fstream>

#include "cli/fleet/Csv.h"
#include "cli/fleet/Meaning.h"
#include "cli/fleet/ResultsCsv.h"
#include "cli/fleet/ResultsJson.h"
#include "fleet/SampleResults.h"
#include "support/TempFolder.h"

namespace {

namespace json = boost::json;

using Kemffdc::Fleet::CsvRow;
using Kemffdc::Fleet::Failures;
using Kemffdc::Fleet::HostResult;
using Kemffdc::Fleet::MeaningOf;
using Kemffdc::Fleet::ReadReportJson;
using Kemffdc::Fleet::ReportCsv;
using Kemffdc::Fleet::ReportJson;
using Kemffdc::Fleet::Results;
using Kemffdc::Fleet::Totals;
using Kemffdc::History::HostState;
using testing::ElementsAre;
using testing::HasSubstr;

HostResult Host(const std::string& name, HostState state, const std::string& outcome,
                const std::string& reason = "") {
    HostResult host;
    host.name = name;
    host.state = state;
    host.outcome = outcome;
    host.reason = reason;
    return host;
}

Results Of(std::vector<HostResult> hosts) {
    Results results;
    results.runs.resize(1);
    results.hosts = std::move(hosts);
    for (std::size_t i = 0; i < results.hosts.size(); ++i) {
        results.hosts[i].number = static_cast<int>(i) + 1;
    }
    return results;
}

// --- what is counted --------------------------------------------------------------------------

TEST(FleetMeaning, EachOutcomeOfTheSchemaHasATitleForOperators) {
    const json::value schema =
        json::parse(Content(std::string(VARNEX_ROOT) + "/docs/schema/kemffdc-fleet-1.json"));
    const json::array& outcomes = schema.at_pointer("/$defs/outcome/enum").as_array();
    ASSERT_GT(outcomes.size(), 30U);
    for (const json::value& outcome : outcomes) {
        const std::string name(outcome.as_string());
        const bool bySame = name == "downloaded" || name == "exported" || name == "interrupted";
        EXPECT_EQ(MeaningOf(name).title == name, bySame) << name;
    }
}

TEST(FleetMeaning, AnOutcomeOfANewerToolIsItsOwnTitle) {
    EXPECT_EQ(MeaningOf("raining").title, "raining");
    EXPECT_EQ(MeaningOf("raining").advice, "");
}

TEST(FleetResults, EveryHostIsCountedOnce) {
    Results results = Of(
        {Host("a", HostState::kDone, "downloaded"), Host("b", HostState::kFailed, "unreachable"),
         Host("c", HostState::kStopped, "guarded"), Host("d", HostState::kGathering, "not-ended"),
         Host("e", HostState::kQueued, "not-tried")});
    results.hosts[0].archive = "/x/a.tgz";
    results.hosts[0].size = 512;
    const Totals totals = TotalsOf(results);
    EXPECT_EQ(totals.hosts, 5U);
    EXPECT_EQ(totals.done, 1U);
    EXPECT_EQ(totals.failed, 1U);
    EXPECT_EQ(totals.stopped, 1U);
    EXPECT_EQ(totals.open, 2U);
    EXPECT_EQ(totals.archives, 1U);
    EXPECT_EQ(totals.bytes, 512U);
}

TEST(FleetResults, TimeSpentOnAHostLeavesOutWhereItOnlyStood) {
    HostResult host = Host("a", HostState::kDone, "downloaded");
    host.states = {{100, HostState::kQueued},    {105, HostState::kStarting},
                   {106, HostState::kGathering}, {116, HostState::kStopped},
                   {900, HostState::kStarting},  {904, HostState::kDone}};
    EXPECT_DOUBLE_EQ(host.Started(), 105);
    EXPECT_DOUBLE_EQ(host.Ended(), 904);
    EXPECT_DOUBLE_EQ(host.Seconds(), 15);
}

TEST(FleetResults, AHostThatNobodyTriedHasNoTimes) {
    HostResult host = Host("a", HostState::kStopped, "not-tried");
    host.states = {{100, HostState::kQueued}, {105, HostState::kStopped}};
    EXPECT_DOUBLE_EQ(host.Started(), 0);
    EXPECT_DOUBLE_EQ(host.Seconds(), 0);
}

TEST(FleetResults, FailuresAreGroupedByReasonTheLargestFirst) {
    const Results results = Of({Host("bmc1", HostState::kFailed, "unreachable", "A."),
                                Host("bmc2", HostState::kDone, "downloaded"),
                                Host("bmc3", HostState::kFailed, "login-refused", "B."),
                                Host("bmc4", HostState::kFailed, "login-refused", "C."),
                                Host("bmc5", HostState::kFailed, "login-refused", "C.")});
    const std::vector<Failures> failures = FailuresOf(results);
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0].outcome, "login-refused");
    EXPECT_EQ(FoldedNames(results, failures[0].hosts), "bmc[3-5]");
    EXPECT_THAT(failures[0].reasons, ElementsAre("C.", "B."));
    EXPECT_EQ(failures[1].outcome, "unreachable");
}

// --- report.json ------------------------------------------------------------------------------

TEST(FleetReportJson, WhatIsReadBackIsWhatWasWritten) {
    SampleResults sample(40);
    Results read;
    const std::string text = ReportJson(sample.Get());
    ASSERT_EQ(ReadReportJson(text, "report.json", read).reason, "");
    ASSERT_EQ(read.hosts.size(), 40U);
    EXPECT_TRUE(ReportJson(read) == text);  // too long to be shown
    EXPECT_EQ(read.hosts[0].bmc.model, SampleResults::kHostile);
    EXPECT_EQ(read.hosts[39].operation, "standard");
}

TEST(FleetReportJson, HostsStandOnLinesOfTheirOwn) {
    SampleResults sample(3);
    const std::string text = ReportJson(sample.Get());
    EXPECT_THAT(text, HasSubstr("\n  {\"run\":0,\"number\":2,\"name\":\"bmc0002.example\""));
}

TEST(FleetReportJson, BytesThatAreNoUtf8AreReplaced) {
    SampleResults sample(1);
    sample.Get().hosts[0].bmc.serial = "\xFFserial";
    EXPECT_THAT(ReportJson(sample.Get()), HasSubstr("\"serial\":\"\xEF\xBF\xBDserial\""));
}

struct NoReport {
    const char* text;
    const char* said;
};

class FleetReportJsonRefuses : public testing::TestWithParam<NoReport> {};

TEST_P(FleetReportJsonRefuses, WhatIsNoReport) {
    Results read;
    const Kemffdc::Outcome outcome = ReadReportJson(GetParam().text, "x/report.json", read);
    EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
    EXPECT_THAT(outcome.reason, HasSubstr(std::string("x/report.json ") + GetParam().said));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FleetReportJsonRefuses,
    testing::Values(
        NoReport{"", "is no JSON: "}, NoReport{"[1]", "is no report of a fleet run."},
        NoReport{R"({"schema":1,"command":"collect"})", "is no report of a fleet run."},
        NoReport{R"({"schema":2,"report":"fleet"})", "has schema number 2, which is newer"},
        NoReport{R"({"schema":1,"report":"fleet","hosts":[]})", "names no run."},
        NoReport{
            R"({"schema":1,"report":"fleet","runs":[{}],"hosts":[{"run":1,"name":"a","outcome":"x"}]})",
            "has a host without"},
        NoReport{
            R"({"schema":1,"report":"fleet","runs":[{}],"hosts":[{"run":-1,"name":"a","outcome":"x"}]})",
            "has a host without"}));

// --- report.csv -------------------------------------------------------------------------------

std::vector<CsvRow> Read(const std::string& text) {
    std::vector<CsvRow> rows;
    int line = 0;
    std::string error;
    EXPECT_TRUE(Kemffdc::Fleet::ReadCsv(text, rows, line, error)) << line << ": " << error;
    return rows;
}

std::size_t ColumnOf(const CsvRow& names, const std::string& name) {
    const auto found = std::find(names.fields.begin(), names.fields.end(), name);
    EXPECT_NE(found, names.fields.end()) << name;
    return static_cast<std::size_t>(found - names.fields.begin());
}

TEST(FleetReportCsv, AHostIsARow) {
    SampleResults sample(40);
    const std::vector<CsvRow> rows = Read(ReportCsv(sample.Get()));
    ASSERT_EQ(rows.size(), 41U);
    for (const CsvRow& row : rows) EXPECT_EQ(row.fields.size(), rows[0].fields.size());
    EXPECT_EQ(rows[7].fields[ColumnOf(rows[0], "outcome")], "login-refused");
    EXPECT_EQ(rows[1].fields[ColumnOf(rows[0], "model")], SampleResults::kHostile);
    EXPECT_EQ(rows[40].fields[ColumnOf(rows[0], "operation")], "standard");
    EXPECT_EQ(rows[1].fields[ColumnOf(rows[0], "size")],
              std::to_string(sample.Get().hosts[0].size));
}

TEST(FleetReportCsv, LinesEndAsTheStandardHasIt) {
    SampleResults sample(2);
    const std::string text = ReportCsv(sample.Get());
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST(FleetReportCsv, NoBmcStartsAFormula) {
    for (const std::string start : {"=", "+", "-", "@", "\t", "\r"}) {
        SampleResults sample(1);
        sample.Get().hosts[0].bmc.serial = start + "cmd|' /C calc'!A0";
        const std::vector<CsvRow> rows = Read(ReportCsv(sample.Get()));
        EXPECT_EQ(rows[1].fields[ColumnOf(rows[0], "serial")], "'" + start + "cmd|' /C calc'!A0");
    }
}

TEST(FleetReportCsv, QuotesAndLineEndsStayInTheirCell) {
    SampleResults sample(1);
    const std::string odd = "a \"b\", c;\r\nd \"\"";
    sample.Get().hosts[0].reason = odd;
    const std::vector<CsvRow> rows = Read(ReportCsv(sample.Get()));
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[1].fields[ColumnOf(rows[0], "reason")], odd);
}

}  // namespace
