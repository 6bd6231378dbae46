// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Diagnosis.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Outcome;
using Kemffdc::Cim::DiagnoseConnect;
using Kemffdc::Cim::DiagnoseExport;
using Kemffdc::Cim::ExportedObject;
using Kemffdc::Cim::RunEvents;
using State = Kemffdc::Cim::ExportedObject::State;
using testing::HasSubstr;

void ExpectEnding(const Outcome& outcome, int code, const std::string& text) {
    EXPECT_EQ(outcome.code, code) << text;
    EXPECT_THAT(outcome.reason, HasSubstr(text));
}

ExportedObject Object(State state, const std::string& type = "1",
                      const std::string& returned = "") {
    return {"path" + type, type, state, returned, 0};
}

RunEvents With(std::vector<ExportedObject> objects, const std::string& failure = "") {
    RunEvents events;
    events.asked = "ZOR_FFDCData";
    events.services = 1;
    events.found = static_cast<unsigned>(objects.size());
    events.objects = std::move(objects);
    events.failure = failure;
    events.exportBroken = !failure.empty();
    return events;
}

RunEvents NotListed(const std::string& className, const std::string& failure) {
    RunEvents events;
    events.asked = className;
    events.failure = failure;
    return events;
}

TEST(CimDiagnoseConnect, ItsOneIsNotConnected) {
    EXPECT_TRUE(DiagnoseConnect(0, {}).Ok());
    ExpectEnding(DiagnoseConnect(1, NotListed("", "Cannot connect to h:1. Connection failed.")), 3,
                 "(Cannot connect to h:1. Connection failed).");
    ExpectEnding(DiagnoseConnect(-1, {}), 3, "(no reason given)");
}

TEST(CimDiagnoseExport, OneExportedObjectIsASuccess) {
    EXPECT_TRUE(DiagnoseExport(0, With({Object(State::kExported)})).Ok());
    EXPECT_TRUE(
        DiagnoseExport(0, With({Object(State::kSkipped, "4"), Object(State::kExported)})).Ok());
}

TEST(CimDiagnoseExport, ExportingNothingIsNoSuccess) {
    ExpectEnding(DiagnoseExport(0, With({})), 4, "has no data objects");
    ExpectEnding(DiagnoseExport(0, With({Object(State::kSkipped, "4")})), 4,
                 "only data objects of type 4");
}

struct ReturnRow {
    int code;
    const char* returned;
    const char* text;
};

TEST(CimDiagnoseExport, ARefusalNamesObjectAndReturnValue) {
    const ReturnRow rows[] = {
        {4, "3",
         "object 2 of 2 (path2, type 2): ExportData returned 3 (a timeout). 1 object was exported"},
        {5, "5", "ExportData returned 5 (an invalid parameter)."},
        {6, "6", "ExportData returned 6 (in use, perhaps by another export)."},
        {2, "1", "ExportData returned 1 (not supported)."},
        {2, "2", "ExportData returned 2 (an error of no known kind)."},
        {2, "4", "ExportData returned 4 (failed)."},
        {2, "4096",
         "ExportData returned 4096 (a job was started). 1 object was exported before. The BMC may go on by itself"},
        {2, "32768", "ExportData returned 32768."},
        {2, "0", "returned 0, but not as the uint32 that means success"},
        {2, "", "ExportData returned no value"},
        {2, "TRUE", "ExportData returned TRUE."},
    };
    for (const ReturnRow& row : rows) {
        ExpectEnding(DiagnoseExport(row.code, With({Object(State::kExported),
                                                    Object(State::kRefused, "2", row.returned)})),
                     4, row.text);
    }
}

struct BrokenRow {
    const char* failure;
    int code;
    const char* text;
};

TEST(CimDiagnoseExport, ABrokenExportIsJudgedByWhatTheClientSays) {
    const BrokenRow rows[] = {
        {"connection timed out", 6, "has not finished object 1 of 1 (path1, type 1) within 20"},
        {"Connection closed by CIM Server.", 3, "was lost while it exported object 1 of 1"},
        {"Cannot connect to h:1. Connection failed.", 3, "was lost"},
        {"not connected", 3, "was lost"},
        {"HTTP Error (401 Unauthorized).", 3, "does not accept the credentials any more"},
        {"Invalid Authorization header", 3, "does not accept the credentials any more"},
        {"HTTP Error (503 Service Unavailable).", 4, "failed (HTTP Error (503 Service Unavail"},
        {"CIM_ERR_FAILED: disk full on <store>", 4, "(CIM_ERR_FAILED: disk full on <store>)"},
        {"CIM_ERR_FAILED: connection timed out", 4, "object 1 of 1 (path1, type 1) failed"},
    };
    for (const BrokenRow& row : rows) {
        for (const int code : {1, 2}) {
            ExpectEnding(DiagnoseExport(code, With({Object(State::kFailed)}, row.failure)),
                         row.code, row.text);
        }
    }
}

TEST(CimDiagnoseExport, AListThatCannotBeHadIsJudgedByWhatTheClientSays) {
    const BrokenRow rows[] = {
        {"connection timed out", 3, "list of ZOR_FFDCData objects within 5 minutes"},
        {"Connection closed by CIM Server.", 3, "was lost while it sent its list"},
        {"not connected", 3, "was lost"},
        {"HTTP Error (401 Unauthorized).", 3, "does not accept the credentials any more"},
        {"HTTP Error (400 Bad Request).", 4, "(HTTP Error (400 Bad Request))."},
        {"Validation error: on line 1: x", 4, "usable list of ZOR_FFDCData objects (Valid"},
        {"", 4, "(no reason given)"},
    };
    for (const BrokenRow& row : rows) {
        ExpectEnding(DiagnoseExport(1, NotListed("ZOR_FFDCData", row.failure)), row.code, row.text);
    }
}

TEST(CimDiagnoseExport, WithoutAServiceObjectNobodyCanBeAsked) {
    RunEvents events = NotListed("ZOR_FFDCService", "");
    events.services = 0;
    ExpectEnding(DiagnoseExport(1, events), 4, "no object of class ZOR_FFDCService");
}

}  // namespace
