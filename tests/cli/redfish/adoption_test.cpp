// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Adoption.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Kemffdc::Redfish::ChooseTask;
using Kemffdc::Redfish::Intent;
using Kemffdc::Redfish::ListedTask;
using Kemffdc::Redfish::ReadHttpTime;
using Kemffdc::Redfish::ReadIsoTime;
using Kemffdc::Redfish::ReadListedTask;

constexpr std::time_t kIntent = 1000000;

ListedTask Export(const std::string& uri, std::optional<std::time_t> started, bool ended = false) {
    return {uri, true, "ProcessorDump", started, ended};
}

struct TimeRow {
    const char* text;
    std::optional<std::time_t> time;
};

TEST(AdoptionTimes, AreReadAsRedfishWritesThem) {
    const std::vector<TimeRow> rows{
        {"1970-01-01T00:00:10Z", 10},
        {"1970-01-01T01:00:10+01:00", 10},
        {"1969-12-31T22:30:10-01:30", 10},
        {"1970-01-01T00:00:10.987Z", 10},
        {"2026-01-31T23:59:58Z", 1769903998},
        {"1970-01-01T00:00:10", std::nullopt},  // whose noon is that?
        {"1970-01-01T00:00:10Zulu", std::nullopt},
        {"1970-01-01", std::nullopt},
        {"yesterday", std::nullopt},
        {"", std::nullopt},
    };
    for (const TimeRow& row : rows) EXPECT_EQ(ReadIsoTime(row.text), row.time) << row.text;
}

TEST(AdoptionTimes, AreReadAsHttpWritesThem) {
    EXPECT_EQ(ReadHttpTime("Sat, 31 Jan 2026 23:59:58 GMT"), 1769903998);
    EXPECT_EQ(ReadHttpTime(""), std::nullopt);
    EXPECT_EQ(ReadHttpTime("soon"), std::nullopt);
}

TEST(AdoptionReading, KnowsAnExportByItsOemPart) {
    const auto task = ReadListedTask("/t/1", R"({"StartTime":"1970-01-01T00:00:10Z",
        "TaskState":"Running","Oem":{"Tavrin":{"DataCollectionType":"Mini-log"}}})");
    ASSERT_TRUE(task.has_value());
    EXPECT_EQ(task->uri, "/t/1");
    EXPECT_TRUE(task->isExport);
    EXPECT_EQ(task->kind, "Mini-log");
    EXPECT_EQ(task->started, 10);
    EXPECT_FALSE(task->ended);
}

TEST(AdoptionReading, KnowsAnExportByTheActionThatWasPosted) {
    const auto task = ReadListedTask("/t/1", R"({"TaskState":"Exception","Payload":{"TargetUri":
        "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData"}})");
    ASSERT_TRUE(task.has_value());
    EXPECT_TRUE(task->isExport);
    EXPECT_EQ(task->kind, "");
    EXPECT_EQ(task->started, std::nullopt);
    EXPECT_TRUE(task->ended);
}

TEST(AdoptionReading, KnowsACollectionByTheActionThatWasPosted) {
    const auto task = ReadListedTask("/t/1", R"({"TaskState":"Running","Payload":{"TargetUri":
        "/redfish/v1/Managers/1/LogServices/Dump/Actions/LogService.CollectDiagnosticData"}})");
    ASSERT_TRUE(task.has_value());
    EXPECT_TRUE(task->isCollection);
    EXPECT_FALSE(task->isExport);
}

TEST(AdoptionReading, TakesNoOtherTaskForAnExport) {
    const auto task = ReadListedTask("/t/1", R"({"Name":"Firmware update","Payload":{"TargetUri":
        "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate"}})");
    ASSERT_TRUE(task.has_value());
    EXPECT_FALSE(task->isExport);
    EXPECT_FALSE(task->isCollection);
    EXPECT_FALSE(ReadListedTask("/t/1", "[]").has_value());
}

struct Row {
    const char* why;
    std::vector<ListedTask> tasks;
    Intent intent;
    std::time_t ahead;
    const char* chosen;
};

TEST(AdoptionChoice, TakesTheExportThatTheIntentHasBegun) {
    const Intent intent{kIntent, false, {}};
    const ListedTask mini{"/m", true, "Mini-log", kIntent, false};
    const ListedTask update{"/u", false, "", kIntent, false};
    const ListedTask unnamed{"/p", true, "", kIntent, false};
    const ListedTask collection{"/c", false, "", kIntent, false, true};
    const Intent standard{kIntent, true, {}, true};
    const std::vector<Row> rows{
        {"there are no tasks", {}, intent, 0, ""},
        {"it began right then", {Export("/1", kIntent)}, intent, 0, "/1"},
        {"both clocks are read to the second", {Export("/1", kIntent - 2)}, intent, 0, "/1"},
        {"it is older than the intent", {Export("/1", kIntent - 60)}, intent, 0, ""},
        {"the BMC's clock is an hour ahead", {Export("/1", kIntent)}, intent, 3600, ""},
        {"the same, and that is when it began", {Export("/1", kIntent + 3600)}, intent, 3600, "/1"},
        {"the BMC's clock is behind", {Export("/1", kIntent - 3600)}, intent, -3600, "/1"},
        {"it has ended meanwhile", {Export("/1", kIntent + 1, true)}, intent, 0, "/1"},
        {"another run has begun it", {Export("/1", kIntent)}, {kIntent, false, {"/1"}}, 0, ""},
        {"of two the first",
         {Export("/2", kIntent + 9), Export("/1", kIntent + 1)},
         intent,
         0,
         "/1"},
        {"nobody knows when, and it works", {Export("/1", std::nullopt)}, intent, 0, "/1"},
        {"nobody knows when, and it has ended", {Export("/1", {}, true)}, intent, 0, ""},
        {"a known time counts more", {Export("/1", {}), Export("/2", kIntent)}, intent, 0, "/2"},
        {"the logs alone were not asked for", {mini}, intent, 0, ""},
        {"the logs alone were asked for", {mini}, {kIntent, true, {}}, 0, "/m"},
        {"its kind is not told", {unnamed}, intent, 0, "/p"},
        {"it is no export", {update}, intent, 0, ""},
        {"a collection is no export", {collection}, intent, 0, ""},
        {"a collection was asked for", {unnamed, collection}, standard, 0, "/c"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ChooseTask(row.tasks, row.intent, row.ahead), row.chosen) << row.why;
    }
}

}  // namespace
