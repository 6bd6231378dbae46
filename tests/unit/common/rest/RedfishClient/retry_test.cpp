// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <chrono>
#include <limits>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "common/rest/RedfishClient.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeCurl.h"
#include "fakes/FakeGlobalConfig.h"
#include "fakes/FakeLog.h"

namespace {

using namespace std::chrono_literals;
using fakes::Trace;
using fakes::Transfer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char kUrl[] = "https://bmc/redfish/v1/";
constexpr char kSource[] = "src/common/rest/RedfishClient";

class TextPart : public Rest::MimePart {
public:
    void AddTo(curl_mimepart* part) const override {
        curl_mime_data(part, "text", CURL_ZERO_TERMINATED);
    }
};

class RedfishClientRetry : public testing::Test {
protected:
    // Answers 503 for ever, each time after `duration`.
    void StartForEver(std::chrono::nanoseconds duration, int requests) {
        for (int i = 0; i < requests; ++i) {
            web.Play([this, duration](Transfer& transfer) {
                clock.Pass(duration);
                return transfer.Receive(503, "", {});
            });
        }
    }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeCurl web;
    Rest::RedfishClient client;
};

TEST_F(
    RedfishClientRetry,
    AServiceThatAnswers503TwiceAndThen200ThreeRequestsTwoLogLinesThe200ReturnedAbout10SecondsSleeping) {
    web.Answer(503, "starting");
    web.Answer(503, "nearly");
    web.Answer(200, "ready", {"A: 1"});

    const Rest::Response response = client.Post(kUrl, "body");

    EXPECT_EQ(0, response.curlCode);
    EXPECT_EQ(200, response.httpCode);
    EXPECT_EQ("ready", response.body);
    EXPECT_EQ("1", response.headers.at("A"));
    EXPECT_THAT(web.Requests(), SizeIs(3));
    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms, 5000ms));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(kSource, "curlCode: 0 | httpCode: 503 | body: starting"),
                            Trace(kSource, "curlCode: 0 | httpCode: 503 | body: nearly")));
}

TEST_F(RedfishClientRetry, AServiceThatAnswers500AtOnceOneRequestNoRetryNo503LogLine) {
    web.Answer(500, "broken");

    const Rest::Response response = client.Post(kUrl, "body");

    EXPECT_EQ(500, response.httpCode);
    EXPECT_EQ("broken", response.body);
    EXPECT_THAT(web.Requests(), SizeIs(1));
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishClientRetry, ARefusedConnectionNonZeroCurlCodeOneRequestReturnedAtOnce) {
    web.Fail(CURLE_COULDNT_CONNECT, "Connection refused");

    const Rest::Response response = client.Head(kUrl);

    EXPECT_EQ(7, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("Connection refused", response.body);
    EXPECT_THAT(web.Requests(), SizeIs(1));
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishClientRetry, AConnectionThatBreaksAfterA503EndsThePeriod) {
    web.Answer(503, "starting");
    web.Fail(CURLE_RECV_ERROR, "reset by peer");

    EXPECT_EQ(56, client.Delete(kUrl).curlCode);

    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms));
}

TEST_F(RedfishClientRetry, OtherAnswersEndThePeriodWhateverTheirStatus) {
    for (const long status : {100L, 200L, 302L, 401L, 404L, 429L, 502L, 504L}) {
        SCOPED_TRACE(status);
        web.Answer(status);
        EXPECT_EQ(status, client.Put(kUrl, "").httpCode);
    }
    EXPECT_THAT(clock.Slept(), IsEmpty());
}

TEST_F(RedfishClientRetry, WithRedfishStartupWaitTimeSetTo0A503IsReturnedAfterOneAttempt) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 0);
    web.Answer(503, "starting");

    const Rest::Response response = client.Post(kUrl, "");

    EXPECT_EQ(503, response.httpCode);
    EXPECT_EQ("starting", response.body);
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre(Trace("curlCode: 0 | httpCode: 503 | body: starting")));
}

TEST_F(RedfishClientRetry, WithANegativeWaitTimeA503IsReturnedAfterOneAttempt) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", -1);
    web.Answer(503);

    EXPECT_EQ(503, client.Post(kUrl, "").httpCode);
    EXPECT_THAT(clock.Slept(), IsEmpty());
}

TEST_F(RedfishClientRetry, A503ThatOutlastsThePeriodIsReturnedLikeAnyOtherAnswer) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 12);
    StartForEver(1ms, 4);  // after 0, 5, 10 and 15 s

    EXPECT_EQ(503, client.Options(kUrl).httpCode);

    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms, 5000ms, 5000ms));
}

TEST_F(RedfishClientRetry, TheElapsedTestComesBeforeTheSleep) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 5);
    StartForEver(1ns, 2);  // the second ends 2 ns after the period

    EXPECT_EQ(503, client.Delete(kUrl).httpCode);

    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms));
}

TEST_F(RedfishClientRetry, AnElapsedTimeOfExactlyThePeriodIsNotOverYet) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 5);
    StartForEver(0ns, 3);

    EXPECT_EQ(503, client.Delete(kUrl).httpCode);

    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms, 5000ms));
}

TEST_F(RedfishClientRetry, ARequestThatTakesLongerThanThePeriodIsNotRepeated) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 30);
    StartForEver(31s, 1);

    EXPECT_EQ(503, client.Patch(kUrl, "").httpCode);

    EXPECT_THAT(clock.Slept(), IsEmpty());
}

TEST_F(RedfishClientRetry, WithoutConfigurationThePeriodIs180Seconds) {
    StartForEver(1ns, 37);  // at 0, 5, ..., 180 s

    EXPECT_EQ(503, client.Post(kUrl, "").httpCode);

    EXPECT_EQ(180s, clock.SleptInAll());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), ElementsAre(Pair("REDFISH_STARTUP_WAIT_TIME", 180)));
}

TEST_F(RedfishClientRetry, TheLongestConfigurablePeriodDoesNotOverflow) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", std::numeric_limits<int>::max());
    web.Answer(503);
    web.Answer(200);

    EXPECT_EQ(200, client.Post(kUrl, "").httpCode);
}

TEST_F(RedfishClientRetry, TheWaitTimeIsReadOnceInAProcess) {
    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 0);
    web.Answer(503);
    client.Post(kUrl, "");

    fakes::FakeConfig::Set("REDFISH_STARTUP_WAIT_TIME", 180);
    web.Answer(503);
    Rest::RedfishClient another;

    EXPECT_EQ(503, another.Post(kUrl, "").httpCode);
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), ElementsAre(Pair("REDFISH_STARTUP_WAIT_TIME", 180)));
}

TEST_F(RedfishClientRetry, GetWritesItsLineOnceThenRetries) {
    web.Answer(503, "a\nb");
    web.Answer(200);

    EXPECT_EQ(200, client.Get(kUrl).httpCode);

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(kSource, "Redfish GET action on URL: https://bmc/redfish/v1/"),
                            Trace(kSource, "curlCode: 0 | httpCode: 503 | body: a\nb")));
}

TEST_F(RedfishClientRetry,
       RequestWithGetMakesOneAttemptAndWritesNoLineWhileGetWritesTheLineAndRetries) {
    web.Answer(503, "starting");
    EXPECT_EQ(503, client.Request(Rest::GET, kUrl, "").httpCode);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(clock.Slept(), IsEmpty());

    web.Answer(503, "starting");
    web.Answer(200);
    EXPECT_EQ(200, client.Get(kUrl).httpCode);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Redfish GET action on URL: https://bmc/redfish/v1/"),
                            Trace("curlCode: 0 | httpCode: 503 | body: starting")));
    EXPECT_THAT(clock.Slept(), ElementsAre(5000ms));
}

TEST_F(RedfishClientRetry, RequestOfAnyKindMakesOneAttempt) {
    for (const auto type :
         {Rest::GET, Rest::POST, Rest::PUT, Rest::PATCH, Rest::HEAD, Rest::OPTIONS}) {
        SCOPED_TRACE(type);
        web.Answer(503);
        EXPECT_EQ(503, client.Request(type, kUrl, "").httpCode);
    }
    EXPECT_EQ("unknown request type", client.Request(Rest::DELETE, kUrl, "").body);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), IsEmpty());
}

TEST_F(RedfishClientRetry, EveryOperationButRequestRepeatsTheSameRequest) {
    std::istringstream stream("stream");
    const Rest::MimeParts parts = {std::make_shared<TextPart>()};
    struct {
        const char* method;
        const char* body;
        std::function<Rest::Response()> send;
        const char* why;
    } const rows[] = {
        {"GET", "", [&] { return client.Get(kUrl); }, "Get"},
        {"POST", "text",
         [&] { return client.PostMultipart(kUrl, parts, Rest::ProgressCallback()); },
         "PostMultipart"},
        {"POST", "stream", [&] { return client.PostStream(kUrl, stream); }, "PostStream"},
        {"POST", "text", [&] { return client.Post(kUrl, "text"); }, "Post"},
        {"PUT", "stream", [&] { return client.PutStream(kUrl, stream); }, "PutStream"},
        {"PUT", "text", [&] { return client.Put(kUrl, "text"); }, "Put"},
        {"PATCH", "stream", [&] { return client.PatchStream(kUrl, stream); }, "PatchStream"},
        {"PATCH", "text", [&] { return client.Patch(kUrl, "text"); }, "Patch"},
        {"DELETE", "", [&] { return client.Delete(kUrl); }, "Delete"},
        {"HEAD", "", [&] { return client.Head(kUrl); }, "Head"},
        {"OPTIONS", "", [&] { return client.Options(kUrl); }, "Options"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        stream.clear();
        log.Clear();
        web.Answer(503);
        web.Answer(200);

        EXPECT_EQ(200, row.send().httpCode);

        const auto& requests = web.Requests();
        for (std::size_t i = requests.size() - 2; i < requests.size(); ++i) {
            EXPECT_EQ(row.method, requests[i].method);
            EXPECT_EQ(row.body, requests[i].body);
            EXPECT_EQ(kUrl, requests[i].url);
        }
        EXPECT_THAT(log.Lines(), SizeIs(std::string(row.why) == "Get" ? 2 : 1));
    }
    EXPECT_THAT(clock.Slept(), SizeIs(std::size(rows)));
}

TEST_F(RedfishClientRetry, AStreamThatArrivesFailedIsNotRepaired) {
    std::istringstream stream("stream");
    stream.setstate(std::ios::failbit);
    web.Answer(200);

    client.PutStream(kUrl, stream);

    EXPECT_EQ("", web.Requests()[0].body);
}

}  // namespace
