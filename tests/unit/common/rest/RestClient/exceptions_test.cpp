// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <streambuf>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

// What callers' objects throw while libcurl runs never passes through libcurl.
namespace {

using fakes::Transfer;
using testing::ElementsAre;

constexpr char kUrl[] = "https://bmc/";

// Files on a medium that fails: a stream with exceptions on passes on what its buffer throws.
class ThrowingOnRead : public std::streambuf {
protected:
    int_type underflow() override { throw std::runtime_error("medium failed"); }
    pos_type seekoff(off_type, std::ios::seekdir, std::ios::openmode) override { return 10; }
    pos_type seekpos(pos_type position, std::ios::openmode) override { return position; }
};

class ThrowingOnRewind : public std::stringbuf {
public:
    ThrowingOnRewind() : std::stringbuf("0123456789") {}
    bool armed = false;

protected:
    pos_type seekpos(pos_type position, std::ios::openmode mode) override {
        if (armed) throw std::runtime_error("rewind failed");
        return std::stringbuf::seekpos(position, mode);
    }
};

class ThrowingPart : public Rest::MimePart {
public:
    void AddTo(curl_mimepart*) const override { throw std::runtime_error("part failed"); }
};

class RestClientExceptions : public testing::Test {
protected:
    RestClientExceptions() { web.TakeCalls(); }

    // The text of what `action` throws.
    template <typename Action>
    static std::string Thrown(Action action) {
        try {
            action();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "nothing";
    }

    fakes::FakeCurl web;
    Rest::RestClient client;
};

TEST_F(RestClientExceptions, WhatAStreamThrowsWhileReadAbortsTheTransferAndLeavesTheRequest) {
    client.AppendHeader("A", "1");
    ThrowingOnRead medium;
    std::istream stream(&medium);
    stream.exceptions(std::ios::badbit);
    web.Play([](Transfer& transfer) {
        const CURLcode sent = transfer.Send();
        EXPECT_EQ(CURLE_ABORTED_BY_CALLBACK, sent);
        return sent;
    });

    EXPECT_EQ("medium failed", Thrown([&] { client.PutStream(kUrl, stream); }));

    const Calls calls = web.TakeCalls();
    EXPECT_THAT(Calls(calls.end() - 3, calls.end()),
                ElementsAre("curl_easy_perform", "curl_slist_free_all", "curl_easy_reset"));
}

TEST_F(RestClientExceptions, WhatAStreamThrowsWhileRewoundFailsTheSeekAndLeavesTheRequest) {
    ThrowingOnRewind medium;
    std::istream stream(&medium);
    stream.exceptions(std::ios::badbit);
    web.Play([&medium](Transfer& transfer) {
        medium.armed = true;
        EXPECT_EQ(CURL_SEEKFUNC_FAIL, transfer.Seek(0, SEEK_SET));
        return CURLE_SEND_FAIL_REWIND;
    });

    EXPECT_EQ("rewind failed", Thrown([&] { client.PostStream(kUrl, stream); }));

    EXPECT_EQ("curl_easy_reset", web.TakeCalls().back());
}

TEST_F(RestClientExceptions, WhatAStreamThrowsWhileMeasuredLeavesTheHandleUntouched) {
    ThrowingOnRewind medium;
    medium.armed = true;
    std::istream stream(&medium);
    stream.exceptions(std::ios::badbit);

    EXPECT_EQ("rewind failed", Thrown([&] { client.PatchStream(kUrl, stream); }));

    EXPECT_THAT(web.TakeCalls(), testing::IsEmpty());
}

TEST_F(RestClientExceptions, WhatAPartThrowsFreesTheFormAndResetsTheHandle) {
    const Rest::MimeParts parts = {std::make_shared<ThrowingPart>()};

    EXPECT_EQ("part failed",
              Thrown([&] { client.PostMultipart(kUrl, parts, Rest::ProgressCallback()); }));

    EXPECT_THAT(web.TakeCalls(),
                ElementsAre("CURLOPT_POST 1", "curl_mime_init", "curl_mime_addpart",
                            "curl_mime_free", "curl_easy_reset"));
}

TEST_F(RestClientExceptions, WhatAProgressCallbackThrowsAbortsTheTransferAndLeavesTheRequest) {
    web.Play([](Transfer& transfer) {
        EXPECT_NE(0, transfer.Progress(10, 1, 0, 0));
        return CURLE_ABORTED_BY_CALLBACK;
    });

    EXPECT_EQ("enough", Thrown([&] {
                  client.PostMultipart(
                      kUrl, {}, [](curl_off_t, curl_off_t) { throw std::runtime_error("enough"); });
              }));

    const Calls calls = web.TakeCalls();
    EXPECT_THAT(Calls(calls.end() - 3, calls.end()),
                ElementsAre("curl_easy_perform", "curl_easy_reset", "curl_mime_free"));
}

TEST_F(RestClientExceptions, TheFirstExceptionOfATransferIsTheOneThatLeaves) {
    int count = 0;
    web.Play([](Transfer& transfer) {
        transfer.Progress(10, 1, 0, 0);
        transfer.Progress(10, 2, 0, 0);
        return CURLE_ABORTED_BY_CALLBACK;
    });

    EXPECT_EQ("number 1", Thrown([&] {
                  client.PostMultipart(kUrl, {}, [&count](curl_off_t, curl_off_t) {
                      throw std::runtime_error("number " + std::to_string(++count));
                  });
              }));
}

TEST_F(RestClientExceptions, ARequestMadeByAProgressCallbackKeepsItsExceptionsToItself) {
    Rest::RestClient other;
    const auto failing = [](curl_off_t, curl_off_t) { throw std::runtime_error("inner"); };
    const auto outer = [&](curl_off_t, curl_off_t) {
        EXPECT_EQ("inner", Thrown([&] { other.PostMultipart(kUrl, {}, failing); }));
    };
    web.Play([](Transfer& transfer) {
        EXPECT_EQ(0, transfer.Progress(10, 1, 0, 0));
        return transfer.Receive(200, "", {});
    });
    web.Play([](Transfer& transfer) {
        EXPECT_NE(0, transfer.Progress(10, 1, 0, 0));
        return CURLE_ABORTED_BY_CALLBACK;
    });

    EXPECT_EQ(200, client.PostMultipart(kUrl, {}, outer).httpCode);
}

TEST_F(RestClientExceptions, AProgressCallbackMayThrowAfterARequestOfItsOwn) {
    Rest::RestClient other;
    const auto outer = [&other](curl_off_t, curl_off_t) {
        other.Get(kUrl);
        throw std::runtime_error("outer");
    };
    web.Play([](Transfer& transfer) {
        EXPECT_NE(0, transfer.Progress(10, 1, 0, 0));
        return CURLE_ABORTED_BY_CALLBACK;
    });
    web.Answer(200);

    EXPECT_EQ("outer", Thrown([&] { client.PostMultipart(kUrl, {}, outer); }));
}

TEST_F(RestClientExceptions, TheNextRequestIsNotConcerned) {
    web.Play([](Transfer& transfer) {
        transfer.Progress(10, 1, 0, 0);
        return CURLE_ABORTED_BY_CALLBACK;
    });
    web.Answer(200, "body");

    EXPECT_THROW(client.PostMultipart(kUrl, {}, Rest::ProgressCallback()), std::exception);
    web.TakeCalls();

    EXPECT_EQ("body", client.Get(kUrl).body);
    EXPECT_EQ(PlainGet(), web.TakeCalls());
}

TEST_F(RestClientExceptions, AHeaderListThatCannotBeMadeIsAFailedAllocationWithoutATransfer) {
    client.SetHeaders({{"A", "1"}});
    web.AppendFails();

    EXPECT_THROW(client.Get(kUrl), std::bad_alloc);

    EXPECT_EQ("curl_easy_reset", web.TakeCalls().back());
    EXPECT_TRUE(web.Requests().empty());
}

}  // namespace
