// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Diagnosis.h"

#include <gmock/gmock.h>

#include "Transfer.h"

#include "cli/redfish/Options.h"

namespace {

using namespace std::chrono_literals;
using Kemffdc::Options;
using Kemffdc::Outcome;
using Kemffdc::Redfish::Event;
using Kemffdc::Redfish::EventKind;
using Kemffdc::Redfish::Events;
using testing::HasSubstr;

void ExpectEnding(const Outcome& outcome, int code, const std::string& text) {
    EXPECT_EQ(outcome.code, code) << text;
    EXPECT_THAT(outcome.reason, HasSubstr(text));
}

TEST(RedfishDiagnoseStart, WithoutAFailureTheBmcHasStarted) {
    EXPECT_TRUE(Kemffdc::Redfish::DiagnoseStart({{EventKind::kStarting, 0, 503, ""}}, 10s).Ok());
    EXPECT_TRUE(Kemffdc::Redfish::DiagnoseStart({}, 0s).Ok());
}

TEST(RedfishDiagnoseStart, FailuresAreNotConnected) {
    ExpectEnding(Kemffdc::Redfish::DiagnoseStart({{EventKind::kVersionFailed, 0, 503, ""}}, 183s),
                 3, "still starting (503) after 183 s");
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseStart({{EventKind::kVersionFailed, 0, 503, "<html>"}}, 3s), 3,
        "needs a reset. A gateway before the BMC may have answered in its place.");
    ExpectEnding(Kemffdc::Redfish::DiagnoseStart({{EventKind::kVersionFailed, 0, 401, ""}}, 0s), 3,
                 "credentials (HTTP 401)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseStart({{EventKind::kVersionFailed, 28, 0, ""}}, 60s), 3,
                 "Timeout was reached");
}

TEST(RedfishDiagnoseConnect, AnAnswerOfAnyOtherKindIsAConnection) {
    for (const int http : {200, 404, 400, 500}) {
        EXPECT_TRUE(Kemffdc::Redfish::DiagnoseConnect(0, {{EventKind::kProbed, 0, http, ""}}).Ok())
            << http;
    }
}

TEST(RedfishDiagnoseConnect, WhatTheLibraryCallsASuccessMayBeNone) {
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(0, {{EventKind::kProbed, 28, 0, ""}}), 3,
                 "Timeout was reached");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(0, {{EventKind::kProbed, 0, 401, ""}}), 3,
                 "credentials (HTTP 401)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(0, {{EventKind::kProbed, 0, 403, ""}}), 3,
                 "credentials (HTTP 403)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(0, {{EventKind::kProbed, 0, 503, ""}}), 3,
                 "still starting (503)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(1, {{EventKind::kProbed, 7, 0, ""}}), 3,
                 "connection to the BMC was lost");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(1, {{EventKind::kProbed, 0, 200, ""}}), 3,
                 "credentials (HTTP 200)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(-1, {}), 3, "no connection");
}

TEST(RedfishDiagnoseExport, ATaskWithAnOrdinaryIdCanBeFollowed) {
    for (const char* id : {"\"1\"", "\"TASK-7_a.b~c\"", "12", "\"a:b@c\""}) {
        const Events events{{EventKind::kExportAnswered, 0, 0, std::string("{\"Id\":") + id + "}"},
                            {EventKind::kTaskNamed, 0, 0, ""}};
        EXPECT_TRUE(Kemffdc::Redfish::DiagnoseExport(0, "", events).Ok()) << id;
    }
}

TEST(RedfishDiagnoseExport, AnIdThatWouldBendTheAddressIsRefused) {
    for (const char* id :
         {"\"\"", "\".\"", "\"..\"", "\"a/b\"", "\"../x\"", "\"a b\"", "\"a?b\"", "\"a#b\"",
          "\"%2e%2e\"", "\"a\\nb\"", "\"a\\u0000b\"", "{}", "[1]", "true"}) {
        const Events events{{EventKind::kExportAnswered, 0, 0, std::string("{\"Id\":") + id + "}"},
                            {EventKind::kTaskNamed, 0, 0, ""}};
        ExpectEnding(Kemffdc::Redfish::DiagnoseExport(0, "", events), 4, "an Id that is no name");
    }
}

TEST(RedfishDiagnoseExport, RefusalsTellWhatTheBmcSaid) {
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseExport(
            2, "", {{EventKind::kPostFailed, 0, 400, "{\"error\":{\"message\":\"busy\"}}"}}),
        4, "refused the export (HTTP 400: busy)");
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseExport(
            2, "",
            {{EventKind::kPostFailed, 0, 403,
              "{\"error\":{\"message\":\"see below\",\"@Message.ExtendedInfo\":[7,{},{\"Message\":\"no right\"}]}}"}}),
        4, "refused the export (HTTP 403: no right). The account may lack the right to it.");
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseExport(2, "", {{EventKind::kPostFailed, 0, 500, "<html>"}}), 4,
        "(HTTP 500)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseExport(2, "", {{EventKind::kPostFailed, 0, 401, ""}}), 3,
                 "credentials (HTTP 401)");
    ExpectEnding(Kemffdc::Redfish::DiagnoseExport(2, "", {{EventKind::kPostFailed, 56, 0, ""}}), 3,
                 "connection to the BMC was lost");
    ExpectEnding(Kemffdc::Redfish::DiagnoseExport(2, "", {}), 4, "could not be requested");
    ExpectEnding(Kemffdc::Redfish::DiagnoseExport(-1, "expected value\x1b[2J", {}), 4,
                 "(expected value\\x1B[2J)");
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseExport(-1, "<unspecified file>: more than 65536 values", {}), 4,
        "its answer is too large to be read (more than 65536 values): there is no task");
    ExpectEnding(
        Kemffdc::Redfish::DiagnoseExport(0, "", {{EventKind::kExportAnswered, 0, 0, "{}"}}), 4,
        "named no task");
}

TEST(RedfishDiagnoseExport, ABusyBmcAndOneWithoutTheOperationAreToldApart) {
    ExpectEnding(Kemffdc::Redfish::DiagnoseExport(2, "", {{EventKind::kPostFailed, 0, 503, ""}}), 4,
                 "The BMC is busy (HTTP 503), perhaps with another export.");
    for (const int http : {404, 405, 501}) {
        ExpectEnding(
            Kemffdc::Redfish::DiagnoseExport(2, "", {{EventKind::kPostFailed, 0, http, ""}}), 4,
            "no such operation as the export of service data (HTTP " + std::to_string(http) + ")");
    }
}

// Neither the connection nor the BMC's state is at fault, and no step says so.
TEST(RedfishEveryDiagnosis, TellsWhatFailedWhereItWasNotTheConnection) {
    struct Row {
        int curlCode;
        bool local;
        const char* words;
    };
    const Row rows[] = {
        {23, false, "is too large to be taken (cut at 16 MiB)"},
        {1, false, "with a redirect away from HTTPS, which is not followed"},
        {43, false, "begins with a malformed header line"},
        {47, false, "with redirects without end"},
        {27, true, "This machine has no memory left for "},
        {2, true, "This machine has no memory left for "},
    };
    for (const Row& row : rows) {
        const auto failed = [&](EventKind kind) {
            return Events{{kind, row.curlCode, -1, "cut at 16 MiB"}};
        };
        const auto code = [&](int own) { return row.local ? 8 : own; };
        ExpectEnding(Kemffdc::Redfish::DiagnoseStart(failed(EventKind::kVersionFailed), 0s),
                     code(3), row.words);
        ExpectEnding(Kemffdc::Redfish::DiagnoseConnect(0, failed(EventKind::kProbed)), code(3),
                     row.words);
        ExpectEnding(Kemffdc::Redfish::DiagnoseExport(2, "", failed(EventKind::kPostFailed)),
                     code(4), row.words);
        ExpectEnding(Kemffdc::Redfish::DiagnoseWait({false, "", 120},
                                                    failed(EventKind::kPollFailed), Options()),
                     code(5), row.words);
        ExpectEnding(Kemffdc::Redfish::DiagnoseDownload({2}, failed(EventKind::kPostFailed)),
                     code(7), row.words);
    }
}

TEST(RedfishDiagnoseWait, ATaskWhoseAddressIsTooLongIsNotALostConnection) {
    ExpectEnding(Kemffdc::Redfish::DiagnoseWait(
                     {false, "", 120},
                     {{EventKind::kPollFailed, 3, -1, "Address too long: more than 65536 bytes"}},
                     Options()),
                 5, "an Id that cannot be asked for (Address too long: more than 65536 bytes)");
}

class RedfishDiagnoseWaitTest : public testing::Test {
protected:
    Outcome Diagnose(const Events& events, int asked = 120,
                     std::optional<Kemffdc::Task> task = std::nullopt) {
        return Kemffdc::Redfish::DiagnoseWait({false, "", asked, std::move(task)}, events,
                                              m_options);
    }
    Options m_options;
};

TEST_F(RedfishDiagnoseWaitTest, CompletedNeedsAPlaceOfTheArchive) {
    EXPECT_TRUE(Kemffdc::Redfish::DiagnoseWait({true, "/x", 1}, {}, m_options).Ok());
    ExpectEnding(Kemffdc::Redfish::DiagnoseWait({true, "", 1}, {}, m_options), 7,
                 "does not tell where the archive lies");
}

TEST_F(RedfishDiagnoseWaitTest, FailedIsNotTheSameAsNotFinished) {
    const Event running{EventKind::kTaskRunning, 0, 0, "/t"};
    const Event broken{EventKind::kTaskBroken, 0, 0, "/t"};
    ExpectEnding(Diagnose({running}), 6, "after 120 tries every 5 s");
    ExpectEnding(Diagnose({{EventKind::kTaskNew, 0, 0, "/t"}}), 6, "has not finished");
    ExpectEnding(Diagnose({{EventKind::kTaskStarting, 0, 0, "/t"}}), 6, "has not finished");
    ExpectEnding(Diagnose({running, {EventKind::kPollFailed, 28, 0, ""}}), 6, "has not finished");
    ExpectEnding(Diagnose({running, {EventKind::kTaskKilled, 0, 0, "/t"}}), 5, "killed");
    ExpectEnding(Diagnose({running, {EventKind::kTaskException, 0, 0, ""}, broken}), 5,
                 "exception");
    ExpectEnding(Diagnose({running, {EventKind::kTaskUnreadable, 0, 0, "bad"}, broken}), 5,
                 "not readable JSON (bad)");
    ExpectEnding(
        Diagnose({running,
                  {EventKind::kTaskUnreadable, 0, 0, "<unspecified file>: more than 65536 values"},
                  broken}),
        5, "is too large to be read (more than 65536 values)");
    ExpectEnding(
        Diagnose({running,
                  {EventKind::kTaskUnreadable, 0, 0, "<unspecified file>(7): expected value"},
                  broken}),
        5, "not readable JSON (line 7: expected value)");
    ExpectEnding(Diagnose({running, {EventKind::kTaskIsError, 0, 0, ""}, broken}), 5,
                 "answers with an error");
    ExpectEnding(Diagnose({running, {EventKind::kTaskWithoutState, 0, 0, ""}, broken}), 5,
                 "no TaskState");
    ExpectEnding(Diagnose({running, broken}), 5, "in a state that is not known");
}

TEST_F(RedfishDiagnoseWaitTest, AnExceptionIsNoStateOfTheTask) {
    const Event running{EventKind::kTaskRunning, 0, 0, "/t"};
    ExpectEnding(Diagnose({running, {EventKind::kWaitThrew, 0, 0, "std::bad_alloc"}}), 8,
                 "This machine ran out of memory while it followed the task.");
    ExpectEnding(Diagnose({running, {EventKind::kWaitThrew, 0, 0, "odd"}}), 5,
                 "The task could not be followed to its end (odd).");
}

TEST_F(RedfishDiagnoseWaitTest, WhoGivesUpWithoutAWordHasNoMemoryLeft) {
    const Events running{{EventKind::kTaskRunning, 0, 0, "/t"}};
    ExpectEnding(Diagnose(running, 119), 8, "ran out of memory");
    ExpectEnding(Diagnose({}, 1), 8, "ran out of memory");
    ExpectEnding(Diagnose(running, 120), 6, "has not finished");
}

TEST_F(RedfishDiagnoseWaitTest, LostTasksAreJudgedByTheLastAnswer) {
    const Event lost{EventKind::kConnectionLost, 0, 0, "/t"};
    ExpectEnding(Diagnose({{EventKind::kPollFailed, 7, 0, ""}, lost}), 3,
                 "connection to the BMC was lost");
    ExpectEnding(Diagnose({{EventKind::kPollFailed, 0, 401, ""}, lost}), 3,
                 "no longer accepts the credentials (HTTP 401)");
    ExpectEnding(Diagnose({{EventKind::kPollFailed, 0, 404, ""}, lost}), 5,
                 "what became of the task (HTTP 404)");
    ExpectEnding(Diagnose({{EventKind::kPollFailed, 0, 503, ""}}), 5, "HTTP 503");
    ExpectEnding(Diagnose({}), 5, "could not be followed");
}

TEST_F(RedfishDiagnoseWaitTest, TheBmcsOwnWordsComeAlong) {
    const Event running{EventKind::kTaskRunning, 0, 0, "/t"};
    const Event broken{EventKind::kTaskBroken, 0, 0, "/t"};
    const Kemffdc::Task task{"/t",
                             "Exception",
                             "Critical",
                             40,
                             {{"Base.1.12.AccessDenied", "The store denied access.", "Critical",
                               "Check the password."}}};
    const Outcome outcome =
        Diagnose({running, {EventKind::kTaskException, 0, 0, ""}, broken}, 3, task);
    EXPECT_EQ(
        outcome.reason,
        "The task ended with an exception on the BMC: the service data could not be gathered. "
        "The BMC says (TaskState Exception, TaskStatus Critical, 40 %): \"The store denied "
        "access.\" (Base.1.12.AccessDenied), advice: \"Check the password.\".");
    EXPECT_EQ(outcome.cause, Kemffdc::Cause::kStoreRefused);
    ExpectEnding(Diagnose({running, {EventKind::kTaskKilled, 0, 0, "/t"}}, 3, task), 5,
                 "gathers the service data. The BMC says (");
    ExpectEnding(Diagnose({running, broken}, 3, task), 5, "counts as failed. The BMC says (");
    ExpectEnding(Diagnose({running}, 120, task), 6, " s. The BMC says (");
}

TEST_F(RedfishDiagnoseWaitTest, WhatHasFinishedMeanwhileDoesNotGoOn) {
    const Kemffdc::Task task{"/t", "Completed", "OK", 100, {}};
    const Outcome outcome = Diagnose({{EventKind::kTaskRunning, 0, 0, "/t"}}, 120, task);
    EXPECT_EQ(outcome.code, 6);
    EXPECT_EQ(outcome.reason,
              "The BMC had not finished gathering after 120 tries every 5 s, but has meanwhile. "
              "Allow it more --tries or a longer --interval.");
}

TEST_F(RedfishDiagnoseWaitTest, WithoutThemItsOwnLogIsAllThereIs) {
    const Events exception{{EventKind::kTaskException, 0, 0, ""},
                           {EventKind::kTaskBroken, 0, 0, "/t"}};
    ExpectEnding(Diagnose(exception), 5, "could not be gathered. See the BMC's own log.");
    ExpectEnding(Diagnose(exception, 3, Kemffdc::Task{}), 5, "See the BMC's own log.");
}

TEST(RedfishDiagnoseDownload, LocalTroubleIsToldFromRemoteTrouble) {
    using Kemffdc::Redfish::DiagnoseDownload;
    const std::error_category& category = Varnex::TransferCategory();
    EXPECT_TRUE(DiagnoseDownload({0}, {}).Ok());
    const Outcome full = DiagnoseDownload(
        {2, std::make_error_code(std::errc::no_space_on_device), "No space left on device"}, {});
    ExpectEnding(full, 8, "No space left on device (generic:28)");
    EXPECT_EQ(full.cause, Kemffdc::Cause::kDiskFull);
    const Outcome cut = DiagnoseDownload({2, {18, category}, "cut off\x1b"}, {});
    ExpectEnding(cut, 7, "cut off\\x1B (varnex.transfer:18)");
    EXPECT_EQ(cut.cause, Kemffdc::Cause::kConnectionLost);
    EXPECT_EQ(DiagnoseDownload({2, {1404, category}, "no"}, {}).cause, Kemffdc::Cause::kUnnamed);
    EXPECT_EQ(DiagnoseDownload({2, {60, category}, "no"}, {}).cause, Kemffdc::Cause::kUntrusted);
    ExpectEnding(DiagnoseDownload({2}, {{EventKind::kPostFailed, 0, 401, ""}}), 7,
                 "opens no session to download it (HTTP 401)");
    const Events noToken{{EventKind::kNoToken, 0, 0, ""}};
    ExpectEnding(DiagnoseDownload({4}, noToken), 7, "no session token");
    ExpectEnding(DiagnoseDownload({4, {}, "", true}, noToken), 7,
                 "something between here and the BMC changes header names to lower case");
    ExpectEnding(DiagnoseDownload({2}, {{EventKind::kBadUri, 0, 0, "a NUL byte"}}), 7,
                 "cannot be used (a NUL byte)");
    ExpectEnding(DiagnoseDownload({1}, {}), 7, "could not be downloaded");
}

}  // namespace
