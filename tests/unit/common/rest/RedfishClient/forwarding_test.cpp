// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

#include "common/rest/RedfishClient.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeCurl.h"
#include "fakes/FakeGlobalConfig.h"
#include "fakes/FakeLog.h"
#include "unit/common/rest/Calls.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class RedfishClientForwarding : public testing::Test {
protected:
    RedfishClientForwarding() { web.TakeCalls(); }

    Calls CallsOfGet() {
        web.Answer(200);
        client.Get("https://bmc/");
        return web.TakeCalls();
    }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeCurl web;
    Rest::RedfishClient client;
};

TEST_F(RedfishClientForwarding, ANewClientSendsWhatANewEngineSends) {
    EXPECT_EQ(PlainGet(), CallsOfGet());
}

TEST_F(RedfishClientForwarding, EverySettingReachesTheEngine) {
    client.SetSkipSslVerify(true);
    client.SetBasicAuth("admin", "secret");
    client.SetTimeout(60);
    client.FollowRedirects(true, 10);
    client.SetHeaders({{"Accept", "application/json"}});
    client.AppendHeader("Content-Type", "application/json");
    client.SetNoExpectHeader(true);
    client.SetProxy("proxy:1", "user", "word");
    EXPECT_EQ(0, client.EnableGzip());

    EXPECT_THAT(client.GetHeaders(), ElementsAre(Pair("Accept", "application/json"),
                                                 Pair("Content-Type", "application/json")));
    EXPECT_EQ(
        (Calls{
            "CURLOPT_ACCEPT_ENCODING gzip",
            "CURLOPT_URL https://bmc/",
            "CURLOPT_WRITEFUNCTION function",
            "CURLOPT_WRITEDATA pointer",
            "CURLOPT_HEADERFUNCTION function",
            "CURLOPT_HEADERDATA pointer",
            "curl_slist_append Accept: application/json",
            "curl_slist_append Content-Type: application/json",
            "curl_slist_append Expect:",
            "CURLOPT_HTTPHEADER [Accept: application/json][Content-Type: application/json][Expect:]",
            "CURLOPT_HTTPAUTH 1",
            "CURLOPT_USERPWD admin:secret",
            "CURLOPT_USERAGENT QTVE_TESSEL",
            "CURLOPT_TIMEOUT 60",
            "CURLOPT_CONNECTTIMEOUT 60",
            "CURLOPT_NOSIGNAL 1",
            "CURLOPT_UNRESTRICTED_AUTH 1",
            "CURLOPT_FOLLOWLOCATION 1",
            "CURLOPT_MAXREDIRS 10",
            "CURLOPT_SSL_VERIFYPEER 0",
            "CURLOPT_SSL_VERIFYHOST 0",
            "CURLOPT_PROXY http://proxy:1",
            "CURLOPT_HTTPPROXYTUNNEL 1",
            "CURLOPT_PROXYUSERNAME user",
            "CURLOPT_PROXYPASSWORD encodeURI(word)",
            "CURLOPT_COOKIEJAR -",
            "CURLOPT_ERRORBUFFER pointer",
            "CURLOPT_HTTP_VERSION 2",
            "CURLOPT_REDIR_PROTOCOLS_STR https",
            "CURLOPT_OPENSOCKETFUNCTION function",
            "curl_easy_perform",
            "CURLINFO_RESPONSE_CODE",
            "CURLINFO_COOKIELIST",
            "curl_slist_free_all",
            "curl_easy_reset"}),
        CallsOfGet());
}

TEST_F(RedfishClientForwarding, ACaFileReachesTheEngine) {
    client.SetCAInfoFilePath("/etc/ca.pem");

    EXPECT_EQ(WithBefore(PlainGet(), "CURLOPT_COOKIEJAR", {"CURLOPT_CAINFO /etc/ca.pem"}),
              CallsOfGet());
}

TEST_F(RedfishClientForwarding, RequestReachesTheEngine) {
    web.Answer(201);

    client.Request(Rest::POST, "https://bmc/", "body");

    EXPECT_EQ("POST", web.Requests()[0].method);
    EXPECT_EQ("body", web.Requests()[0].body);
}

TEST_F(RedfishClientForwarding, SettingsWriteNoLine) {
    client.SetBasicAuth("admin", "secret");
    client.SetTimeout(60);

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(RedfishClientConstruction, FailsAsTheEnginesDoes) {
    fakes::FakeCurl web;
    web.InitFails();

    EXPECT_THROW(
        {
            try {
                Rest::RedfishClient client;
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ("Couldn't initialize curl handle", error.what());
                throw;
            }
        },
        std::runtime_error);
}

TEST(RedfishClientConstruction, HoldsOneHandleUntilItIsDestroyedThroughItsInterface) {
    fakes::FakeCurl web;

    std::unique_ptr<Rest::RestClientInterface> client(new (std::nothrow) Rest::RedfishClient);
    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_init"));
    client.reset();

    EXPECT_THAT(web.TakeCalls(), ElementsAre("curl_easy_cleanup"));
}

}  // namespace
