// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <locale>
#include <new>
#include <thread>

#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Milestone;
using fakes::Trace;
using fakes::Warning;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Varnex::KEMFfdcRedfishImpl;

using namespace std::chrono_literals;

namespace {

constexpr char kTask[] = "/redfish/v1/TaskService/Tasks/42";
constexpr char kTaskUrl[] = "https://10.0.0.5:443/redfish/v1/TaskService/Tasks/42";

std::string State(const std::string& state) { return "{\"TaskState\":\"" + state + "\"}"; }

std::string TaskLine(const std::string& rest) { return std::string("The task \"") + kTask + rest; }

class RedfishParseTaskState : public testing::Test {
protected:
    static Rest::Response Answer(const std::string& body) {
        Rest::Response response;
        response.curlCode = 0;
        response.httpCode = 200;
        response.body = body;
        return response;
    }
    fakes::FakeLog log;
};

class RedfishTaskWait : public RedfishTest {
protected:
    RedfishTaskWait() : channel(ChannelWithTask("42")) {}

    bool Wait() { return channel.IsFFDCLogExist(path); }

    // The lines of the channel alone: those of its GETs are the client's.
    std::vector<fakes::LogLine> Lines() const {
        return log.LinesOf("src/module/kvs/ffdc/ffdcredfish_impl");
    }

    std::size_t Polls() const { return RequestCount() - 2; }  // after version and export

    KEMFfdcRedfishImpl& channel;
    std::string path = "untouched";
};

}  // namespace

TEST_F(RedfishParseTaskState, Table) {
    struct Row {
        const char* state;
        int code;
        const char* why;
    };
    constexpr Row kRows[] = {
        {"New", 4, "as it is"},
        {"NewTask", 4, "part of a word"},
        {"Renewed", 3, "letter case counts"},
        {"ReNewed", 4, "part of a word"},
        {"Starting", 5, "as it is"},
        {"Running", 1, "as it is"},
        {"Running, then Completed", 1, "Running is looked for before Completed"},
        {"Completed", 2, "as it is"},
        {"CompletedWithNewErrors", 4, "New is looked for first"},
        {"CompletedException", 2, "Completed is looked for before Exception"},
        {"running", 3, "letter case counts"},
        {"Suspended", 3, "matched by nothing"},
        {"", 3, "matched by nothing"},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(row.code, KEMFfdcRedfishImpl::ParseTaskState(Answer(State(row.state))))
            << row.state << ": " << row.why;
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishParseTaskState, ValueOfNewTaskCountsAsNewSubstring) {
    EXPECT_EQ(Varnex::TaskNew, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("NewTask"))));
}

TEST_F(RedfishParseTaskState, RenewedHoldsNoNewInThatLetterCase) {
    EXPECT_EQ(Varnex::TaskError, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("Renewed"))));
    EXPECT_EQ(Varnex::TaskNew, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("ReNewed"))));
}

TEST_F(RedfishParseTaskState, ValueHoldingBothRunningAndCompletedCountsAsRunning) {
    EXPECT_EQ(Varnex::TaskRunning,
              KEMFfdcRedfishImpl::ParseTaskState(Answer(State("CompletedRunning"))));
}

TEST_F(RedfishParseTaskState, ExceptionAndKilledHaveTheirLines) {
    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("Exception"))));
    EXPECT_EQ(6, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("Killed"))));

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            Failure(R"(The successful GET request's response shows "TaskState":"Exception"! )"),
            Failure(R"(The successful GET request's response shows "TaskState":"Killed"! )")));
}

TEST_F(RedfishParseTaskState, ExceptionIsLookedForBeforeKilled) {
    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(State("KilledByException"))));

    EXPECT_THAT(log.Lines(),
                ElementsAre(Failure(
                    R"(The successful GET request's response shows "TaskState":"Exception"! )")));
}

TEST_F(RedfishParseTaskState, AnErrorWithoutATaskStateIsTheErrorNotTheMissingState) {
    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(R"({"error":{"code":"1"}})")));

    EXPECT_THAT(log.Lines(), ElementsAre(Failure("GET request received error response. ")));
}

TEST_F(RedfishParseTaskState, AStatusFrom300To399IsNoFailure) {
    for (const int status : {300, 302, 304, 399}) {
        Rest::Response response = Answer(State("Running"));
        response.httpCode = status;

        EXPECT_EQ(1, KEMFfdcRedfishImpl::ParseTaskState(response)) << status;
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishParseTaskState, ABodyWithBothErrorAndTaskStateGives3) {
    EXPECT_EQ(
        3, KEMFfdcRedfishImpl::ParseTaskState(Answer(R"({"TaskState":"Completed","error":{}})")));

    EXPECT_THAT(log.Lines(), ElementsAre(Failure("GET request received error response. ")));
}

TEST_F(RedfishParseTaskState, MissingTaskStateGives3) {
    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(R"({"Id":"42"})")));

    EXPECT_THAT(log.Lines(),
                ElementsAre(Failure(
                    R"(The successful GET request's response has no property "TaskState"! )")));
}

TEST_F(RedfishParseTaskState, ANumberAsTaskStateIsMatchedByNothing) {
    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(R"({"TaskState":7})")));

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishParseTaskState, FailedAnswerGives3AndItsOwnFormat) {
    Rest::Response response = Answer("busy");
    response.httpCode = 404;

    EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(response));

    EXPECT_THAT(log.Lines(),
                ElementsAre(Failure("Rest response error: curlCode: 0, httpCode:404, body:\n"
                                    "busy")));
}

TEST_F(RedfishParseTaskState, ABodyThatIsNoJsonGives3WithTheReadersText) {
    struct Row {
        std::string body;
        const char* text;
    };
    const Row rows[] = {
        {"<html>", "<unspecified file>(1): expected value"},
        {"", "<unspecified file>(1): expected value"},
        {R"({"TaskState":"Comp)", "<unspecified file>(1): unterminated string"},
        {std::string(100000, '['), "<unspecified file>: more than 512 nested levels"},
        {"\"" + std::string(17 * 1024 * 1024, 'x') + "\"",
         "<unspecified file>: more than 16777216 bytes"},
        {"[" + std::string(70000, ',') + "]", "<unspecified file>: more than 65536 values"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(3, KEMFfdcRedfishImpl::ParseTaskState(Answer(row.body)));

        EXPECT_THAT(
            log.Lines(),
            ElementsAre(Failure(std::string("Failed to parse Jason object : ") + row.text)));
        log.Clear();
    }
}

struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(RedfishParseTaskState, TheReadersTextHasItsNumbersWhateverTheHostsLocale) {
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new Grouping));

    KEMFfdcRedfishImpl::ParseTaskState(Answer(std::string(1403, '\n') + "<html>"));

    std::locale::global(before);
    EXPECT_THAT(log.Lines(), ElementsAre(Failure("Failed to parse Jason object : "
                                                 "<unspecified file>(1404): expected value")));
}

TEST_F(RedfishTaskWait, FollowsTheTaskUntilItIsCompleted) {
    channel.SetTrialCount(10);
    web.Answer(200, State("New"));
    web.Answer(200, State("Starting"));
    web.Answer(200, State("Running"));
    web.Answer(200, R"({"TaskState":"Completed",
                        "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/download/a.tar.gz"}}}})");

    EXPECT_TRUE(Wait());

    EXPECT_EQ("/download/a.tar.gz", path);
    EXPECT_EQ(4U, Polls());
    EXPECT_EQ("GET", LastRequest().method);
    EXPECT_EQ(kTaskUrl, LastRequest().url);
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s, 5s));
    const auto get = Trace("src/common/rest/RedfishClient",
                           std::string("Redfish GET action on URL: ") + kTaskUrl);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(get, Milestone(TaskLine("\" is newing, please wait... ")), get,
                    Milestone(TaskLine("\" is starting, please wait... ")), get,
                    Milestone(TaskLine("\" is running, please wait... ")), get,
                    Milestone(TaskLine("\" is completed! Its FFDC file is available now. ")),
                    Trace("Found \"Oem\" in KTC Redfish response. "),
                    Trace("Found \"Tavrin\" in KTC Redfish response. "),
                    Trace("Found \"FFDCForDownloading\" in KTC Redfish response. "),
                    Trace("FFDC has been been dumped to path: /download/a.tar.gz")));
}

TEST_F(RedfishTaskWait, RunsOnAThreadOfItsOwnWhichHasEndedWhenTheCallerGoesOn) {
    channel.SetTrialCount(2);
    std::vector<std::thread::id> threads;
    const auto running = [&threads](fakes::Transfer& transfer) {
        threads.push_back(std::this_thread::get_id());
        return transfer.Receive(200, State("Running"), {});
    };
    web.Play(running);
    web.Play(running);

    EXPECT_FALSE(Wait());

    ASSERT_THAT(threads, SizeIs(2));
    EXPECT_NE(std::this_thread::get_id(), threads[0]);
    EXPECT_EQ(threads[0], threads[1]);
}

TEST_F(RedfishTaskWait, APollAnsweredWithARedirectIsNoFailure) {
    channel.SetTrialCount(10);
    for (int i = 0; i < 3; ++i) web.Answer(302, State("Running"));
    web.Answer(399, State("Killed"));

    EXPECT_FALSE(Wait());

    EXPECT_EQ(4U, Polls());
    EXPECT_THAT(Lines().back(), Failure(TaskLine("\" is killed. ")));
}

TEST_F(RedfishTaskWait, WithTheInitialTrialCountOf0OrWith1TheWaitPollsExactlyOnceAndSleepsOnce) {
    web.Answer(200, State("Running"));
    EXPECT_FALSE(Wait());
    EXPECT_EQ("", path);
    EXPECT_EQ(1U, Polls());
    EXPECT_THAT(clock.Slept(), ElementsAre(5s));
    EXPECT_THAT(Lines(), ElementsAre(Milestone(TaskLine("\" is running, please wait... "))));

    channel.SetTrialCount(1);
    web.Answer(200, State("Running"));
    EXPECT_FALSE(Wait());
    EXPECT_EQ(2U, Polls());
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s));
}

TEST_F(RedfishTaskWait, FirstAnswerThatEndsTheTaskEndsTheWaitWithoutASleep) {
    web.Answer(200, State("Killed"));

    EXPECT_FALSE(Wait());

    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(
        Lines(),
        ElementsAre(
            Failure(R"(The successful GET request's response shows "TaskState":"Killed"! )"),
            Failure(TaskLine("\" is killed. "))));
}

TEST_F(RedfishTaskWait, ExceptionEndsTheWait) {
    channel.SetTrialCount(10);
    web.Answer(200, State("Exception"));

    EXPECT_FALSE(Wait());

    EXPECT_EQ(1U, Polls());
    EXPECT_THAT(
        Lines(),
        ElementsAre(
            Failure(R"(The successful GET request's response shows "TaskState":"Exception"! )"),
            Failure(TaskLine("\" encounters exception or other unexpected error. "))));
}

TEST_F(RedfishTaskWait, StateThatNobodyKnowsEndsTheWaitWithOneLine) {
    channel.SetTrialCount(10);
    web.Answer(200, State("Pending"));

    EXPECT_FALSE(Wait());

    EXPECT_THAT(
        Lines(),
        ElementsAre(Failure(TaskLine("\" encounters exception or other unexpected error. "))));
}

TEST_F(RedfishTaskWait, EveryPollTheLastIncludedIsFollowedByTheSleep) {
    channel.SetTrialCount(3);
    for (int i = 0; i < 3; ++i) web.Answer(200, State("Running"));

    EXPECT_FALSE(Wait());

    EXPECT_EQ(3U, Polls());
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s, 5s));
    EXPECT_THAT(Lines(), ElementsAre(Milestone(TaskLine("\" is running, please wait... ")),
                                     Milestone(TaskLine("\" is running, please wait... ")),
                                     Milestone(TaskLine("\" is running, please wait... "))));
}

TEST_F(RedfishTaskWait, ThreeFailedGetsEndTheWaitAndAGoodAnswerBetweenDoesNotResetTheCount) {
    channel.SetTrialCount(10);
    web.Answer(404, "gone");
    web.Answer(200, State("Running"));
    web.Fail(CURLE_OPERATION_TIMEDOUT, "Timeout was reached");
    web.Answer(500, "oops");

    EXPECT_FALSE(Wait());

    EXPECT_EQ(4U, Polls());
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s, 5s, 5s));
    EXPECT_THAT(
        Lines(),
        ElementsAre(
            Warning("Rest response error: curlCode: 0, httpCode:404, body:\ngone"),
            Milestone(TaskLine("\" is running, please wait... ")),
            Warning("Rest response error: curlCode: 28, httpCode:-1, body:\nTimeout was reached"),
            Warning("Rest response error: curlCode: 0, httpCode:500, body:\noops"),
            Failure("Connection error occurred while trying to GET the state of the task: "
                    "\"/redfish/v1/TaskService/Tasks/42\" from KTC via Redfish. ")));
}

TEST_F(RedfishTaskWait, TheThirdFailureIsReportedAlsoWhenTheTrialsAreSpent) {
    channel.SetTrialCount(3);
    for (int i = 0; i < 3; ++i) web.Answer(404, "gone");

    EXPECT_FALSE(Wait());

    EXPECT_THAT(Lines(), SizeIs(4));
    EXPECT_THAT(Lines().back(),
                Failure("Connection error occurred while trying to GET the state of the task: "
                        "\"/redfish/v1/TaskService/Tasks/42\" from KTC via Redfish. "));
}

TEST_F(RedfishTaskWait, FailedPollsWithinTheTrialsEndWithoutAMessage) {
    channel.SetTrialCount(2);
    web.Answer(404, "gone");
    web.Answer(404, "gone");

    EXPECT_FALSE(Wait());

    EXPECT_THAT(Lines(),
                ElementsAre(Warning("Rest response error: curlCode: 0, httpCode:404, body:\ngone"),
                            Warning("Rest response error: curlCode: 0, httpCode:404, body:\n"
                                    "gone")));
}

TEST_F(RedfishTaskWait, Interval0PollsWithoutPause) {
    channel.SetTrialCount(3);
    channel.SetTrialInterval(0);
    for (int i = 0; i < 3; ++i) web.Answer(200, State("Running"));

    EXPECT_FALSE(Wait());

    EXPECT_EQ(3U, Polls());
    EXPECT_EQ(0ms, clock.SleptInAll());
}

TEST_F(RedfishTaskWait, IntervalIsInSecondsUpToTheGreatestAndANegativeOneDoesNotPause) {
    for (const int seconds : {1, 60, 2147483647, -1}) {
        const auto before = clock.Slept().size();
        channel.SetTrialInterval(seconds);
        web.Answer(200, State("Running"));

        EXPECT_FALSE(Wait());

        ASSERT_EQ(before + 1, clock.Slept().size());
        EXPECT_EQ(std::chrono::seconds(seconds), clock.Slept().back());
    }
}

TEST_F(RedfishTaskWait, WithoutATaskTheWaitPollsTheBaseUrlAlone) {
    web.Answer(400, "no");
    ASSERT_EQ(2, channel.Apply());
    web.Answer(404, "nothing here");

    EXPECT_FALSE(Wait());

    EXPECT_EQ(kBase, LastRequest().url);
}

TEST_F(RedfishTaskWait, WithoutAClientTheWaitEndsAtOnce) {
    channel.Disconnect();

    EXPECT_FALSE(Wait());

    EXPECT_EQ("", path);
    EXPECT_EQ(0U, Polls());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(clock.Slept(), IsEmpty());
}

TEST_F(RedfishTaskWait, ALaterWaitThatLearnsNothingReportsTheOlderSuccessAgain) {
    web.Answer(200, R"({"TaskState":"Completed",
                        "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/a"}}}})");
    ASSERT_TRUE(Wait());
    web.Answer(404, "gone");
    path.clear();

    EXPECT_TRUE(Wait());

    EXPECT_EQ("/a", path);
}

TEST_F(RedfishTaskWait, AnExceptionInTheWaitIsALineAndState3NotTheEndOfTheProcess) {
    web.Play([](fakes::Transfer&) -> CURLcode { throw std::runtime_error("out of luck"); });

    EXPECT_FALSE(Wait());

    EXPECT_THAT(
        Lines(),
        ElementsAre(Failure("Waiting for the FFDC task was ended by an exception: out of luck")));
}

TEST_F(RedfishTaskWait, AThrownValueThatIsNoExceptionIsUnknown) {
    web.Play([](fakes::Transfer&) -> CURLcode { throw 7; });

    EXPECT_FALSE(Wait());

    EXPECT_THAT(Lines(), ElementsAre(Failure("Waiting for the FFDC task was ended by an exception: "
                                             "Unknown exception")));
}

class RedfishTaskWaitAfterSuccess : public RedfishTaskWait {
protected:
    void SetUp() override {
        web.Answer(200, R"({"TaskState":"Completed",
                            "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/a"}}}})");
        ASSERT_TRUE(Wait());
        log.Clear();
    }

    // What a wait reports that learns nothing: the state that the last one left.
    bool IsStillCompleted() {
        web.Answer(404, "gone");
        return Wait();
    }
};

TEST_F(RedfishTaskWaitAfterSuccess, AnExceptionLeavesState3) {
    web.Play([](fakes::Transfer&) -> CURLcode { throw std::runtime_error("out of luck"); });

    EXPECT_FALSE(Wait());

    EXPECT_EQ("", path);
    EXPECT_FALSE(IsStillCompleted());
}

TEST_F(RedfishTaskWaitAfterSuccess, AThrownValueThatIsNoExceptionLeavesState3) {
    web.Play([](fakes::Transfer&) -> CURLcode { throw 7; });

    EXPECT_FALSE(Wait());
    EXPECT_FALSE(IsStillCompleted());
}

TEST_F(RedfishTaskWaitAfterSuccess, WithoutMemoryForItsLineAnExceptionStillLeavesState3) {
    web.Play([this](fakes::Transfer&) -> CURLcode {
        log.RunOutOfMemory();
        throw std::bad_alloc();
    });

    EXPECT_FALSE(Wait());

    log.HaveMemoryAgain();
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_FALSE(IsStillCompleted());
}

TEST_F(RedfishTaskWaitAfterSuccess, ALineOfTheWaitItselfForWhichThereIsNoMemoryLeavesState3) {
    web.Play([this](fakes::Transfer& transfer) {
        const CURLcode code = transfer.Receive(200, State("Running"), {});
        log.RunOutOfMemory();
        return code;
    });

    EXPECT_FALSE(Wait());

    log.HaveMemoryAgain();
    EXPECT_FALSE(IsStillCompleted());
}
