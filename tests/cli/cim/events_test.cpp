// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Events.h"

#include <gmock/gmock.h>

#include <atomic>
#include <ostream>
#include <sstream>

#include "Log.h"
#include "cli/report/Json.h"
#include "cli/terminal/Progress.h"

namespace {

using namespace std::chrono_literals;
using Kemffdc::JsonText;
using Kemffdc::Cim::EventKind;
using Kemffdc::Cim::ExportedObject;
using Kemffdc::Cim::Listener;
using Kemffdc::Cim::ReadEvent;
using Kemffdc::Cim::RunEvents;
using Kemffdc::Cim::RunTracker;
using State = Kemffdc::Cim::ExportedObject::State;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdc_impl";
constexpr char kHelpers[] = "src/common/cimom/src/cimfunc";

struct RecordRow {
    int level;
    const char* source;
    const char* text;
    EventKind kind;
    const char* rest;
};

// As the library writes them.
const RecordRow kRows[] = {
    {3, kHelpers, "Connecting to admin:**********@192.0.2.10:5989", EventKind::kConnecting,
     "admin:**********@192.0.2.10:5989"},
    {3, kHelpers, "Cimserver connection succeeded ", EventKind::kConnected, ""},
    {1, kHelpers,
     "Failed to connect remote cimserver with the reason: Cannot connect to h:1. Connection failed.",
     EventKind::kNotConnected, "Cannot connect to h:1. Connection failed."},
    {3, kHelpers, "The value of class name is:ZOR_FFDCData", EventKind::kClass, "ZOR_FFDCData"},
    {3, kHelpers, "The size of ei_array is:3", EventKind::kFound, "3"},
    {1, kHelpers, "Enumerate instances failed with the reason: connection timed out",
     EventKind::kNotEnumerated, "connection timed out"},
    {4, kChannel, "EnumerateInstances ZOR_FFDCService Failed!", EventKind::kNoService, ""},
    {4, kChannel, "EnumerateInstances ZOR_FFDCData Failed!", EventKind::kNoData, ""},
    {4, kHelpers, "Showing properties for ZOR_FFDCData.InstanceID=\"x\"", EventKind::kObject,
     "ZOR_FFDCData.InstanceID=\"x\""},
    {4, kHelpers, "DataCollectionType = 1 with raw data (1)", EventKind::kType,
     "1 with raw data (1"},
    {1, kChannel, "ExportData rev = 3\n", EventKind::kReturned, "3"},
    {1, kChannel, "ExportData rev = \n", EventKind::kReturned, ""},
    {1, kChannel, "invokeMethod return exeption: CIM_ERR_FAILED: disk full on <store>",
     EventKind::kExportBroken, "CIM_ERR_FAILED: disk full on <store>"},
    {1, kChannel, "Invalid uploading_uri_.filestore_uri_ : ftp://x\n", EventKind::kBadUri,
     "ftp://x"},
};

TEST(CimReadEvent, EveryRecordOfTheTableIsUnderstood) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        const auto event = ReadEvent({row.level, row.source, 1, text});
        ASSERT_TRUE(event.has_value()) << row.text;
        EXPECT_EQ(event->kind, row.kind) << row.text;
        EXPECT_EQ(event->text, row.rest) << row.text;
    }
}

TEST(CimReadEvent, AnotherLevelOrAnotherSourceIsAnotherRecord) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        EXPECT_FALSE(ReadEvent({row.level, "src/module/kvs/ffdc/ffdc", 1, text})) << row.text;
        EXPECT_FALSE(ReadEvent({row.level % 4 + 1, row.source, 1, text})) << row.text;
    }
}

TEST(CimReadEvent, RecordsThatTellNothingAreNothing) {
    for (const char* text :
         {"", "connection case is 2", "Property DataCollectionType is not found!",
          " processing value maps ...", "_1-Full_"}) {
        const std::string copy = text;
        EXPECT_FALSE(ReadEvent({4, kHelpers, 1, copy})) << text;
    }
}

// A run of the library, told to a tracker by its records; a second passes between two of them.
class CimRunTrackerTest : public testing::Test {
protected:
    void Tell(EventKind kind, const std::string& text = "") {
        m_now += 1s;
        m_tracker.Take({kind, text}, m_now);
    }
    void FindObjects(const std::string& services, const std::string& data) {
        Tell(EventKind::kClass, "ZOR_FFDCService");
        Tell(EventKind::kFound, services);
        Tell(EventKind::kClass, "ZOR_FFDCData");
        Tell(EventKind::kFound, data);
    }
    void TryObject(const std::string& path, const std::string& type) {
        Tell(EventKind::kObject, path);
        Tell(EventKind::kType, type + " with raw data (" + type);
    }
    void End(bool success) { m_tracker.End(success, m_now + 1s); }
    const RunEvents& Events() { return m_tracker.Events(); }
    std::vector<State> States() {
        std::vector<State> states;
        for (const ExportedObject& object : Events().objects) states.push_back(object.state);
        return states;
    }

    RunTracker m_tracker;
    RunTracker::Time m_now;
};

TEST_F(CimRunTrackerTest, ObjectsBeforeTheNextOneAndAtAGoodEndAreExported) {
    FindObjects("1", "2");
    TryObject("p1", "1");
    TryObject("p2", "2");
    End(true);

    EXPECT_EQ(Events().services, 1U);
    EXPECT_EQ(Events().found, 2U);
    EXPECT_THAT(States(), ElementsAre(State::kExported, State::kExported));
    EXPECT_EQ(Events().objects[0].path, "p1");
    EXPECT_EQ(Events().objects[1].type, "2");
    EXPECT_DOUBLE_EQ(Events().objects[0].seconds, 2);
    EXPECT_DOUBLE_EQ(Events().objects[1].seconds, 2);
}

TEST_F(CimRunTrackerTest, ObjectsOfTypeFourAreSkippedAlsoTheLastOne) {
    FindObjects("1", "3");
    TryObject("p1", "4");
    TryObject("p2", "1");
    TryObject("p3", "4");
    End(true);
    EXPECT_THAT(States(), ElementsAre(State::kSkipped, State::kExported, State::kSkipped));
}

TEST_F(CimRunTrackerTest, TypesThatOnlyBeginWithAFourAreExported) {
    FindObjects("1", "1");
    TryObject("p1", "42");
    End(true);
    EXPECT_THAT(States(), ElementsAre(State::kExported));
}

TEST_F(CimRunTrackerTest, AnObjectWithoutATypeIsExportedAllTheSame) {
    FindObjects("1", "1");
    Tell(EventKind::kObject, "p1");
    End(true);
    EXPECT_THAT(States(), ElementsAre(State::kExported));
    EXPECT_EQ(Events().objects[0].type, "");
}

TEST_F(CimRunTrackerTest, ARefusedObjectKeepsItsValueAndThoseBehindItWereNotTried) {
    FindObjects("1", "4");
    TryObject("p1", "1");
    TryObject("p2", "2");
    Tell(EventKind::kReturned, "3");
    End(false);
    EXPECT_THAT(States(),
                ElementsAre(State::kExported, State::kRefused, State::kNotTried, State::kNotTried));
    EXPECT_EQ(Events().objects[1].returned, "3");
    EXPECT_FALSE(Events().exportBroken);
}

TEST_F(CimRunTrackerTest, ABrokenExportKeepsItsReasonWhenReconnectingFailsToo) {
    FindObjects("1", "1");
    TryObject("p1", "1");
    Tell(EventKind::kExportBroken, "Connection closed by CIM Server.");
    Tell(EventKind::kConnecting, "");
    Tell(EventKind::kNotConnected, "Cannot connect to h:1. Connection failed.");
    End(false);
    EXPECT_THAT(States(), ElementsAre(State::kFailed));
    EXPECT_TRUE(Events().exportBroken);
    EXPECT_EQ(Events().failure, "Connection closed by CIM Server.");
}

TEST_F(CimRunTrackerTest, FailedEnumerationsKeepTheClassAndTheReason) {
    Tell(EventKind::kClass, "ZOR_FFDCService");
    Tell(EventKind::kNotEnumerated, "HTTP Error (401 Unauthorized).");
    End(false);
    EXPECT_EQ(Events().asked, "ZOR_FFDCService");
    EXPECT_EQ(Events().failure, "HTTP Error (401 Unauthorized).");
    EXPECT_THAT(Events().objects, IsEmpty());
}

TEST_F(CimRunTrackerTest, WhatABmcNamesItsObjectsIsFitForDisplay) {
    FindObjects("1", "1");
    TryObject("p\x1b[2J\n", "1\x07");
    EXPECT_EQ(Events().objects[0].path, "p\\x1B[2J ");
    EXPECT_EQ(Events().objects[0].type, "1\\x07");
}

TEST_F(CimRunTrackerTest, RecordsOutOfOrderAreNoTrouble) {
    Tell(EventKind::kType, "1 with raw data (1");
    Tell(EventKind::kReturned, "3");
    Tell(EventKind::kExportBroken, "x");
    Tell(EventKind::kFound, "many");
    End(true);
    EXPECT_THAT(Events().objects, IsEmpty());
    EXPECT_FALSE(Events().found.has_value());
}

TEST_F(CimRunTrackerTest, ProgressCountsTheObjectsAndNamesTheBound) {
    FindObjects("1", "3");
    TryObject("p1", "1");
    EXPECT_EQ(Kemffdc::Cim::ObjectProgress(Events()),
              "object 1 of 3 (type 1): the BMC gathers and uploads, for up to 20 minutes");
    TryObject("p2", "4");
    EXPECT_EQ(Kemffdc::Cim::ObjectProgress(Events()), "object 2 of 3 (type 4): skipped");
}

int Eighty() { return 80; }

void Write(int level, const char* source, const char* text) {
    Log(level, source, 1).Stream() << text;
}

TEST(CimListenerTest, ShowsEachObjectAndCompletesTheAccountAtTheEnd) {
    Varnex::SetLogLevel(0);
    std::ostringstream shown;
    Kemffdc::Options options;
    options.via = "cim";
    Kemffdc::Report report(options);
    {
        Kemffdc::Progress progress(shown, false, Eighty);
        progress.Step("export");
        std::atomic<bool> gathers{false};
        Listener listener(progress, report, gathers);
        Write(3, kHelpers, "The value of class name is:ZOR_FFDCData");
        Write(3, kHelpers, "The size of ei_array is:2");
        Write(4, kHelpers, "Showing properties for p1");
        Write(4, kHelpers, "DataCollectionType = 1 with raw data (1)");
        Write(4, kHelpers, "Showing properties for p2");
        Write(4, kHelpers, "DataCollectionType = 4 with raw data (4)");
        const RunEvents events = listener.End(true);
        EXPECT_EQ(events.objects.size(), 2U);
        EXPECT_FALSE(gathers);
    }
    EXPECT_THAT(shown.str(), HasSubstr("export: looking for ZOR_FFDCData\n"));
    EXPECT_THAT(shown.str(), HasSubstr("export: object 1 of 2 (type 1): the BMC gathers"));
    EXPECT_THAT(shown.str(), HasSubstr("export: object 2 of 2 (type 4): skipped\n"));
    const std::string told = JsonText(RunObject(*report.End({})));
    EXPECT_THAT(told, HasSubstr(R"("path":"p1","collection_type":"1","outcome":"exported")"));
    EXPECT_THAT(told, HasSubstr(R"("path":"p2","collection_type":"4","outcome":"skipped")"));
}

TEST(CimListenerTest, WhoeverWantsToKnowIsToldBeforeEachRequest) {
    Varnex::SetLogLevel(0);
    std::ostringstream shown;
    Kemffdc::Options options;
    Kemffdc::Report report(options);
    Kemffdc::Progress progress(shown, false, Eighty);
    std::atomic<bool> gathers{false};
    int told = 0;
    const Listener listener(progress, report, gathers, [&] { ++told; });
    Write(3, kHelpers, "The value of class name is:ZOR_FFDCData");
    EXPECT_EQ(told, 1);
    Write(3, kHelpers, "The size of ei_array is:2");
    EXPECT_EQ(told, 1);
    Write(4, kHelpers, "Showing properties for p1");
    EXPECT_EQ(told, 2);
    Write(4, kHelpers, "DataCollectionType = 1 with raw data (1)");
    EXPECT_EQ(told, 2);
}

TEST(CimListenerTest, AnObjectThatIsNotDoneWhenTheRunIsAbandonedSaysSo) {
    Varnex::SetLogLevel(0);
    std::ostringstream shown;
    Kemffdc::Options options;
    options.via = "cim";
    Kemffdc::Report report(options);
    Kemffdc::Progress progress(shown, false, Eighty);
    std::atomic<bool> gathers{false};
    const Listener listener(progress, report, gathers);
    EXPECT_FALSE(gathers);
    Write(4, kHelpers, "Showing properties for p1");
    EXPECT_TRUE(gathers);

    const auto interrupted = Kemffdc::Failure(Kemffdc::kInterrupted, "Interrupted.");
    EXPECT_THAT(JsonText(RunObject(*report.End(interrupted))),
                HasSubstr(R"("outcome":"not-ended","return_value":null)"));
}

}  // namespace
