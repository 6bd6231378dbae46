// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cstdio>
#include <memory>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

// What one answer, or all together, may make a client hold.
namespace {

using fakes::Transfer;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kUrl[] = "https://bmc/";
constexpr std::size_t kMebibyte = 1024 * 1024;

class SinkClient : public Rest::RestClient {
public:
    using Rest::RestClient::SetBodySink;
};

class RestClientBounds : public testing::Test {
protected:
    RestClientBounds() { web.TakeCalls(); }

    // The answer to a GET that arrives as `script` says; code 23 once a piece is not taken.
    Rest::Response Answered(fakes::FakeCurl::Script script) {
        web.Play(std::move(script));
        return client.Get(kUrl);
    }

    // `size` bytes in pieces of 16 KiB.
    static CURLcode WriteAll(Transfer& transfer, std::size_t size) {
        const std::string piece(16 * 1024, 'x');
        for (std::size_t left = size; left > 0;) {
            const std::size_t now = std::min(left, piece.size());
            if (transfer.Write(piece.substr(0, now)) != now) return CURLE_WRITE_ERROR;
            left -= now;
        }
        return CURLE_OK;
    }

    static void ExpectCut(const std::string& text, const Rest::Response& response) {
        EXPECT_EQ(23, response.curlCode);
        EXPECT_EQ(-1, response.httpCode);
        EXPECT_EQ(text, response.body);
        EXPECT_THAT(response.cookies, IsEmpty());
    }

    fakes::FakeCurl web;
    SinkClient client;
};

TEST_F(RestClientBounds, ABodyOfSixteenMebibytesIsTakenAndOneByteMoreCutsTheAnswer) {
    const Rest::Response whole =
        Answered([](Transfer& transfer) { return WriteAll(transfer, 16 * kMebibyte); });
    EXPECT_EQ(0, whole.curlCode);
    EXPECT_THAT(whole.body, SizeIs(16 * kMebibyte));

    ExpectCut("Answer too large: more than 16777216 bytes of body",
              Answered([](Transfer& transfer) {
                  transfer.SetErrorText("Failed writing body (0 != 16384)");
                  return WriteAll(transfer, 16 * kMebibyte + 1);
              }));
}

TEST_F(RestClientBounds, TheFirstPieceThatIsTooMuchEndsTheTransfer) {
    Answered([](Transfer& transfer) {
        EXPECT_EQ(3U, transfer.Write("abc"));
        EXPECT_EQ(0U, transfer.Write(std::string(16 * kMebibyte, 'x')));
        return CURLE_WRITE_ERROR;
    });
}

TEST_F(RestClientBounds, NothingOfABodyThatWasCutIsKept) {
    const Rest::Response response =
        Answered([](Transfer& transfer) { return WriteAll(transfer, 17 * kMebibyte); });

    EXPECT_LT(response.body.capacity(), 4096U);
}

TEST_F(RestClientBounds, HeaderLinesOf256KibibytesAreTakenAndOneByteMoreCutsTheAnswer) {
    const std::string line = "A: " + std::string(1019, 'x') + "\r\n";  // 1 KiB
    const auto lines = [&line](Transfer& transfer, int count) {
        for (int i = 0; i < count; ++i) {
            if (transfer.Header(line) != line.size()) return CURLE_WRITE_ERROR;
        }
        return CURLE_OK;
    };
    EXPECT_EQ(0, Answered([&](Transfer& transfer) { return lines(transfer, 256); }).curlCode);

    ExpectCut("Answer too large: more than 262144 bytes of header lines",
              Answered([&](Transfer& transfer) {
                  EXPECT_EQ(CURLE_OK, lines(transfer, 256));
                  EXPECT_EQ(0U, transfer.Header("\n"));
                  return CURLE_WRITE_ERROR;
              }));
}

TEST_F(RestClientBounds, HeaderLinesOfAllAnswersOnTheWayCountTogether) {
    ExpectCut("Answer too large: more than 262144 bytes of header lines",
              Answered([](Transfer& transfer) {
                  CURLcode code = CURLE_OK;
                  for (int i = 0; i < 20000 && code == CURLE_OK; ++i) {
                      code = transfer.Receive(100, "", {});
                  }
                  return code;
              }));
}

TEST_F(RestClientBounds, ALineThatIsTooLongForLibcurlIsNotCalledOutOfMemory) {
    ExpectCut("Answer too large: one header line without an end", Answered([](Transfer& transfer) {
                  transfer.AnswerBegins();
                  transfer.SetErrorText("Out of memory");
                  return CURLE_OUT_OF_MEMORY;
              }));
}

TEST_F(RestClientBounds, OutOfMemoryBeforeTheAnswerBeginsIsWhatItSays) {
    const Rest::Response response = Answered([](Transfer& transfer) {
        transfer.SetErrorText("Out of memory");
        return CURLE_OUT_OF_MEMORY;
    });

    EXPECT_EQ(27, response.curlCode);
    EXPECT_EQ("Out of memory", response.body);
}

TEST_F(RestClientBounds, EachExchangeIsCountedByItself) {
    for (int i = 0; i < 3; ++i) {
        const Rest::Response response = Answered([](Transfer& transfer) {
            transfer.Header("A: " + std::string(200 * 1024, 'x') + "\r\n");
            return WriteAll(transfer, 3 * kMebibyte);
        });
        EXPECT_EQ(0, response.curlCode);
    }
}

TEST_F(RestClientBounds, ABodySinkTakesAnySize) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> sink(std::tmpfile(), &std::fclose);
    client.SetBodySink(sink.get());

    EXPECT_EQ(0, Answered([](Transfer& transfer) {
                     return WriteAll(transfer, 17 * kMebibyte);
                 }).curlCode);
}

TEST_F(RestClientBounds, CookiesOfOneMebibyteAreTakenAndOneByteMoreDropsThemAll) {
    std::vector<std::string> cookies(1024, std::string(1024, 'c'));
    web.HoldCookies(cookies);
    web.Answer(200, "body");
    const Rest::Response whole = client.Get(kUrl);
    EXPECT_EQ(200, whole.httpCode);
    EXPECT_THAT(whole.cookies, SizeIs(1024));
    EXPECT_THAT(web.TakeCalls(), Not(Contains("CURLOPT_COOKIELIST ALL")));

    cookies.emplace_back("c");
    web.HoldCookies(cookies);
    web.Answer(200, "body");
    ExpectCut("Answer too large: more than 1048576 bytes of cookies", client.Get(kUrl));
    EXPECT_THAT(web.TakeCalls(), Contains("CURLOPT_COOKIELIST ALL"));
}

// A server can send cookies with answers that then fail, for ever.
TEST_F(RestClientBounds, CookiesOfFailedExchangesAreLookedAtOnceTheyMayBeTooMany) {
    web.HoldCookies(std::vector<std::string>(1025, std::string(1024, 'c')));
    const auto failing = [](Transfer& transfer) {
        transfer.Header("Set-Cookie: c=" + std::string(250 * 1024, 'x') + "\r\n");
        transfer.SetErrorText("cut");
        return CURLE_RECV_ERROR;
    };
    for (int i = 0; i < 4; ++i) EXPECT_EQ(56, Answered(failing).curlCode);
    EXPECT_THAT(web.TakeCalls(), Not(Contains("CURLINFO_COOKIELIST")));

    const Rest::Response fifth = Answered(failing);

    EXPECT_THAT(web.TakeCalls(), Contains("CURLOPT_COOKIELIST ALL"));
    EXPECT_EQ(56, fifth.curlCode);
    EXPECT_EQ("cut", fifth.body);
    EXPECT_THAT(fifth.cookies, IsEmpty());

    EXPECT_EQ(56, Answered(failing).curlCode);
    EXPECT_THAT(web.TakeCalls(), Not(Contains("CURLINFO_COOKIELIST")));
}

}  // namespace
