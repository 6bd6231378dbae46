// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

namespace {

using fakes::Transfer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUrl[] = "https://bmc/";

class SinkClient : public Rest::RestClient {
public:
    using Rest::RestClient::SetBodySink;
};

class RestClientAnswers : public testing::Test {
protected:
    RestClientAnswers() { web.TakeCalls(); }

    // The header map of an answer that consists of one header line.
    std::map<std::string, std::string> HeadersOf(const std::string& line) {
        web.Play([&line](Transfer& transfer) {
            EXPECT_EQ(line.size(), transfer.Header(line));
            return CURLE_OK;
        });
        return client.Get(kUrl).headers;
    }

    fakes::FakeCurl web;
    SinkClient client;
};

TEST_F(RestClientAnswers, BodyPiecesAreJoinedAndKeepNulBytes) {
    web.Play([](Transfer& transfer) {
        EXPECT_EQ(2U, transfer.Write("ab"));
        EXPECT_EQ(3U, transfer.Write(std::string("\0cd", 3)));
        return CURLE_OK;
    });

    EXPECT_EQ(std::string("ab\0cd", 5), client.Get(kUrl).body);
}

TEST_F(RestClientAnswers, ABodyPieceCountsSizeTimesCountBytes) {
    web.Play([](Transfer& transfer) {
        const auto write = transfer.Callback<curl_write_callback>(CURLOPT_WRITEFUNCTION);
        std::string bytes = "abcdef";
        EXPECT_EQ(6U, write(bytes.data(), 2, 3, transfer.Pointer(CURLOPT_WRITEDATA)));
        return CURLE_OK;
    });

    EXPECT_EQ("abcdef", client.Get(kUrl).body);
}

TEST_F(RestClientAnswers, StatusAndBodyOfAnErrorAnswerAreKept) {
    web.Answer(404, "missing");

    const Rest::Response response = client.Get(kUrl);

    EXPECT_EQ(0, response.curlCode);
    EXPECT_EQ(404, response.httpCode);
    EXPECT_EQ("missing", response.body);
}

TEST_F(RestClientAnswers, HeaderLinesBecomeNamesAndValues) {
    struct {
        std::string line;
        std::string name;
        std::string value;
        const char* why;
    } const rows[] = {
        {"A: 1\r\n", "A", "1", "the usual"},
        {"A:1", "A", "1", "no blank, no line end"},
        {"X-Auth-Token: abc\r\n", "X-Auth-Token", "abc", "names keep their case"},
        {"x-auth-token: abc\r\n", "x-auth-token", "abc", "names keep their case"},
        {"Location: https://bmc:443/a\r\n", "Location", "https://bmc:443/a", "the first colon"},
        {"A:\r\n", "A", "", "no value"},
        {": b\r\n", "", "b", "no name"},
        {" \t A \t : \t b c \v\f \r\n", "A", "b c", "white space of every kind"},
        {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK", "present", "the status line"},
        {"  lonely \r\n", "lonely", "present", "no colon"},
        {"A: \xA0\xE9\r\n", "A", "\xA0\xE9", "bytes that are no ASCII stay"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_THAT(HeadersOf(row.line), ElementsAre(Pair(row.name, row.value)));
    }
}

TEST_F(
    RestClientAnswers,
    AResponseHeaderLineContentTypeTextHtmlWithExtraBlanksAroundTheValueIsStoredAsContentTypeMappedToTextHtmlWithoutTheBlanks) {
    EXPECT_THAT(HeadersOf("Content-Type:   text/html  \r\n"),
                ElementsAre(Pair("Content-Type", "text/html")));
}

TEST_F(RestClientAnswers, TheEmptyLineThatEndsTheHeadersIsSkipped) {
    EXPECT_THAT(HeadersOf("\r\n"), IsEmpty());
    EXPECT_THAT(HeadersOf(" \t \r\n"), IsEmpty());
}

TEST_F(RestClientAnswers, ARepeatedHeaderKeepsItsLastValue) {
    web.Answer(200, "", {"A: 1", "a: 2", "A: 3"});

    EXPECT_THAT(client.Get(kUrl).headers,
                ElementsAre(Pair("A", "3"), Pair("HTTP/1.1 200 OK", "present"), Pair("a", "2")));
}

TEST_F(RestClientAnswers, HeadersOfEveryAnswerOnTheWayAreKept) {
    web.Play([](Transfer& transfer) {
        transfer.Receive(302, "", {"Location: /b", "A: 1"});
        return transfer.Receive(200, "", {"A: 2"});
    });

    EXPECT_THAT(client.Get(kUrl).headers,
                ElementsAre(Pair("A", "2"), Pair("HTTP/1.1 200 OK", "present"),
                            Pair("HTTP/1.1 302 Status", "present"), Pair("Location", "/b")));
}

TEST_F(RestClientAnswers, HeadersAndBodyOfARequestAreNotSeenByTheNext) {
    web.Answer(200, "first", {"A: 1"});
    web.Answer(204);
    client.Get(kUrl);

    const Rest::Response second = client.Get(kUrl);

    EXPECT_EQ("", second.body);
    EXPECT_THAT(second.headers, ElementsAre(Pair("HTTP/1.1 204 No Content", "present")));
}

TEST_F(RestClientAnswers, CookieLinesComeInTheirOrderAndTheirListIsFreed) {
    web.HoldCookies({"bmc\tFALSE\t/\tTRUE\t0\tb\t2", "bmc\tFALSE\t/\tTRUE\t0\ta\t1"});
    web.Answer(200);

    const Rest::Response response = client.Get(kUrl);

    EXPECT_THAT(response.cookies,
                ElementsAre("bmc\tFALSE\t/\tTRUE\t0\tb\t2", "bmc\tFALSE\t/\tTRUE\t0\ta\t1"));
    EXPECT_EQ(WithBefore(PlainGet(), "curl_easy_reset", {"curl_slist_free_all"}), web.TakeCalls());
}

TEST_F(RestClientAnswers, AnAnswerWithoutCookiesHasNoList) {
    web.Answer(200);

    EXPECT_THAT(client.Get(kUrl).cookies, IsEmpty());
    EXPECT_EQ(PlainGet(), web.TakeCalls());
}

TEST_F(RestClientAnswers, CookiesThatCannotBeAskedForAreNone) {
    web.HoldCookies({"bmc\tFALSE\t/\tTRUE\t0\ta\t1"});
    web.CookieQueryFails();
    web.Answer(200, "body");

    const Rest::Response response = client.Get(kUrl);

    EXPECT_EQ(200, response.httpCode);
    EXPECT_THAT(response.cookies, IsEmpty());
}

TEST_F(RestClientAnswers, AFailedTransferHasItsCodeNoStatusAndTheErrorTextInPlaceOfTheBody) {
    web.HoldCookies({"bmc\tFALSE\t/\tTRUE\t0\ta\t1"});
    web.Play([](Transfer& transfer) {
        transfer.Receive(200, "half of the bo", {"A: 1"});
        transfer.SetErrorText("transfer closed with 10 bytes remaining to read");
        return CURLE_PARTIAL_FILE;
    });

    const Rest::Response response = client.Get(kUrl);

    EXPECT_EQ(18, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("transfer closed with 10 bytes remaining to read", response.body);
    EXPECT_THAT(response.headers, ElementsAre(Pair("A", "1"), Pair("HTTP/1.1 200 OK", "present")));
    EXPECT_THAT(response.cookies, IsEmpty());
}

TEST_F(RestClientAnswers, AFailedTransferAsksForNothingAndResetsTheHandleAllTheSame) {
    client.AppendHeader("A", "1");
    web.Fail(CURLE_OPERATION_TIMEDOUT, "too slow");

    client.Get(kUrl);

    const Calls calls = web.TakeCalls();
    EXPECT_THAT(Calls(calls.end() - 3, calls.end()),
                ElementsAre("curl_easy_perform", "curl_slist_free_all", "curl_easy_reset"));
}

TEST_F(RestClientAnswers, AFailedTransferWithoutATextHasAnEmptyBody) {
    web.Play([](Transfer& transfer) {
        transfer.Write("half");
        return CURLE_RECV_ERROR;
    });

    EXPECT_EQ("", client.Get(kUrl).body);
}

TEST_F(RestClientAnswers, TheErrorBufferHas256ZeroBytes) {
    web.Play([](Transfer& transfer) {
        const auto* text = static_cast<char*>(transfer.Pointer(CURLOPT_ERRORBUFFER));
        EXPECT_EQ(256, std::count(text, text + 256, '\0'));
        return CURLE_OK;
    });

    client.Get(kUrl);
}

TEST_F(RestClientAnswers, ABodySinkReceivesTheBodyAndTheResponseNone) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::tmpfile(), &std::fclose);
    client.SetBodySink(sink.get());
    web.Answer(200, "to the sink");

    const Rest::Response response = client.Get(kUrl);

    EXPECT_EQ("", response.body);
    EXPECT_EQ(200, response.httpCode);
    std::rewind(sink.get());
    char text[32] = {};
    EXPECT_EQ(11U, std::fread(&text[0], 1, sizeof text, sink.get()));
    EXPECT_STREQ("to the sink", &text[0]);
}

TEST_F(RestClientAnswers, ABodySinkThatCannotBeWrittenAbortsTheTransfer) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::fopen("/dev/null", "r"),
                                                               &std::fclose);
    client.SetBodySink(sink.get());
    web.Play([](Transfer& transfer) {
        EXPECT_EQ(0U, transfer.Write("lost"));
        return CURLE_WRITE_ERROR;
    });

    EXPECT_EQ(23, client.Get(kUrl).curlCode);
}

TEST_F(RestClientAnswers, ABodySinkThatIsNullWritesNothing) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::tmpfile(), &std::fclose);
    client.SetBodySink(sink.get());
    web.Play([](Transfer& transfer) {
        const auto write = transfer.Callback<curl_write_callback>(CURLOPT_WRITEFUNCTION);
        std::string bytes = "lost";
        EXPECT_EQ(0U, write(bytes.data(), 1, bytes.size(), nullptr));
        return CURLE_WRITE_ERROR;
    });

    EXPECT_EQ(23, client.Get(kUrl).curlCode);
}

}  // namespace
