// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeMemory.h"
#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Trace;
using fakes::Warning;
using testing::ElementsAre;
using Varnex::KEMFfdcRedfishImpl;

namespace {

constexpr char kProbeUrl[] = "https://10.0.0.5:443/redfish/v1/TaskService/Tasks/8A6CA3D3EC";
constexpr char kNeedsAuthentication[] =
    "The request requires user authentication which has not yet been provided or invalid.";

class RedfishConnect : public RedfishTest {};
class RedfishResetConn : public RedfishTest {
protected:
    void SetUp() override {
        other = conn;
        other.userid = "operator";
        other.password = "other";
    }
    Varnex::VarnexConnection::ConnectionInfo other;
};

}  // namespace

TEST_F(RedfishConnect, ProbeAnswered404WithAJsonErrorBodyCountsAsConnected) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(404, R"({"error":{"code":"Base.1.0.ResourceMissingAtURI"}})");

    EXPECT_EQ(0, channel.Connect());

    EXPECT_EQ("GET", LastRequest().method);
    EXPECT_EQ(kProbeUrl, LastRequest().url);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("src/common/rest/RedfishClient",
                          std::string("Redfish GET action on URL: ") + kProbeUrl),
                    Trace("curlCode: 0, httpCode: 404, body:\n"
                          R"({"error":{"code":"Base.1.0.ResourceMissingAtURI"}})"),
                    Trace(std::string("Regard as successfully to connect to ") + kProbeUrl)));
}

TEST_F(RedfishConnect,
       ProbeWhoseBodyHoldsTheAuthenticationTextCountsAsNotConnectedWhateverTheStatus) {
    for (const long status : {200L, 401L, 404L, 500L}) {
        KEMFfdcRedfishImpl& channel = Channel();
        const std::string body = std::string("<") + kNeedsAuthentication + ">";
        web.Answer(status, body);

        EXPECT_EQ(1, channel.Connect()) << status;

        EXPECT_THAT(log.Lines(),
                    ElementsAre(Trace(std::string("Redfish GET action on URL: ") + kProbeUrl),
                                Trace("curlCode: 0, httpCode: " + std::to_string(status) +
                                      ", body:\n" + body),
                                Failure(std::string("Failed to connect to ") + kProbeUrl)));
    }
}

TEST_F(RedfishConnect, CurlCode7Or91CountsAsNotConnected) {
    for (const CURLcode code : {CURLE_COULDNT_CONNECT, CURLE_SSL_INVALIDCERTSTATUS}) {
        KEMFfdcRedfishImpl& channel = Channel();
        web.Fail(code, "no way");

        EXPECT_EQ(1, channel.Connect());

        EXPECT_THAT(log.Lines(),
                    ElementsAre(Trace(std::string("Redfish GET action on URL: ") + kProbeUrl),
                                Trace("curlCode: " + std::to_string(code) +
                                      ", httpCode: -1, body:\nno way"),
                                Failure(std::string("Failed to connect to ") + kProbeUrl)));
    }
}

TEST_F(RedfishConnect, AnyOtherCurlFailureCountsAsConnected) {
    for (const CURLcode code : {CURLE_COULDNT_RESOLVE_HOST, CURLE_OPERATION_TIMEDOUT,
                                CURLE_SSL_CONNECT_ERROR, CURLE_PEER_FAILED_VERIFICATION}) {
        KEMFfdcRedfishImpl& channel = Channel();
        web.Fail(code, "no way");

        EXPECT_EQ(0, channel.Connect()) << code;

        EXPECT_THAT(
            log.Lines(),
            ElementsAre(
                Trace(std::string("Redfish GET action on URL: ") + kProbeUrl),
                Trace("curlCode: " + std::to_string(code) + ", httpCode: -1, body:\nno way"),
                Trace(std::string("Regard as successfully to connect to ") + kProbeUrl)));
    }
}

TEST_F(RedfishConnect, OlderBmcIsProbedAtTheOlderPlace) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    web.Answer(404);

    EXPECT_EQ(0, channel.Connect());

    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/Tasks/Tasks/8A6CA3D3EC", LastRequest().url);
}

TEST_F(RedfishConnect, GetConnectStatusIsAnotherConnect) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(404);
    web.Fail(CURLE_COULDNT_CONNECT);

    EXPECT_EQ(0, channel.GetConnectStatus());
    EXPECT_EQ(1, channel.GetConnectStatus());

    EXPECT_EQ(3U, RequestCount());
}

TEST_F(RedfishConnect, AfterDisconnectEveryOperationFailsWithoutARequest) {
    KEMFfdcRedfishImpl& channel = Channel();

    channel.Disconnect();

    EXPECT_THAT(log.Lines(), ElementsAre());
    EXPECT_EQ(1, channel.Connect());
    EXPECT_EQ(1, channel.GetConnectStatus());
    EXPECT_EQ(2, channel.Apply());
    EXPECT_EQ("", channel.GetRedfishVersion());
    EXPECT_EQ(1, channel.RequestSession());
    EXPECT_THAT(log.Lines(), ElementsAre());
    EXPECT_EQ(1U, RequestCount());
}

TEST_F(RedfishResetConn,
       AfterResetConnTheClientDoesNotFollowRedirectsUnlikeTheOneBuiltAtConstruction) {
    KEMFfdcRedfishImpl& channel = Channel();
    EXPECT_TRUE(LastRequest().followsRedirects);
    web.Answer(404);

    EXPECT_EQ(0, channel.ResetConn(other));

    EXPECT_FALSE(LastRequest().followsRedirects);
    EXPECT_EQ("operator:other", LastRequest().userPassword);
    EXPECT_EQ(60, LastRequest().timeout);
    EXPECT_FALSE(LastRequest().verifiesPeer);
    EXPECT_THAT(LastRequest().headers,
                ElementsAre("Accept: application/json", "Content-Type: application/json"));
}

TEST_F(RedfishResetConn, SameHostKeepsTheVersionDecision) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    other.port = 8443;
    web.Answer(404);

    EXPECT_EQ(0, channel.ResetConn(other));

    EXPECT_EQ(2U, RequestCount());
    EXPECT_EQ("https://10.0.0.5:8443/redfish/v1/Tasks/Tasks/8A6CA3D3EC", LastRequest().url);
}

TEST_F(RedfishResetConn, AnotherHostIsAskedForItsVersionAtItsNewPlace) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    other.host = "10.0.0.6";
    web.Answer(200, R"({"RedfishVersion":"1.8.0"})");
    web.Answer(404, "{}");

    EXPECT_EQ(0, channel.ResetConn(other));

    ASSERT_EQ(3U, RequestCount());
    EXPECT_EQ("https://10.0.0.6:443/redfish/v1/", web.Requests()[1].url);
    EXPECT_FALSE(web.Requests()[1].followsRedirects);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Redfish GET action on URL: https://10.0.0.6:443/redfish/v1/"),
                            Trace("Given version: 1.6.0, this version: 1.8.0"),
                            Trace("This version is newer."),
                            Trace("Redfish GET action on URL: "
                                  "https://10.0.0.6:443/redfish/v1/TaskService/Tasks/8A6CA3D3EC"),
                            Trace("curlCode: 0, httpCode: 404, body:\n{}"),
                            Trace("Regard as successfully to connect to "
                                  "https://10.0.0.6:443/redfish/v1/TaskService/Tasks/8A6CA3D3EC")));
}

TEST_F(RedfishResetConn, FromAnOlderBmcToOneWithABrokenVersionTheNewerFormsHold) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    other.host = "10.0.0.6";
    web.Answer(200, R"({"RedfishVersion":"1.6"})");
    web.Answer(404);

    EXPECT_EQ(0, channel.ResetConn(other));

    EXPECT_EQ("https://10.0.0.6:443/redfish/v1/TaskService/Tasks/8A6CA3D3EC", LastRequest().url);
}

TEST_F(RedfishResetConn, TheOldConnectionEndsBeforeTheNewOneIsMade) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.TakeCalls();
    web.Answer(404);

    channel.ResetConn(other);

    const std::vector<std::string> calls = web.TakeCalls();
    EXPECT_EQ("curl_easy_cleanup", calls[0]);
    EXPECT_EQ("curl_easy_init", calls[1]);
}

TEST_F(RedfishResetConn, WithoutMemoryForANewClientTheOldOneIsGone) {
    KEMFfdcRedfishImpl& channel = Channel();
    const fakes::FakeMemory memory;

    EXPECT_EQ(1, channel.ResetConn(other));

    EXPECT_THAT(log.Lines(), ElementsAre(Failure("Failed to construct rest client point.")));
    EXPECT_EQ(2, channel.Apply());
    EXPECT_EQ(1U, RequestCount());
}

TEST_F(RedfishResetConn, HostsAreComparedByteByByte) {
    conn.host = "bmc.example";
    KEMFfdcRedfishImpl& channel = Channel();
    other.host = "BMC.example";
    web.Answer(200, R"({"RedfishVersion":"1.8.0"})");
    web.Answer(404);

    channel.ResetConn(other);

    EXPECT_EQ(3U, RequestCount());
}

TEST_F(RedfishResetConn, EveryFieldReplacesTheStoredOne) {
    KEMFfdcRedfishImpl& channel = Channel();
    other.host = "fe80::7";
    other.connection_ipversion = 1;
    other.port = 8443;
    web.Answer(200, R"({"RedfishVersion":"1.8.0"})");
    web.Answer(404);
    ASSERT_EQ(0, channel.ResetConn(other));
    web.Answer(201, "", {"X-Auth-Token: abc"});

    EXPECT_EQ(0, channel.DownloadFFDC("/archive", "/local"));

    EXPECT_EQ("https://[fe80::7]:8443/redfish/v1/SessionService/Sessions", LastRequest().url);
    EXPECT_EQ(R"({"UserName":"operator","Password":"other"})", LastRequest().body);
    ASSERT_EQ(1U, files.Downloads().size());
    EXPECT_EQ("fe80::7", files.Downloads()[0].host);
    EXPECT_EQ(8443, files.Downloads()[0].port);
    EXPECT_EQ("operator", files.Downloads()[0].user);
    EXPECT_EQ("other", files.Downloads()[0].password);
}

TEST_F(RedfishResetConn, ConnectsAgainAfterDisconnect) {
    KEMFfdcRedfishImpl& channel = Channel();
    channel.Disconnect();
    web.Answer(404);

    EXPECT_EQ(0, channel.ResetConn(conn));
}

TEST_F(RedfishResetConn, UnreachableBmcIsNotConnected) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Fail(CURLE_COULDNT_CONNECT, "Connection refused");

    EXPECT_EQ(1, channel.ResetConn(other));
}
