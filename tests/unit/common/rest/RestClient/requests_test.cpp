// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <sstream>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUrl[] = "https://bmc/";

class RestClientRequests : public testing::Test {
protected:
    RestClientRequests() {
        web.TakeCalls();
        web.Name(&stream, "the stream");
    }

    fakes::FakeCurl web;
    Rest::RestClient client;
    std::istringstream stream{"12345"};
};

TEST_F(RestClientRequests, GetSetsNothingOfItsOwn) {
    web.Answer(200, "body");

    const Rest::Response response = client.Get(kUrl);

    EXPECT_EQ(PlainGet(), web.TakeCalls());
    EXPECT_EQ(0, response.curlCode);
    EXPECT_EQ(200, response.httpCode);
    EXPECT_EQ("body", response.body);
}

TEST_F(RestClientRequests, PostGivesTheBytesAndTheirNumber) {
    web.Answer(201);

    client.Post(kUrl, "{\"a\":1}");

    EXPECT_EQ(
        Concatenated({"CURLOPT_POST 1", "CURLOPT_POSTFIELDS {\"a\":1}", "CURLOPT_POSTFIELDSIZE 7"},
                     PlainGet()),
        web.TakeCalls());
}

TEST_F(RestClientRequests, PostOfNothingGivesAnEmptyBody) {
    web.Answer(201);

    client.Post(kUrl, "");

    EXPECT_EQ(Concatenated({"CURLOPT_POST 1", "CURLOPT_POSTFIELDS ", "CURLOPT_POSTFIELDSIZE 0"},
                           PlainGet()),
              web.TakeCalls());
}

TEST_F(RestClientRequests, PostSendsNulBytesToo) {
    web.Answer(201);

    client.Post(kUrl, std::string("a\0b", 3));

    EXPECT_EQ(std::string("a\0b", 3), web.Requests()[0].body);
}

TEST_F(RestClientRequests, PostStreamGivesTheSizeToTheUploadOption) {
    web.Answer(201);

    client.PostStream(kUrl, stream);

    EXPECT_EQ(Concatenated({"CURLOPT_POST 1", "CURLOPT_READFUNCTION function",
                            "CURLOPT_READDATA the stream", "CURLOPT_INFILESIZE 5",
                            "CURLOPT_SEEKFUNCTION function", "CURLOPT_SEEKDATA the stream"},
                           PlainGet()),
              web.TakeCalls());
    EXPECT_EQ("POST", web.Requests()[0].method);
    EXPECT_EQ("12345", web.Requests()[0].body);
}

TEST_F(RestClientRequests, PutStreamUploads) {
    web.Answer(200);

    client.PutStream(kUrl, stream);

    EXPECT_EQ(Concatenated({"CURLOPT_PUT 1", "CURLOPT_UPLOAD 1", "CURLOPT_READFUNCTION function",
                            "CURLOPT_READDATA the stream", "CURLOPT_INFILESIZE 5",
                            "CURLOPT_SEEKFUNCTION function", "CURLOPT_SEEKDATA the stream"},
                           PlainGet()),
              web.TakeCalls());
    EXPECT_EQ("PUT", web.Requests()[0].method);
    EXPECT_EQ("12345", web.Requests()[0].body);
}

TEST_F(RestClientRequests, PatchStreamUploadsUnderItsOwnMethod) {
    web.Answer(200);

    client.PatchStream(kUrl, stream);

    EXPECT_EQ(Concatenated({"CURLOPT_CUSTOMREQUEST PATCH", "CURLOPT_UPLOAD 1",
                            "CURLOPT_READFUNCTION function", "CURLOPT_READDATA the stream",
                            "CURLOPT_INFILESIZE 5", "CURLOPT_SEEKFUNCTION function",
                            "CURLOPT_SEEKDATA the stream"},
                           PlainGet()),
              web.TakeCalls());
    EXPECT_EQ("PATCH", web.Requests()[0].method);
    EXPECT_EQ("12345", web.Requests()[0].body);
}

TEST_F(RestClientRequests, PutSendsItsBodyAsAStream) {
    web.Answer(200);

    client.Put(kUrl, std::string("a\0b", 3));

    EXPECT_EQ(Concatenated({"CURLOPT_PUT 1", "CURLOPT_UPLOAD 1", "CURLOPT_READFUNCTION function",
                            "CURLOPT_READDATA pointer", "CURLOPT_INFILESIZE 3",
                            "CURLOPT_SEEKFUNCTION function", "CURLOPT_SEEKDATA pointer"},
                           PlainGet()),
              web.TakeCalls());
    EXPECT_EQ(std::string("a\0b", 3), web.Requests()[0].body);
}

TEST_F(RestClientRequests, PatchSendsItsBodyAsAStream) {
    web.Answer(200);

    client.Patch(kUrl, "{}");

    EXPECT_EQ(Concatenated({"CURLOPT_CUSTOMREQUEST PATCH", "CURLOPT_UPLOAD 1",
                            "CURLOPT_READFUNCTION function", "CURLOPT_READDATA pointer",
                            "CURLOPT_INFILESIZE 2", "CURLOPT_SEEKFUNCTION function",
                            "CURLOPT_SEEKDATA pointer"},
                           PlainGet()),
              web.TakeCalls());
    EXPECT_EQ("{}", web.Requests()[0].body);
}

TEST_F(RestClientRequests, DeleteNamesItsMethod) {
    web.Answer(204);

    client.Delete(kUrl);

    EXPECT_EQ(Concatenated({"CURLOPT_CUSTOMREQUEST DELETE"}, PlainGet()), web.TakeCalls());
}

TEST_F(RestClientRequests, HeadNamesItsMethodAndWantsNoBody) {
    web.Answer(200);

    client.Head(kUrl);

    EXPECT_EQ(Concatenated({"CURLOPT_CUSTOMREQUEST HEAD", "CURLOPT_NOBODY 1"}, PlainGet()),
              web.TakeCalls());
}

TEST_F(RestClientRequests, OptionsNamesItsMethodAndWantsNoBody) {
    web.Answer(200);

    client.Options(kUrl);

    EXPECT_EQ(Concatenated({"CURLOPT_CUSTOMREQUEST OPTIONS", "CURLOPT_NOBODY 1"}, PlainGet()),
              web.TakeCalls());
}

TEST_F(RestClientRequests, AfterAHeadRequestAFollowingGetOnTheSameObjectTransfersABody) {
    web.Answer(200, "never seen");
    web.Answer(200, "body");

    EXPECT_EQ("", client.Head(kUrl).body);
    EXPECT_EQ("body", client.Get(kUrl).body);

    EXPECT_EQ("HEAD", web.Requests()[0].method);
    EXPECT_EQ("GET", web.Requests()[1].method);
}

TEST_F(RestClientRequests, AfterAnUploadAFollowingGetSendsNothing) {
    web.Answer(200);
    web.Answer(200);

    client.PutStream(kUrl, stream);
    web.TakeCalls();
    client.Get(kUrl);

    EXPECT_EQ(PlainGet(), web.TakeCalls());
    EXPECT_EQ("GET", web.Requests()[1].method);
    EXPECT_EQ("", web.Requests()[1].body);
}

TEST_F(RestClientRequests, RequestDispatchesToTheOperationOfItsKind) {
    struct {
        Rest::RequestType type;
        int value;
        const char* method;
        const char* body;
    } const rows[] = {
        {Rest::GET, 0, "GET", ""},     {Rest::POST, 1, "POST", "text"},
        {Rest::PUT, 2, "PUT", "text"}, {Rest::PATCH, 3, "PATCH", "text"},
        {Rest::HEAD, 5, "HEAD", ""},   {Rest::OPTIONS, 6, "OPTIONS", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method);
        web.Answer(200);

        const Rest::Response response = client.Request(row.type, kUrl, "text");

        EXPECT_EQ(row.value, static_cast<int>(row.type));
        EXPECT_EQ(200, response.httpCode);
        EXPECT_EQ(row.method, web.Requests().back().method);
        EXPECT_EQ(row.body, web.Requests().back().body);
        EXPECT_EQ(kUrl, web.Requests().back().url);
    }
}

TEST_F(RestClientRequests, RequestDeletePerformsNothingAndReturnsUnknownRequestType) {
    EXPECT_EQ(4, static_cast<int>(Rest::DELETE));

    const Rest::Response response = client.Request(Rest::DELETE, kUrl, "text");

    EXPECT_EQ(-1, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("unknown request type", response.body);
    EXPECT_TRUE(response.headers.empty());
    EXPECT_TRUE(response.cookies.empty());
    EXPECT_THAT(web.TakeCalls(), IsEmpty());
}

TEST_F(RestClientRequests, RequestOfAKindThatDoesNotExistPerformsNothingEither) {
    const Rest::Response response = client.Request(static_cast<Rest::RequestType>(7), kUrl, "");

    EXPECT_EQ("unknown request type", response.body);
    EXPECT_THAT(web.TakeCalls(), IsEmpty());
}

// Overrides of one operation serve those that are built on it.
class StreamWatcher : public Rest::RestClient {
public:
    Rest::Response PutStream(const std::string& url, std::istream& given) override {
        return Noted("PutStream " + url, given);
    }
    Rest::Response PatchStream(const std::string& url, std::istream& given) override {
        return Noted("PatchStream " + url, given);
    }
    std::vector<std::string> noted;

private:
    Rest::Response Noted(const std::string& what, std::istream& given) {
        std::ostringstream text;
        text << given.rdbuf();
        noted.push_back(what + " " + text.str());
        return Rest::Response();
    }
};

TEST_F(RestClientRequests, AnOverrideOfAStreamVariantAlsoServesTheStringVariant) {
    StreamWatcher watcher;

    watcher.Put(kUrl, "one");
    watcher.Patch(kUrl, "two");
    watcher.Request(Rest::PUT, kUrl, "three");
    watcher.Request(Rest::PATCH, kUrl, "four");

    EXPECT_THAT(watcher.noted,
                ElementsAre("PutStream https://bmc/ one", "PatchStream https://bmc/ two",
                            "PutStream https://bmc/ three", "PatchStream https://bmc/ four"));
}

class OperationWatcher : public Rest::RestClient {
public:
    Rest::Response Get(const std::string&) override { return Named("Get"); }
    Rest::Response Post(const std::string&, const std::string&) override { return Named("Post"); }
    Rest::Response Put(const std::string&, const std::string&) override { return Named("Put"); }
    Rest::Response Patch(const std::string&, const std::string&) override { return Named("Patch"); }
    Rest::Response Head(const std::string&) override { return Named("Head"); }
    Rest::Response Options(const std::string&) override { return Named("Options"); }

private:
    static Rest::Response Named(const char* name) {
        Rest::Response response;
        response.body = name;
        return response;
    }
};

TEST_F(RestClientRequests, RequestCallsVirtualOperations) {
    OperationWatcher watcher;

    EXPECT_EQ("Get", watcher.Request(Rest::GET, kUrl, "").body);
    EXPECT_EQ("Post", watcher.Request(Rest::POST, kUrl, "").body);
    EXPECT_EQ("Put", watcher.Request(Rest::PUT, kUrl, "").body);
    EXPECT_EQ("Patch", watcher.Request(Rest::PATCH, kUrl, "").body);
    EXPECT_EQ("Head", watcher.Request(Rest::HEAD, kUrl, "").body);
    EXPECT_EQ("Options", watcher.Request(Rest::OPTIONS, kUrl, "").body);
}

}  // namespace
