// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <chrono>
#include <ostream>
#include <sstream>

#include "Clock.h"
#include "Log.h"
#include "cli/redfish/Events.h"
#include "cli/terminal/Progress.h"

namespace {

using Kemffdc::Redfish::Event;
using Kemffdc::Redfish::EventKind;
using Kemffdc::Redfish::Listener;
using Kemffdc::Redfish::ReadEvent;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcredfish_impl";
constexpr char kClient[] = "src/common/rest/RedfishClient";

struct RecordRow {
    int level;
    const char* source;
    const char* text;
    EventKind kind;
    int curlCode;
    int httpCode;
    const char* rest;
};

// As the library writes them.
const RecordRow kRows[] = {
    {4, kClient, "curlCode: 0 | httpCode: 503 | body: wait", EventKind::kStarting, 0, 503, "wait"},
    {2, kChannel, "Failed to get redfish version, curlCode: 28, httpCode: 0, body:\n",
     EventKind::kVersionFailed, 28, 0, ""},
    {2, kChannel, "Failed to get redfish version, curlCode: 0, httpCode: 503, body:\nnot yet",
     EventKind::kVersionFailed, 0, 503, "not yet"},
    {4, kChannel, "curlCode: 0, httpCode: 404, body:\n{}", EventKind::kProbed, 0, 404, "{}"},
    {1, kChannel, "curlCode: 0, httpCode: 401, body:\nno", EventKind::kPostFailed, 0, 401, "no"},
    {4, kChannel, "Entered SaveTaskId(), parameter strResponse = {\"Id\":\"1\"}",
     EventKind::kExportAnswered, 0, 0, "{\"Id\":\"1\"}"},
    {4, kChannel, "property Id found. ", EventKind::kTaskNamed, 0, 0, ""},
    {2, kChannel, "Rest response error: curlCode: 7, httpCode:0, body:\n", EventKind::kPollFailed,
     7, 0, ""},
    {2, kChannel, "Rest response error: curlCode: 0, httpCode:500, body:\nx",
     EventKind::kPollFailed, 0, 500, "x"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is newing, please wait... ",
     EventKind::kTaskNew, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is starting, please wait... ",
     EventKind::kTaskStarting, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel, "The task \"/redfish/v1/TaskService/Tasks/1\" is running, please wait... ",
     EventKind::kTaskRunning, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {3, kChannel,
     "The task \"/redfish/v1/TaskService/Tasks/1\" is completed! Its FFDC file is available now. ",
     EventKind::kTaskCompleted, 0, 0, "/redfish/v1/TaskService/Tasks/1"},
    {1, kChannel, "The successful GET request's response shows \"TaskState\":\"Exception\"! ",
     EventKind::kTaskException, 0, 0, ""},
    {1, kChannel, "The successful GET request's response shows \"TaskState\":\"Killed\"! ",
     EventKind::kTaskKilled, 0, 0, ""},
    {1, kChannel, "The task \"/t/1\" is killed. ", EventKind::kTaskKilled, 0, 0, "/t/1"},
    {1, kChannel, "Failed to parse Jason object : <unspecified file>(1): expected value",
     EventKind::kTaskUnreadable, 0, 0, "<unspecified file>(1): expected value"},
    {1, kChannel, "GET request received error response. ", EventKind::kTaskIsError, 0, 0, ""},
    {1, kChannel, "The successful GET request's response has no property \"TaskState\"! ",
     EventKind::kTaskWithoutState, 0, 0, ""},
    {1, kChannel, "The task \"/t/1\" encounters exception or other unexpected error. ",
     EventKind::kTaskBroken, 0, 0, "/t/1"},
    {1, kChannel,
     "Connection error occurred while trying to GET the state of the task: \"/t/1\" from KTC via Redfish. ",
     EventKind::kConnectionLost, 0, 0, "/t/1"},
    {1, kChannel, "Could not find FFDC log's path in sftp or internal.", EventKind::kNoArchivePath,
     0, 0, ""},
    {1, kChannel, "Invalid auth token", EventKind::kNoToken, 0, 0, ""},
    {1, kChannel, "Invalid uri no host", EventKind::kBadUri, 0, 0, "no host"},
    {4, kChannel, "This version is older.", EventKind::kOlderPaths, 0, 0, ""},
};

TEST(RedfishReadEvent, EveryRecordOfTheTableIsUnderstood) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        const auto event = ReadEvent({row.level, row.source, 1, text});
        ASSERT_TRUE(event.has_value()) << row.text;
        EXPECT_EQ(event->kind, row.kind) << row.text;
        EXPECT_EQ(event->curlCode, row.curlCode) << row.text;
        EXPECT_EQ(event->httpCode, row.httpCode) << row.text;
        EXPECT_EQ(event->text, row.rest) << row.text;
    }
}

TEST(RedfishReadEvent, AnotherLevelOrAnotherSourceIsAnotherRecord) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        EXPECT_FALSE(ReadEvent({row.level, "src/module/kvs/ffdc/ffdc", 1, text})) << row.text;
        const auto other = ReadEvent({row.level % 4 + 1, row.source, 1, text});
        EXPECT_FALSE(other && other->kind == row.kind) << row.text;
    }
}

TEST(RedfishReadEvent, BodiesThatImitateARecordStayBodies) {
    const std::string text =
        "curlCode: 0, httpCode: 404, body:\nRest response error: curlCode: 7, httpCode:0, body:\nx";
    const auto event = ReadEvent({4, kChannel, 1, text});
    ASSERT_TRUE(event.has_value());
    EXPECT_EQ(event->kind, EventKind::kProbed);
    EXPECT_EQ(event->curlCode, 0);
    EXPECT_EQ(event->httpCode, 404);
}

TEST(RedfishReadEvent, RecordsThatTellNothingAreNothing) {
    for (const char* text : {"", "Calling constructor of KEMFfdcRedfishImpl", "The task \"",
                             "Successfully post info to https://h:1/x"}) {
        const std::string copy = text;
        EXPECT_FALSE(ReadEvent({4, kChannel, 1, copy})) << text;
    }
}

int Eighty() { return 80; }

class RedfishListenerTest : public testing::Test {
protected:
    std::vector<EventKind> Signs() {
        std::vector<EventKind> kinds;
        for (const Event& event : m_listener.Take()) kinds.push_back(event.kind);
        return kinds;
    }

    std::ostringstream m_out;
    Kemffdc::Progress m_progress{m_out, false, Eighty};
    Listener m_listener{m_progress};
};

TEST_F(RedfishListenerTest, KeepsWhatTheLibraryLogsInOrderAndCountsARepetitionOnce) {
    m_progress.Step("gather");
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: b";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is newing, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";

    EXPECT_THAT(Signs(), testing::ElementsAre(EventKind::kStarting, EventKind::kTaskNew,
                                              EventKind::kTaskRunning));
    EXPECT_THAT(Signs(), testing::IsEmpty());
    EXPECT_EQ(m_out.str(),
              "0:00  gather\n0:00  gather: BMC is starting (503)\n0:00  gather: task New\n"
              "0:00  gather: task Running\n");
}

TEST_F(RedfishListenerTest, WhoeverWantsToKnowIsToldBeforeEachRequest) {
    int told = 0;
    Listener listener(m_progress, {[&] { ++told; }, nullptr, nullptr});
    Log(4, kClient, 1).Stream() << "Redfish GET action on URL: https://192.0.2.1:443/redfish/v1/";
    EXPECT_EQ(told, 1);
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    EXPECT_EQ(told, 1) << "a pause comes first";
    Clock::SleepFor(std::chrono::milliseconds(1));
    EXPECT_EQ(told, 2) << "the request is repeated now";
    Clock::SleepFor(std::chrono::milliseconds(1));
    Log(4, kChannel, 1).Stream() << "curlCode: 0, httpCode: 404, body:\n";
    EXPECT_EQ(told, 2);
    for (const Event& event : listener.Take()) EXPECT_NE(event.kind, EventKind::kAsking);
}

TEST_F(RedfishListenerTest, TellsWhetherTheTaskGoesOnOrHasEnded) {
    std::string goesOn;
    int ended = 0;
    const Listener listener(
        m_progress,
        {nullptr, [&](const char* state) { goesOn.append(" ").append(state); }, [&] { ++ended; }});
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is newing, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is starting, please wait... ";
    Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";
    EXPECT_EQ(goesOn, " New Starting Running");
    EXPECT_EQ(ended, 0);
    Log(1, kChannel, 1).Stream() << "The task \"/t\" is killed. ";
    EXPECT_EQ(goesOn, " New Starting Running");
    EXPECT_EQ(ended, 1);
}

TEST_F(RedfishListenerTest, ABmcThatHasAnsweredBeforeIsBusyAndNotStarting) {
    m_progress.Step("export");
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: a";
    Log(4, kChannel, 1).Stream() << "curlCode: 0, httpCode: 404, body:\n";
    Log(4, kClient, 1).Stream() << "curlCode: 0 | httpCode: 503 | body: b";

    EXPECT_EQ(
        m_out.str(),
        "0:00  export\n0:00  export: BMC is starting (503)\n0:00  export: BMC is busy (503)\n");
}

TEST_F(RedfishListenerTest, KeepsTheNewestSixtyFour) {
    for (int i = 0; i < 100; ++i) {
        Log(3, kChannel, 1).Stream() << "The task \"/t\" is newing, please wait... ";
        Log(3, kChannel, 1).Stream() << "The task \"/t\" is running, please wait... ";
    }
    Log(1, kChannel, 1).Stream() << "The task \"/t\" is killed. ";
    const std::vector<EventKind> kinds = Signs();
    EXPECT_EQ(kinds.size(), 64U);
    EXPECT_EQ(kinds.back(), EventKind::kTaskKilled);
}

}  // namespace
