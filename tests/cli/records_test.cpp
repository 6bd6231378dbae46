// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <ostream>
#include <sstream>

#include "Log.h"
#include "Progress.h"
#include "RedfishRecords.h"

namespace {

using Kemffdc::Finding;
using Kemffdc::FindRedfishSign;
using Kemffdc::RedfishListener;
using Kemffdc::Sign;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcredfish_impl";
constexpr char kClient[] = "src/common/rest/RedfishClient";

struct RecordRow {
    int level;
    const char* source;
    const char* text;
    Sign sign;
    int curlCode;
    int httpCode;
    const char* rest;
};

// As the library writes them.
const RecordRow kRows[] = {
    {4, kClient, "curlCode: 0 | httpCode: 503 | body: wait", Sign::kStarting, 0, 503, "wait"},
    {2, kChannel, "Failed to get redfish version, curlCode: 28, httpCode: 0, body:\n",
     Sign::kVersionFailed, 28, 0, ""},
    {2, kChannel, "Failed to get redfish version, curlCode: 0, httpCode: 503, body:\nnot yet",
     Sign::kVersionFailed, 0, 503, "not yet"},
    {4, kChannel, "curlCode: 0, httpCode: 404, body:\n{}", Sign::kProbed, 0, 404, "{}"},
    {1, kChannel, "curlCode: 0, httpCode: 401, body:\nno", Sign::kPostFailed, 0, 401, "no"},
    {4, kChannel, "Entered SaveTaskId(), parameter strResponse = {\"Id\":\"1\"}",
     Sign::kExportAnswered, 0, 0, "{\"Id\":\"1\"}"},
    {4, kChannel, "property Id found. ", Sign::kTaskNamed, 0, 0, ""},
    {2, kChannel, "Rest response error: curlCode: 7, httpCode:0, body:\n", Sign::kPollFailed, 7, 0,
     ""},
    {2, kChannel, "Rest response error: curlCode: 0, httpCode:500, body:\nx", Sign::kPollFailed, 0,
     500, "x"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is newing, please wait... ",
     Sign::kTaskNew, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is starting, please wait... ",
     Sign::kTaskStarting, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is running, please wait... ",
     Sign::kTaskRunning, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel,
     "The task \"/redfish/v1/TaskService/Tasks/1\" is completed! Its FFDC file is available now. ",
     Sign::kTaskCompleted, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {1, kChannel, "The successful GET request's response shows \"TaskState\":\"Exception\"! ",
     Sign::kTaskException, 0, 0, ""},
    {1, kChannel, "The successful GET request's response shows \"TaskState\":\"Killed\"! ",
     Sign::kTaskKilled, 0, 0, ""},
    {1, kChannel, "The task \"/t/1\" is killed. ", Sign::kTaskKilled, 0, 0, "/t/1"},
    {1, kChannel, "Failed to parse Jason object : <unspecified file>(1): expected value",
     Sign::kTaskUnreadable, 0, 0, "<unspecified file>(1): expected value"},
    {1, kChannel, "GET request received error response. ", Sign::kTaskIsError, 0, 0, ""},
    {1, kChannel, "The successful GET request's response has no property \"TaskState\"! ",
     Sign::kTaskWithoutState, 0, 0, ""},
    {1, kChannel, "The task \"/t/1\" encounters exception or other unexpected error. ",
     Sign::kTaskBroken, 0, 0, "/t/1"},
    {1, kChannel,
     "Connection error occurred while trying to GET the state of the task: \"/t/1\" from KTC via Redfish. ",
     Sign::kConnectionLost, 0, 0, "/t/1"},
    {1, kChannel, "Could not find FFDC log's path in sftp or internal.", Sign::kNoArchivePath, 0, 0,
     ""},
    {1, kChannel, "Invalid auth token", Sign::kNoToken, 0, 0, ""},
    {1, kChannel, "Invalid uri no host", Sign::kBadUri, 0, 0, "no host"},
    {1, kChannel, "Failed to download ffdc log, error is generic:28 No space left on device",
     Sign::kTransferFailed, 0, 0, "generic:28 No space left on device"},
};

TEST(FindRedfishSign, EveryRecordOfTheTableIsUnderstood) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        const auto finding = FindRedfishSign({row.level, row.source, 1, text});
        ASSERT_TRUE(finding.has_value()) << row.text;
        EXPECT_EQ(finding->sign, row.sign) << row.text;
        EXPECT_EQ(finding->curlCode, row.curlCode) << row.text;
        EXPECT_EQ(finding->httpCode, row.httpCode) << row.text;
        EXPECT_EQ(finding->text, row.rest) << row.text;
    }
}

TEST(FindRedfishSign, AnotherLevelOrAnotherSourceIsAnotherRecord) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        EXPECT_FALSE(FindRedfishSign({row.level, "src/module/kvs/ffdc/ffdc", 1, text})) << row.text;
        const auto other = FindRedfishSign({row.level % 4 + 1, row.source, 1, text});
        EXPECT_FALSE(other && other->sign == row.sign) << row.text;
    }
}

TEST(FindRedfishSign, BodiesThatImitateARecordStayBodies) {
    const std::string text =
        "curlCode: 0, httpCode: 404, body:\nRest response error: curlCode: 7, httpCode:0, body:\nx";
    const auto finding = FindRedfishSign({4, kChannel, 1, text});
    ASSERT_TRUE(finding.has_value());
    EXPECT_EQ(finding->sign, Sign::kProbed);
    EXPECT_EQ(finding->curlCode, 0);
    EXPECT_EQ(finding->httpCode, 404);
}

TEST(FindRedfishSign, RecordsThatTellNothingAreNothing) {
    for (const char* text : {"", "Calling constructor of KEMFfdcRedfishImpl", "The task \"",
                             "Successfully post info to https://h:1/x"}) {
        const std::string copy = text;
        EXPECT_FALSE(FindRedfishSign({4, kChannel, 1, copy})) << text;
    }
}

int Eighty() { return 80; }

class ListenerTest : public testing::Test {
protected:
    std::vector<Sign> Signs() {
        std::vector<Sign> signs;
        for (const Finding& finding : m_listener.Take()) signs.push_back(finding.sign);
        return signs;
    }

    std::ostringstream m_out;
    Kemffdc::Progress m_progress{m_out, false, Eighty};
    RedfishListener m_listener{m_progress};
};

TEST_F(ListenerTest, KeepsWhatTheLibraryLogsInOrderAndCountsARepetitionOnce) {
    m_progress.Step("gather");
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: b";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is newing, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";

    EXPECT_THAT(Signs(), testing::ElementsAre(Sign::kStarting, Sign::kTaskNew, Sign::kTaskRunning));
    EXPECT_THAT(Signs(), testing::IsEmpty());
    EXPECT_EQ(m_out.str(),
              "0:00  gather\n0:00  gather: BMC is starting (503)\n0:00  gather: task New\n"
              "0:00  gather: task Running\n");
}

TEST_F(ListenerTest, WhoeverWantsToKnowIsToldBeforeEachRequest) {
    int told = 0;
    RedfishListener listener(m_progress, [&] { ++told; });
    Log(4, kClient, 1).Stream() << "Redfish GET action on URL: https://192.0.2.1:443/redfish/v1/";
    EXPECT_EQ(told, 1);
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    EXPECT_EQ(told, 2) << "the request will be repeated";
    Log(4, kChannel, 1).Stream() << "curlCode: 0, httpCode: 404, body:\n";
    EXPECT_EQ(told, 2);
    for (const Finding& finding : listener.Take()) EXPECT_NE(finding.sign, Sign::kAsking);
}

TEST_F(ListenerTest, ABmcThatHasAnsweredBeforeIsBusyAndNotStarting) {
    m_progress.Step("export");
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    Log(4, kChannel, 1).Stream() << "curlCode: 0, httpCode: 404, body:\n";
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: b";

    EXPECT_EQ(
        m_out.str(),
        "0:00  export\n0:00  export: BMC is starting (503)\n0:00  export: BMC is busy (503)\n");
}

TEST_F(ListenerTest, KeepsTheNewestSixtyFour) {
    for (int i = 0; i < 100; ++i) {
        Log(3, kChannel, 1).Stream() << "The task \"/t\" is newing, please wait... ";
        Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";
    }
    Log(1, kChannel, 1).Stream() << "The task \"/t\" is killed. ";
    const std::vector<Sign> signs = Signs();
    EXPECT_EQ(signs.size(), 64U);
    EXPECT_EQ(signs.back(), Sign::kTaskKilled);
}

}  // namespace
