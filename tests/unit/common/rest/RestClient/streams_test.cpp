// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

namespace {

using fakes::Transfer;
using testing::Contains;
using testing::Not;

constexpr char kUrl[] = "https://bmc/";

class RestClientStreams : public testing::Test {
protected:
    // Runs `script` while `sent` is being put.
    Rest::Response PutDuring(std::istream& sent, fakes::FakeCurl::Script script) {
        web.Play(std::move(script));
        return client.PutStream(kUrl, sent);
    }

    fakes::FakeCurl web;
    Rest::RestClient client;
    std::istringstream stream{"0123456789"};
    char buffer[64] = {};
};

TEST_F(RestClientStreams, AStreamIsSentFromItsStartWhereverItStands) {
    stream.seekg(7);
    web.Answer(200);

    client.PutStream(kUrl, stream);

    EXPECT_EQ("0123456789", web.Requests()[0].body);
    EXPECT_THAT(web.TakeCalls(), Contains("CURLOPT_INFILESIZE 10"));
}

TEST_F(RestClientStreams, AnEmptyStreamHasSize0AndSendsNothing) {
    std::istringstream empty;
    web.Answer(200);

    client.PatchStream(kUrl, empty);

    EXPECT_EQ("", web.Requests()[0].body);
    EXPECT_THAT(web.TakeCalls(), Contains("CURLOPT_INFILESIZE 0"));
}

TEST_F(RestClientStreams, AReadReturnsWhatTheStreamStillHoldsThenNothing) {
    PutDuring(stream, [this](Transfer& transfer) {
        EXPECT_EQ(6U, transfer.Read(&buffer[0], 1, 6));
        EXPECT_EQ("012345", std::string(&buffer[0], 6));
        EXPECT_EQ(4U, transfer.Read(&buffer[0], 2, 3));
        EXPECT_EQ("6789", std::string(&buffer[0], 4));
        EXPECT_EQ(0U, transfer.Read(&buffer[0], 1, 6));
        return CURLE_OK;
    });
}

TEST_F(RestClientStreams, AReadTakesSizeTimesCountBytes) {
    PutDuring(stream, [this](Transfer& transfer) {
        EXPECT_EQ(8U, transfer.Read(&buffer[0], 4, 2));
        return CURLE_OK;
    });
}

TEST_F(RestClientStreams, AReadOfAStreamInAFailedBadOrEndOfFileStateGivesNothing) {
    for (const auto state : {std::ios::failbit, std::ios::badbit, std::ios::eofbit}) {
        SCOPED_TRACE(state);
        std::istringstream sent("0123456789");
        PutDuring(sent, [&](Transfer& transfer) {
            sent.setstate(state);
            EXPECT_EQ(0U, transfer.Read(&buffer[0], 1, 6));
            return CURLE_OK;
        });
    }
}

TEST_F(RestClientStreams, AReadWithoutAStreamGivesAllBitsSet) {
    PutDuring(stream, [this](Transfer& transfer) {
        const auto read = transfer.Callback<curl_read_callback>(CURLOPT_READFUNCTION);
        EXPECT_EQ(~std::size_t{0}, read(&buffer[0], 1, 6, nullptr));
        return CURLE_OK;
    });
}

TEST_F(RestClientStreams, ASeekRewindsWhateverOffsetAndOriginWereAskedAndClearsTheState) {
    struct {
        curl_off_t offset;
        int origin;
    } const rows[] = {{0, SEEK_SET}, {5, SEEK_SET}, {-3, SEEK_END}, {2, SEEK_CUR}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.offset);
        PutDuring(stream, [&](Transfer& transfer) {
            EXPECT_EQ(10U, transfer.Read(&buffer[0], 1, sizeof buffer));
            EXPECT_TRUE(stream.eof());

            EXPECT_EQ(0, transfer.Seek(row.offset, row.origin));

            EXPECT_EQ(3U, transfer.Read(&buffer[0], 1, 3));
            EXPECT_EQ("012", std::string(&buffer[0], 3));
            return CURLE_OK;
        });
        stream.clear();
    }
}

TEST_F(RestClientStreams, ASeekWithoutAStreamFails) {
    PutDuring(stream, [](Transfer& transfer) {
        const auto seek = transfer.Callback<curl_seek_callback>(CURLOPT_SEEKFUNCTION);
        EXPECT_EQ(1, seek(nullptr, 0, SEEK_SET));
        return CURLE_OK;
    });
}

TEST_F(RestClientStreams, ASeekOnAStreamThatCannotSeekSucceedsAllTheSame) {
    std::ifstream missing("/nonexistent/file");
    PutDuring(missing, [](Transfer& transfer) {
        EXPECT_EQ(0, transfer.Seek(0, SEEK_SET));
        return CURLE_OK;
    });
}

TEST_F(RestClientStreams, AStreamThatHasFailedCannotBeMeasuredAndIsSentAsEmpty) {
    stream.setstate(std::ios::failbit);
    web.Answer(200);

    client.PutStream(kUrl, stream);

    EXPECT_EQ("", web.Requests()[0].body);
    EXPECT_THAT(web.TakeCalls(), Contains("CURLOPT_INFILESIZE -1"));
}

TEST_F(RestClientStreams, TheSizeOfAPostStreamIsNotThePostSize) {
    web.Answer(200);

    client.PostStream(kUrl, stream);

    const Calls calls = web.TakeCalls();
    EXPECT_THAT(calls, Contains("CURLOPT_INFILESIZE 10"));
    EXPECT_THAT(calls, Not(Contains(testing::StartsWith("CURLOPT_POSTFIELDSIZE"))));
}

}  // namespace
