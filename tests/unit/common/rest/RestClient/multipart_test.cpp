// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <boost/function.hpp>
#include <memory>
#include <new>
#include <utility>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

namespace {

using fakes::Transfer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUrl[] = "https://bmc/";

class TextPart : public Rest::MimePart {
public:
    TextPart(std::string name, std::string text)
        : m_name(std::move(name)), m_text(std::move(text)) {}
    void AddTo(curl_mimepart* part) const override {
        curl_mime_name(part, m_name.c_str());
        curl_mime_data(part, m_text.data(), m_text.size());
    }

private:
    std::string m_name;
    std::string m_text;
};

class RestClientMultipart : public testing::Test {
protected:
    RestClientMultipart() { web.TakeCalls(); }

    // Everything that the progress callback was told while `script` ran.
    std::vector<std::pair<curl_off_t, curl_off_t>> ProgressDuring(fakes::FakeCurl::Script script) {
        std::vector<std::pair<curl_off_t, curl_off_t>> told;
        web.Play(std::move(script));
        client.PostMultipart(kUrl, parts, [&told](curl_off_t total, curl_off_t now) {
            told.emplace_back(total, now);
        });
        return told;
    }

    fakes::FakeCurl web;
    Rest::RestClient client;
    Rest::MimeParts parts = {std::make_shared<TextPart>("first", "1"),
                             std::make_shared<TextPart>("second", "2")};
    Rest::ProgressCallback ignore = [](curl_off_t, curl_off_t) {};
};

TEST_F(RestClientMultipart, FillsAFormPartByPartAndFreesItAfterTheReset) {
    web.Answer(200);

    client.PostMultipart(kUrl, parts, ignore);

    const Calls before = {"CURLOPT_POST 1",
                          "curl_mime_init",
                          "curl_mime_addpart",
                          "curl_mime_name first",
                          "curl_mime_data 1",
                          "curl_mime_addpart",
                          "curl_mime_name second",
                          "curl_mime_data 2",
                          "CURLOPT_MIMEPOST pointer",
                          "CURLOPT_NOPROGRESS 0",
                          "CURLOPT_XFERINFOFUNCTION function",
                          "CURLOPT_XFERINFODATA pointer"};
    EXPECT_EQ(Concatenated(Concatenated(before, PlainGet()), {"curl_mime_free"}), web.TakeCalls());
    EXPECT_EQ("POST", web.Requests()[0].method);
    EXPECT_EQ("12", web.Requests()[0].body);
}

TEST_F(RestClientMultipart, WithoutPartsTheFormIsEmpty) {
    web.Answer(200);

    client.PostMultipart(kUrl, {}, ignore);

    EXPECT_EQ(
        Concatenated(Concatenated({"CURLOPT_POST 1", "curl_mime_init", "CURLOPT_MIMEPOST pointer",
                                   "CURLOPT_NOPROGRESS 0", "CURLOPT_XFERINFOFUNCTION function",
                                   "CURLOPT_XFERINFODATA pointer"},
                                  PlainGet()),
                     {"curl_mime_free"}),
        web.TakeCalls());
}

TEST_F(RestClientMultipart, TheFormIsFreedAfterAFailedTransferToo) {
    web.Fail(CURLE_COULDNT_CONNECT, "refused");

    const Rest::Response response = client.PostMultipart(kUrl, {}, ignore);

    EXPECT_EQ(7, response.curlCode);
    EXPECT_EQ("refused", response.body);
    EXPECT_EQ("curl_mime_free", web.TakeCalls().back());
}

TEST_F(RestClientMultipart, ProgressTellsOfTheDownloadOnceItsLengthIsKnownElseOfTheUpload) {
    struct {
        curl_off_t downTotal, downNow, upTotal, upNow;
        std::vector<std::pair<curl_off_t, curl_off_t>> told;
        const char* why;
    } const rows[] = {
        {0, 0, 0, 0, {}, "nothing is known"},
        {0, 5, 0, 7, {}, "bytes without a total"},
        {0, 0, 100, 40, {{100, 40}}, "only the upload's length is known"},
        {200, 50, 0, 0, {{200, 50}}, "only the download's length is known"},
        {200, 50, 100, 100, {{200, 50}}, "the download goes first"},
        {1, 0, 100, 100, {{1, 0}}, "a download of one byte"},
        {0, 0, 1, 1, {{1, 1}}, "an upload of one byte"},
        {-1, 3, 100, 40, {{100, 40}}, "a negative total is none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto told = ProgressDuring([&row](Transfer& transfer) {
            EXPECT_EQ(0, transfer.Progress(row.downTotal, row.downNow, row.upTotal, row.upNow));
            return CURLE_OK;
        });
        EXPECT_EQ(row.told, told);
    }
}

TEST_F(RestClientMultipart, ProgressWithoutACallbackObjectDoesNothing) {
    const auto told = ProgressDuring([](Transfer& transfer) {
        const auto progress = transfer.Callback<curl_xferinfo_callback>(CURLOPT_XFERINFOFUNCTION);
        EXPECT_EQ(0, progress(nullptr, 10, 5, 10, 5));
        return CURLE_OK;
    });

    EXPECT_THAT(told, IsEmpty());
}

TEST_F(RestClientMultipart, AnEmptyProgressCallbackRaisesItsOwnErrorOnceThereIsSomethingToTell) {
    web.Play([](Transfer& transfer) {
        EXPECT_EQ(0, transfer.Progress(0, 0, 0, 0));
        EXPECT_NE(0, transfer.Progress(0, 0, 10, 5));
        return CURLE_ABORTED_BY_CALLBACK;
    });

    EXPECT_THROW(client.PostMultipart(kUrl, parts, Rest::ProgressCallback()),
                 boost::bad_function_call);
}

TEST_F(RestClientMultipart, AnEmptyProgressCallbackThatIsNeverNeededDoesNoHarm) {
    web.Answer(200);

    EXPECT_EQ(200, client.PostMultipart(kUrl, parts, Rest::ProgressCallback()).httpCode);
}

TEST_F(RestClientMultipart, TheCallbackOutlivesTheTransferAndTheForm) {
    auto watched = std::make_shared<int>(0);
    const std::weak_ptr<int> alive = watched;
    web.Play([&alive](Transfer& transfer) {
        EXPECT_FALSE(alive.expired());
        return transfer.Receive(200, "", {});
    });

    client.PostMultipart(kUrl, parts, [watched = std::move(watched)](curl_off_t, curl_off_t) {});

    EXPECT_TRUE(alive.expired());
}

TEST_F(RestClientMultipart, AFormThatCannotBeMadeIsAFailedAllocation) {
    web.MimeInitFails();

    EXPECT_THROW(client.PostMultipart(kUrl, parts, ignore), std::bad_alloc);

    EXPECT_THAT(web.TakeCalls(),
                ElementsAre("CURLOPT_POST 1", "curl_mime_init", "curl_easy_reset"));
}

}  // namespace
