// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

// libcurl before 8.1.0: a handle is used once. The scripted libcurl fails a test in which one is
// used twice, ends with its cookie jar set, or joins the share late.
namespace {

using fakes::Transfer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kUrl[] = "https://bmc/";

const Calls kBirth = {"curl_easy_init",
                      "curl_share_init",
                      "CURLSHOPT_SHARE connections",
                      "CURLSHOPT_SHARE TLS sessions",
                      "CURLSHOPT_SHARE names",
                      "CURLSHOPT_SHARE cookies",
                      "CURLOPT_SHARE the share"};
const Calls kNextHandle = {"curl_easy_init", "CURLOPT_SHARE the share"};

// Without the option, the end of a handle changes what SIGPIPE does to the process for a while.
const Calls kEnd = {"CURLOPT_NOSIGNAL 1", "curl_easy_cleanup"};

class TextPart : public Rest::MimePart {
public:
    void AddTo(curl_mimepart* part) const override {
        curl_mime_data(part, "text", CURL_ZERO_TERMINATED);
    }
};

class ThrowingPart : public Rest::MimePart {
public:
    void AddTo(curl_mimepart*) const override { throw std::runtime_error("part failed"); }
};

class RestClientFreshHandles : public testing::Test {
protected:
    RestClientFreshHandles() {
        web.IsVersion(7, 88, 1);
        client = std::make_unique<Rest::RestClient>();
    }

    fakes::FakeCurl web;
    std::unique_ptr<Rest::RestClient> client;
};

TEST_F(RestClientFreshHandles, TheShareIsMadeWithTheObjectAndJoinedByItsFirstHandle) {
    EXPECT_EQ(kBirth, web.TakeCalls());

    client.reset();

    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_cleanup", "curl_share_cleanup"));
}

TEST_F(RestClientFreshHandles, EachRequestHasItsOwnHandleAndOtherwiseDoesWhatItAlwaysDoes) {
    web.TakeCalls();
    web.Answer(200);
    web.Answer(200);

    client->Get(kUrl);
    EXPECT_EQ(Concatenated(PlainGet(), kEnd), web.TakeCalls());

    client->Get(kUrl);
    EXPECT_EQ(Concatenated(Concatenated(kNextHandle, PlainGet()), kEnd), web.TakeCalls());

    client.reset();
    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_share_cleanup"));
}

TEST_F(RestClientFreshHandles, EveryRequestKindTakesAHandleOfItsOwn) {
    std::istringstream stream("stream");
    const Rest::MimeParts parts = {std::make_shared<TextPart>()};
    struct {
        std::function<Rest::Response()> send;
        const char* why;
    } const rows[] = {
        {[&] { return client->Get(kUrl); }, "Get"},
        {[&] { return client->PostMultipart(kUrl, parts, Rest::ProgressCallback()); }, "form"},
        {[&] { return client->PostStream(kUrl, stream); }, "PostStream"},
        {[&] { return client->Post(kUrl, "text"); }, "Post"},
        {[&] { return client->PutStream(kUrl, stream); }, "PutStream"},
        {[&] { return client->Put(kUrl, "text"); }, "Put"},
        {[&] { return client->PatchStream(kUrl, stream); }, "PatchStream"},
        {[&] { return client->Patch(kUrl, "text"); }, "Patch"},
        {[&] { return client->Delete(kUrl); }, "Delete"},
        {[&] { return client->Head(kUrl); }, "Head"},
        {[&] { return client->Options(kUrl); }, "Options"},
    };
    web.Answer(200);
    client->Get(kUrl);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        web.Answer(200);
        web.TakeCalls();

        EXPECT_EQ(200, row.send().httpCode);

        const Calls calls = web.TakeCalls();
        EXPECT_EQ(kNextHandle, Calls(calls.begin(), calls.begin() + 2));
        EXPECT_EQ("curl_easy_cleanup", calls.back());

        web.InitFails();
        const Rest::Response failed = row.send();
        EXPECT_EQ(2, failed.curlCode);
        EXPECT_EQ(-1, failed.httpCode);
        EXPECT_EQ("Couldn't initialize curl handle", failed.body);
        EXPECT_THAT(failed.headers, IsEmpty());
        EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_init"));
    }
}

TEST_F(RestClientFreshHandles, ARequestAfterOneThatFoundNoHandleTriesAgain) {
    web.Answer(200);
    client->Get(kUrl);
    web.InitFails();
    EXPECT_EQ(2, client->Get(kUrl).curlCode);
    web.Answer(204);

    EXPECT_EQ(204, client->Get(kUrl).httpCode);
}

TEST_F(RestClientFreshHandles, AFormIsFreedBeforeItsHandleEnds) {
    web.Answer(200);

    client->PostMultipart(kUrl, {}, Rest::ProgressCallback());

    const Calls calls = web.TakeCalls();
    EXPECT_THAT(Calls(calls.end() - 4, calls.end()),
                ElementsAre("curl_easy_reset", "curl_mime_free", "CURLOPT_NOSIGNAL 1",
                            "curl_easy_cleanup"));
}

TEST_F(RestClientFreshHandles, AHandleEndsAlsoWhenItsRequestEndsInAnException) {
    web.TakeCalls();
    const Rest::MimeParts parts = {std::make_shared<ThrowingPart>()};

    EXPECT_THROW(client->PostMultipart(kUrl, parts, Rest::ProgressCallback()), std::runtime_error);

    EXPECT_THAT(
        web.TakeCalls(),
        ElementsAre("CURLOPT_POST 1", "curl_mime_init", "curl_mime_addpart", "curl_mime_free",
                    "curl_easy_reset", "CURLOPT_NOSIGNAL 1", "curl_easy_cleanup"));
}

TEST_F(RestClientFreshHandles, AFailedTransferEndsItsHandleToo) {
    web.Fail(CURLE_COULDNT_CONNECT, "refused");
    web.Answer(200);

    EXPECT_EQ(7, client->Get(kUrl).curlCode);
    EXPECT_EQ("curl_easy_cleanup", web.TakeCalls().back());
    EXPECT_EQ(200, client->Get(kUrl).httpCode);
}

TEST_F(RestClientFreshHandles, CookiesAreAskedForOnEachHandle) {
    web.HoldCookies({"bmc\tFALSE\t/\tTRUE\t0\ta\t1"});
    web.Answer(200);
    web.Answer(200);

    EXPECT_THAT(client->Get(kUrl).cookies, SizeIs(1));
    EXPECT_THAT(client->Get(kUrl).cookies, SizeIs(1));
}

TEST(RestClientFreshHandlesWithout, AShareThatCannotBeMadeIsNoClientAndTheHandleEnds) {
    fakes::FakeCurl web;
    web.IsVersion(7, 88, 1);
    web.ShareInitFails();

    std::string text;
    try {
        const Rest::RestClient client;
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ("Couldn't initialize curl handle", text);
    EXPECT_THAT(web.TakeCalls(),
                ElementsAre("curl_easy_init", "curl_share_init", "curl_easy_cleanup"));
}

TEST(RestClientFreshHandlesWithout, VersionsFrom810KeepTheirOneHandleAndOlderOnesDoNot) {
    struct {
        unsigned major, minor, patch;
        bool shares;
    } const rows[] = {{7, 29, 0, true}, {7, 88, 1, true},  {8, 0, 1, true},
                      {8, 1, 0, false}, {8, 14, 1, false}, {9, 0, 0, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.minor);
        fakes::FakeCurl web;
        web.IsVersion(row.major, row.minor, row.patch);

        { const Rest::RestClient client; }

        const Calls calls = web.TakeCalls();
        EXPECT_EQ(row.shares, std::count(calls.begin(), calls.end(), "curl_share_init") == 1);
    }
}

}  // namespace
