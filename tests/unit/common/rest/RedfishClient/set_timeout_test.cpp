// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "common/rest/RedfishClient.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeCurl.h"
#include "fakes/FakeGlobalConfig.h"
#include "fakes/FakeLog.h"
#include "unit/common/rest/Calls.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

class RedfishClientSetTimeout : public testing::Test {
protected:
    Calls CallsOfGet() {
        web.TakeCalls();
        web.Answer(200);
        client.Request(Rest::GET, "https://bmc/", "");
        return web.TakeCalls();
    }

    static Calls PlainGetWithTimeout(const std::string& seconds) {
        return WithBefore(Without(PlainGet(), "CURLOPT_LOW_SPEED"), "CURLOPT_NOSIGNAL",
                          {"CURLOPT_TIMEOUT " + seconds, "CURLOPT_CONNECTTIMEOUT " + seconds});
    }

    fakes::FakeCurl web;
    Rest::RedfishClient client;
};

TEST_F(RedfishClientSetTimeout, WithRestActionTimeoutSetTo30SetTimeout60SetsA30SecondTimeout) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 30);

    client.SetTimeout(60);

    EXPECT_EQ(PlainGetWithTimeout("30"), CallsOfGet());
}

TEST_F(RedfishClientSetTimeout, WithRestActionTimeoutUnsetSetTimeout60Sets60) {
    client.SetTimeout(60);

    EXPECT_EQ(PlainGetWithTimeout("60"), CallsOfGet());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), ElementsAre(Pair("REST_ACTION_TIMEOUT", 0)));
}

TEST_F(RedfishClientSetTimeout, AConfigured0IsTheSameAsNone) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 0);

    client.SetTimeout(60);

    EXPECT_EQ(PlainGetWithTimeout("60"), CallsOfGet());
}

TEST_F(RedfishClientSetTimeout, AConfiguredNegativeValueIsPassedAsItIsAndMeansTheLowSpeedLimit) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", -5);

    client.SetTimeout(60);

    EXPECT_EQ(PlainGet(), CallsOfGet());
}

TEST_F(RedfishClientSetTimeout, TheConfiguredValueReplacesGiven0AndNegativeOnesToo) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 30);

    client.SetTimeout(0);
    EXPECT_EQ(PlainGetWithTimeout("30"), CallsOfGet());
    client.SetTimeout(-1);
    EXPECT_EQ(PlainGetWithTimeout("30"), CallsOfGet());
}

TEST_F(RedfishClientSetTimeout, GivenValuesPassThroughWhereNoneIsConfigured) {
    client.SetTimeout(0);
    EXPECT_EQ(PlainGetWithTimeout("0"), CallsOfGet());
    client.SetTimeout(-1);
    EXPECT_EQ(PlainGet(), CallsOfGet());
}

TEST_F(RedfishClientSetTimeout, WithoutACallTheConfiguredValueIsNeitherReadNorSet) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 30);

    EXPECT_EQ(PlainGet(), CallsOfGet());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), testing::IsEmpty());
}

TEST_F(RedfishClientSetTimeout, TheConfiguredValueIsReadOnceInAProcess) {
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 30);
    client.SetTimeout(60);
    fakes::FakeConfig::Set("REST_ACTION_TIMEOUT", 90);

    Rest::RedfishClient another;
    another.SetTimeout(60);
    client.SetTimeout(60);

    EXPECT_EQ(PlainGetWithTimeout("30"), CallsOfGet());
    EXPECT_THAT(fakes::FakeConfig::Lookups(), ElementsAre(Pair("REST_ACTION_TIMEOUT", 0)));
}

}  // namespace
