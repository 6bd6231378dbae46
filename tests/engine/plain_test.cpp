// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include "Servers.h"
#include "support/TempFolder.h"

// The engine, libcurl and a server that tells what it received.
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

class BytesPart : public Rest::MimePart {
public:
    explicit BytesPart(std::string bytes) : m_bytes(std::move(bytes)) {}
    void AddTo(curl_mimepart* part) const override {
        curl_mime_name(part, "file");
        curl_mime_filename(part, "file.bin");
        curl_mime_data(part, m_bytes.data(), m_bytes.size());
    }

private:
    std::string m_bytes;
};

class Engine : public testing::Test {
protected:
    Engine() { client.SetTimeout(30); }

    // What the server says it received.
    static boost::json::object Echo(const Rest::Response& response) {
        EXPECT_EQ(0, response.curlCode) << response.body;
        EXPECT_EQ(200, response.httpCode);
        boost::system::error_code error;
        const boost::json::value echo = boost::json::parse(response.body, error);
        return echo.is_object() ? echo.as_object() : boost::json::object();
    }

    static std::string Header(const boost::json::object& echo, const std::string& name) {
        const auto* value = echo.at("headers").as_object().if_contains(name);
        return value == nullptr ? "none" : std::string(value->as_string());
    }

    static void ExpectBody(const boost::json::object& echo, const std::string& body) {
        EXPECT_EQ(body.size(), echo.at("size").to_number<std::size_t>());
        EXPECT_EQ(Crc32(body), echo.at("crc").to_number<std::uint32_t>());
    }

    Server server{"plain_peer.py"};
    FullClient client;
};

TEST_F(Engine, GetBringsABodyWithoutSendingOne) {
    const auto echo = Echo(client.Get(server.Url("/echo")));

    EXPECT_EQ("GET", echo.at("method"));
    ExpectBody(echo, "");
}

TEST_F(Engine, SaysWhoItIsAndNothingMoreThanAsked) {
    client.AppendHeader("Accept", "application/json");
    client.AppendHeader("X-Odd-CASE", "kept");

    const auto echo = Echo(client.Get(server.Url("/echo")));

    EXPECT_EQ("QTVE_TESSEL", Header(echo, "User-Agent"));
    EXPECT_EQ("application/json", Header(echo, "Accept"));
    EXPECT_EQ("kept", Header(echo, "X-Odd-CASE"));
    EXPECT_EQ("none", Header(echo, "Authorization"));
    EXPECT_EQ("none", Header(echo, "Accept-Encoding"));
    EXPECT_EQ("HTTP/1.1", echo.at("version"));
}

TEST_F(Engine, PostSendsItsBody) {
    const auto echo = Echo(client.Post(server.Url("/echo"), "{\"a\":1}"));

    EXPECT_EQ("POST", echo.at("method"));
    ExpectBody(echo, "{\"a\":1}");
    EXPECT_EQ("7", Header(echo, "Content-Length"));
}

TEST_F(Engine, PutAndPatchSendTheirBodies) {
    const auto put = Echo(client.Put(server.Url("/echo"), "put"));
    const auto patch = Echo(client.Patch(server.Url("/echo"), "patch"));

    EXPECT_EQ("PUT", put.at("method"));
    ExpectBody(put, "put");
    EXPECT_EQ("PATCH", patch.at("method"));
    ExpectBody(patch, "patch");
}

TEST_F(Engine, DeleteBringsABody) {
    const auto echo = Echo(client.Delete(server.Url("/echo")));

    EXPECT_EQ("DELETE", echo.at("method"));
    ExpectBody(echo, "");
}

TEST_F(Engine, HeadBringsHeadersOnly) {
    const Rest::Response response = client.Head(server.Url("/echo"));

    EXPECT_EQ(200, response.httpCode);
    EXPECT_EQ("HEAD", response.headers.at("X-Method"));
    EXPECT_NE("0", response.headers.at("Content-Length"));
    EXPECT_EQ("", response.body);
}

TEST_F(Engine, OptionsDropsABodyAndTheNextRequestIsNotConfusedByIt) {
    const Rest::Response response = client.Options(server.Url("/echo"));
    const auto echo = Echo(client.Get(server.Url("/echo")));

    EXPECT_EQ(200, response.httpCode);
    EXPECT_EQ("OPTIONS", response.headers.at("X-Method"));
    EXPECT_EQ("", response.body);
    EXPECT_EQ("GET", echo.at("method"));
}

TEST_F(Engine, AfterAHeadRequestAFollowingGetOnTheSameObjectTransfersABody) {
    client.Head(server.Url("/echo"));

    EXPECT_EQ("GET", Echo(client.Get(server.Url("/echo"))).at("method"));
}

TEST_F(Engine, RequestsFollowEachOtherOnOneConnection) {
    const auto first = Echo(client.Get(server.Url("/echo")));
    const auto second = Echo(client.Post(server.Url("/echo"), "body"));
    const auto third = Echo(client.Get(server.Url("/echo")));

    EXPECT_EQ(first.at("connection"), second.at("connection"));
    EXPECT_EQ(first.at("connection"), third.at("connection"));
}

// Sizes of streams.
class EngineStreams : public Engine, public testing::WithParamInterface<std::size_t> {
protected:
    const std::string m_bytes = Pattern(GetParam());
    std::istringstream stream{m_bytes};
};

TEST_P(EngineStreams, ArePutWithTheirLength) {
    const auto echo = Echo(client.PutStream(server.Url("/echo"), stream));

    EXPECT_EQ("PUT", echo.at("method"));
    EXPECT_EQ(false, echo.at("chunked"));
    EXPECT_EQ(std::to_string(m_bytes.size()), Header(echo, "Content-Length"));
    ExpectBody(echo, m_bytes);
}

TEST_P(EngineStreams, ArePatchedWithTheirLength) {
    const auto echo = Echo(client.PatchStream(server.Url("/echo"), stream));

    EXPECT_EQ("PATCH", echo.at("method"));
    EXPECT_EQ(false, echo.at("chunked"));
    ExpectBody(echo, m_bytes);
}

TEST_P(EngineStreams, ArePostedInChunksWithoutALength) {
    const auto echo = Echo(client.PostStream(server.Url("/echo"), stream));

    EXPECT_EQ("POST", echo.at("method"));
    EXPECT_EQ(true, echo.at("chunked"));
    EXPECT_EQ("none", Header(echo, "Content-Length"));
    ExpectBody(echo, m_bytes);
}

INSTANTIATE_TEST_SUITE_P(Of, EngineStreams, testing::Values(0U, 1U, 64 * kMebibyte));

TEST_F(Engine, BodiesUpToTheBoundComeWhole) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 4 * kMebibyte}) {
        const Rest::Response response = client.Get(server.Url("/bytes/" + std::to_string(size)));

        EXPECT_EQ(200, response.httpCode);
        EXPECT_TRUE(Pattern(size) == response.body) << response.body.size();
    }
}

TEST_F(Engine, AFileIsAStreamAndIsSentFromItsStart) {
    const TempFolder folder;
    const std::string bytes = Pattern(100000);
    std::ifstream file(folder.Write("file", bytes), std::ios::binary);
    file.seekg(5000);

    ExpectBody(Echo(client.PutStream(server.Url("/echo"), file)), bytes);
}

TEST_F(Engine, AStreamIsRewoundWhenARedirectWantsItAgain) {
    client.FollowRedirects(true, 3);
    const std::string bytes = Pattern(300000);
    std::istringstream stream(bytes);

    const auto echo = Echo(client.PutStream(server.Url("/moved/307"), stream));

    EXPECT_EQ("PUT", echo.at("method"));
    ExpectBody(echo, bytes);
}

TEST_F(Engine, AStreamThatFailsHalfwayFailsTheTransfer) {
    class Failing : public std::stringbuf {
    public:
        Failing() : std::stringbuf(Pattern(kMebibyte)) {}

    protected:
        std::streamsize xsgetn(char* target, std::streamsize count) override {
            m_read += count;
            return m_read > 500000 ? 0 : std::stringbuf::xsgetn(target, count);
        }

    private:
        std::streamsize m_read = 0;
    } medium;
    std::istream stream(&medium);
    client.SetTimeout(2);

    // Fewer bytes than announced: the server waits for the rest until the time is over.
    EXPECT_NE(0, client.PutStream(server.Url("/echo"), stream).curlCode);
}

TEST_F(Engine, WhatAStreamThrowsLeavesTheRequestAndTheClientGoesOn) {
    class Throwing : public std::stringbuf {
    public:
        Throwing() : std::stringbuf(Pattern(kMebibyte)) {}

    protected:
        std::streamsize xsgetn(char* target, std::streamsize count) override {
            if (++m_reads == 3) throw std::runtime_error("medium failed");
            return std::stringbuf::xsgetn(target, count);
        }

    private:
        int m_reads = 0;
    } medium;
    std::istream stream(&medium);
    stream.exceptions(std::ios::badbit);

    EXPECT_THROW(client.PutStream(server.Url("/echo"), stream), std::runtime_error);

    EXPECT_EQ("GET", Echo(client.Get(server.Url("/echo"))).at("method"));
}

TEST_F(Engine, AContinueIsAskedForBeforeALargeBodyUnlessThatIsSuppressed) {
    const std::string bytes = Pattern(2 * kMebibyte);

    const auto asking = Echo(client.Put(server.Url("/echo"), bytes));
    client.SetNoExpectHeader(true);
    const auto silent = Echo(client.Put(server.Url("/echo"), bytes));

    EXPECT_EQ("100-continue", Header(asking, "Expect"));
    EXPECT_EQ("none", Header(silent, "Expect"));
    ExpectBody(silent, bytes);
}

TEST_F(Engine, AMultipartFormTellsItsProgressUpToTheWholeSize) {
    const Rest::MimeParts parts = {std::make_shared<BytesPart>(Pattern(4 * kMebibyte))};
    std::vector<std::pair<curl_off_t, curl_off_t>> told;

    const auto echo = Echo(client.PostMultipart(
        server.Url("/echo"), parts,
        [&told](curl_off_t total, curl_off_t now) { told.emplace_back(total, now); }));

    EXPECT_EQ("POST", echo.at("method"));
    EXPECT_THAT(Header(echo, "Content-Type"), HasSubstr("multipart/form-data; boundary="));
    const auto sent = echo.at("size").to_number<curl_off_t>();
    EXPECT_GT(sent, static_cast<curl_off_t>(4 * kMebibyte));
    EXPECT_THAT(told, testing::Contains(std::make_pair(sent, sent)));
    curl_off_t before = 0;
    for (const auto& [total, now] : told) {
        if (total != sent) continue;  // of the answer
        EXPECT_THAT(now, AllOf(Ge(before), Le(total)));
        before = now;
    }
}

TEST_F(Engine, WhatAProgressCallbackThrowsEndsTheTransferEarly) {
    const Rest::MimeParts parts = {std::make_shared<BytesPart>(Pattern(16 * kMebibyte))};

    EXPECT_THROW(
        client.PostMultipart(server.Url("/echo"), parts,
                             [](curl_off_t, curl_off_t) { throw std::runtime_error("stopped"); }),
        std::runtime_error);

    EXPECT_EQ("GET", Echo(client.Get(server.Url("/echo"))).at("method"));
}

TEST_F(Engine, HeaderNamesKeepTheCaseThatTheServerGivesThem) {
    const auto headers = client.Get(server.Url("/spelled")).headers;

    EXPECT_EQ(1U, headers.count("x-LOWER-upper"));
    EXPECT_EQ(0U, headers.count("X-Lower-Upper"));
    EXPECT_EQ("a b", headers.at("X-Blanks"));
    EXPECT_EQ("two", headers.at("X-Twice"));
    EXPECT_EQ("present", headers.at("HTTP/1.1 200 OK"));
}

TEST_F(Engine, CookiesOutliveTheResetOfTheHandle) {
    const Rest::Response set = client.Get(server.Url("/cookie/session"));
    const Rest::Response next = client.Get(server.Url("/echo"));

    ASSERT_THAT(set.cookies, SizeIs(1));
    EXPECT_THAT(set.cookies.front(), HasSubstr("\tsession\t1"));
    EXPECT_EQ("session=1", Header(Echo(next), "Cookie"));
    EXPECT_EQ(set.cookies, next.cookies);
}

TEST_F(Engine, CookiesBelongToOneClient) {
    client.Get(server.Url("/cookie/session"));
    FullClient other;

    EXPECT_EQ("none", Header(Echo(other.Get(server.Url("/echo"))), "Cookie"));
}

TEST_F(Engine, ACookieListIsSentAlong) {
    client.SetCookieList("Set-Cookie: given=2; domain=127.0.0.1; path=/");

    EXPECT_EQ("given=2", Header(Echo(client.Get(server.Url("/echo"))), "Cookie"));
}

TEST_F(Engine, TheCookieJarLeavesStandardOutputEmpty) {
    testing::internal::CaptureStdout();
    {
        FullClient shortLived;
        shortLived.Get(server.Url("/cookie/session"));
        shortLived.Get(server.Url("/cut"));
        shortLived.Get(server.Url("/cookie/other"));
    }
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

// What the test before this one guards against.
TEST_F(Engine, TheCookieJarOfAHandleThatIsNotResetIsPrinted) {
    testing::internal::CaptureStdout();
    {
        std::string ignored;
        CURL* bare = curl_easy_init();
        curl_easy_setopt(bare, CURLOPT_URL, server.Url("/cookie/session").c_str());
        curl_easy_setopt(bare, CURLOPT_NOBODY, 1L);
        curl_easy_setopt(bare, CURLOPT_COOKIEJAR, "-");
        EXPECT_EQ(CURLE_OK, curl_easy_perform(bare));
        curl_easy_cleanup(bare);
    }
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("session"));
}

TEST_F(Engine, ABodySinkReceivesTheBody) {
    const TempFolder folder;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(
        std::fopen((folder / "body").c_str(), "wb"), &std::fclose);
    client.SetBodySink(sink.get());

    const Rest::Response response = client.Get(server.Url("/bytes/300000"));
    sink.reset();

    EXPECT_EQ(200, response.httpCode);
    EXPECT_EQ("", response.body);
    EXPECT_TRUE(Pattern(300000) == Content(folder / "body"));
}

TEST_F(Engine, ABodySinkThatCannotBeWrittenFailsTheTransfer) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::fopen("/dev/null", "rb"),
                                                               &std::fclose);
    client.SetBodySink(sink.get());

    const Rest::Response response = client.Get(server.Url("/bytes/300000"));

    EXPECT_EQ(CURLE_WRITE_ERROR, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
}

class EngineTrouble : public Engine {
protected:
    // A request that is bounded by one second.
    Rest::Response GetWithinASecond(const std::string& path) {
        client.SetTimeout(1);
        const auto start = std::chrono::steady_clock::now();
        Rest::Response response = client.Get(server.Url(path));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        return response;
    }
};

TEST_F(EngineTrouble, AServerThatNeverAnswersTimesOut) {
    const Rest::Response response = GetWithinASecond("/silent");

    EXPECT_EQ(28, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_THAT(response.body, HasSubstr("timed out"));
    EXPECT_EQ(-2, client.CheckResponse(response));
}

TEST_F(EngineTrouble, AServerThatStallsInTheBodyTimesOutAndTheHalfIsDropped) {
    const Rest::Response response = GetWithinASecond("/stall/1000");

    EXPECT_EQ(28, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_THAT(response.body, HasSubstr("with 500 out of 1000 bytes received"));
    EXPECT_EQ("1000", response.headers.at("Content-Length"));
}

TEST_F(EngineTrouble, AConnectionThatIsCutInTheBodyFailsAndTheHalfIsDropped) {
    const Rest::Response response = client.Get(server.Url("/cut/1000"));

    EXPECT_EQ(18, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("transfer closed with 500 bytes remaining to read", response.body);
    EXPECT_THAT(response.cookies, IsEmpty());
    EXPECT_EQ(-1, client.CheckResponse(response));
}

TEST_F(EngineTrouble, AConnectionThatIsCutBeforeTheAnswerFails) {
    const Rest::Response response = client.Get(server.Url("/cut"));

    EXPECT_EQ(52, response.curlCode);
    EXPECT_EQ("Empty reply from server", response.body);
}

TEST_F(EngineTrouble, ARefusedConnectionFailsWithItsText) {
    const Rest::Response response =
        client.Get("http://127.0.0.1:" + std::to_string(FreePort()) + "/");

    EXPECT_EQ(7, response.curlCode);
    EXPECT_THAT(response.body, HasSubstr("Failed to connect to 127.0.0.1 port"));
    EXPECT_EQ(-1, client.CheckResponse(response));
}

TEST_F(EngineTrouble, AnAddressThatIsNoneFails) {
    EXPECT_EQ(3, client.Get("http://[::1/").curlCode);
    EXPECT_EQ(1, client.Get("nothing://127.0.0.1/").curlCode);
    EXPECT_NE(0, client.Get("").curlCode);
}

TEST_F(EngineTrouble, TheClientWorksAgainAfterEveryTrouble) {
    for (const char* path : {"/silent", "/stall/1000", "/cut/1000", "/cut"}) {
        SCOPED_TRACE(path);
        EXPECT_NE(0, GetWithinASecond(path).curlCode);
        EXPECT_EQ("GET", Echo(client.Get(server.Url("/echo"))).at("method"));
    }
}

TEST_F(EngineTrouble, ATimeoutOf0SetsNoLimit) {
    client.SetTimeout(0);

    EXPECT_EQ(200, client.Get(server.Url("/echo")).httpCode);
}

TEST_F(EngineTrouble, AnErrorStatusIsAnAnswer) {
    const Rest::Response response = client.Get(server.Url("/missing"));

    EXPECT_EQ(0, response.curlCode);
    EXPECT_EQ(404, response.httpCode);
    EXPECT_EQ(-1, client.CheckResponse(response));
}

}  // namespace
