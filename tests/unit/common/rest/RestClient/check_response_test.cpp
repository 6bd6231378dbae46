// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "common/rest/RedfishClient.h"
#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"

namespace {

struct {
    int curlCode;
    int httpCode;
    int expected;
    const char* why;
} const kRows[] = {
    {0, 200, 0, "success"},
    {0, 204, 0, "success without a body"},
    {0, 299, 0, "the last of its class"},
    {0, 2, 0, "the first digit decides"},
    {0, 2000, 0, "the first digit decides"},
    {0, 100, -1, "not final"},
    {0, 199, -1, "not final"},
    {0, 300, -1, "a redirect"},
    {0, 302, -1, "a redirect"},
    {0, 404, -1, "missing"},
    {0, 503, -1, "starting"},
    {0, 0, -1, "no status"},
    {0, -1, -1, "no status"},
    {0, -2, -1, "the first character is the sign"},
    {28, -1, -2, "timed out"},
    {58, -1, -2, "local certificate"},
    {60, -1, -2, "peer's certificate"},
    {77, -1, -2, "CA file"},
    {91, -1, -2, "certificate status"},
    {28, 200, -2, "the transfer goes before the status"},
    {7, 200, -1, "the transfer goes before the status"},
    {7, -1, -1, "refused"},
    {1, -1, -1, "protocol"},
    {6, -1, -1, "unknown host"},
    {27, -1, -1, "beside 28"},
    {29, -1, -1, "beside 28"},
    {35, -1, -1, "TLS"},
    {59, -1, -1, "beside 60"},
    {61, -1, -1, "beside 60"},
    {90, -1, -1, "beside 91"},
    {92, -1, -1, "beside 91"},
    {-1, -1, -1, "no transfer"},
};

template <typename Client>
void ExpectRows(Client& client) {
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.why);
        Rest::Response response;
        response.curlCode = row.curlCode;
        response.httpCode = row.httpCode;
        EXPECT_EQ(row.expected, client.CheckResponse(response))
            << row.curlCode << ", " << row.httpCode;
    }
}

TEST(RestClientCheckResponse, TheTransferDecidesThenTheFirstDigitOfTheStatus) {
    fakes::FakeCurl web;
    Rest::RestClient client;

    ExpectRows(client);
}

TEST(RestClientCheckResponse,
     CheckResponseGives0ForHttp204Minus1ForHttp404Minus2ForCurlCode28Minus1ForCurlCode7) {
    fakes::FakeCurl web;
    Rest::RestClient client;
    const auto check = [&client](int curlCode, int httpCode) {
        Rest::Response response;
        response.curlCode = curlCode;
        response.httpCode = httpCode;
        return client.CheckResponse(response);
    };

    EXPECT_EQ(0, check(0, 204));
    EXPECT_EQ(-1, check(0, 404));
    EXPECT_EQ(-2, check(28, -1));
    EXPECT_EQ(-1, check(7, -1));
}

TEST(RedfishClientCheckResponse, IsTheEngines) {
    fakes::FakeCurl web;
    Rest::RedfishClient client;

    ExpectRows(client);
}

}  // namespace
