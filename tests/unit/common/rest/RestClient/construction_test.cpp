// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <stdexcept>
#include <type_traits>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

namespace {

using testing::ElementsAre;

TEST(RestClientConstruction, TakesAHandleForItsWholeLife) {
    fakes::FakeCurl web;

    { const Rest::RestClient client; }

    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_init", "curl_easy_cleanup"));
}

TEST(RestClientConstruction, ThrowsWhenThereIsNoHandleAndCleansNothingUp) {
    fakes::FakeCurl web;
    web.InitFails();

    std::string text;
    try {
        const Rest::RestClient client;
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ("Couldn't initialize curl handle", text);
    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_init"));
}

TEST(RestClientConstruction, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Rest::RestClient>);
    EXPECT_FALSE(std::is_copy_assignable_v<Rest::RestClient>);
}

TEST(
    RestClientConstruction,
    ANewClientWithNoSettingsSendsARequestWithUserAgentQtveTesselNoAuthorisationTheLowSpeedLimit30BytesPerSecondOver60SecondsInsteadOfATimeoutAndCookieEngineOn) {
    fakes::FakeCurl web;
    Rest::RestClient client;
    web.TakeCalls();
    web.Answer(200);

    client.Get("https://bmc/");

    EXPECT_EQ(PlainGet(), web.TakeCalls());
}

TEST(RestClientConstruction, AResponseBeginsWithoutCodes) {
    const Rest::Response response;

    EXPECT_EQ(-1, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("", response.body);
    EXPECT_TRUE(response.headers.empty());
    EXPECT_TRUE(response.cookies.empty());
}

}  // namespace
