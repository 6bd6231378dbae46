// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "Servers.h"
#include "support/TempFolder.h"

// The engine through a proxy to a plain server.
namespace {

using testing::HasSubstr;

class EngineWithProxy : public testing::Test {
protected:
    EngineWithProxy() { client.SetTimeout(30); }

    static std::string Address(const Server& proxy) {
        return "127.0.0.1:" + std::to_string(proxy.Port());
    }

    void ExpectRefused() {
        const Rest::Response response = client.Get(target.Url("/echo"));
        EXPECT_EQ(56, response.curlCode);
        EXPECT_THAT(response.body, HasSubstr("CONNECT tunnel failed, response 40"));  // 407 or 401
        EXPECT_EQ(-1, client.CheckResponse(response));
    }

    Server target{"plain_peer.py"};
    Rest::RestClient client;
};

TEST_F(EngineWithProxy, AProxyThatWantsAPasswordGetsIt) {
    if (Peers().empty()) GTEST_SKIP() << "VARNEX_PEERS names no unpacked daemons";
    const TempFolder folder;
    const Server proxy("daemon_peer.py", {"tinyproxy", folder.Path(), "user", "pass-word._1"});

    client.SetProxy(Address(proxy), "user", "pass-word._1");
    EXPECT_EQ(200, client.Get(target.Url("/echo")).httpCode);
    EXPECT_EQ(200, client.Post(target.Url("/echo"), "body").httpCode);

    client.SetProxy(Address(proxy), "user", "wrong");
    ExpectRefused();
    client.SetProxy(Address(proxy), "user", "");
    ExpectRefused();
    client.SetProxy(Address(proxy), "", "pass-word._1");
    ExpectRefused();
}

// libcurl takes both percent-encoded and decodes them for the proxy.
TEST_F(EngineWithProxy,
       AProxyPasswordWithReservedCharactersIsSentPercentEncodedTheProxyUserIsSentUnchanged) {
    const Server proxy("proxy_peer.py", {"us@er/1", "p@ss:w/rd%41 +\xC3\xA4"});

    client.SetProxy(Address(proxy), "us@er/1", "p@ss:w/rd%41 +\xC3\xA4");

    EXPECT_EQ(200, client.Get(target.Url("/echo")).httpCode);
}

TEST_F(EngineWithProxy, AProxyUserIsNotMadeReadyForTheDecoding) {
    const Server proxy("proxy_peer.py", {"usAer", "word"});

    client.SetProxy(Address(proxy), "us%41er", "word");

    EXPECT_EQ(200, client.Get(target.Url("/echo")).httpCode);
}

TEST_F(EngineWithProxy, CredentialsForTheServerAreNotForTheProxy) {
    const Server proxy("proxy_peer.py", {"user", "word"});
    client.SetBasicAuth("user", "word");
    client.SetProxy(Address(proxy), "", "");

    ExpectRefused();
}

TEST_F(EngineWithProxy, HeadersOfTheProxysAnswerAreKeptToo) {
    const Server proxy("proxy_peer.py", {"user", "word"});
    client.SetProxy(Address(proxy), "user", "word");

    EXPECT_EQ("present", client.Get(target.Url("/echo")).headers.at("HTTP/1.1 200 Connected"));
}

TEST_F(EngineWithProxy, AProxyThatIsNotThereIsARefusedConnection) {
    client.SetProxy("127.0.0.1:" + std::to_string(FreePort()), "", "");

    EXPECT_EQ(7, client.Get(target.Url("/echo")).curlCode);
}

TEST_F(EngineWithProxy, AnEmptyProxyGoesStraight) {
    client.SetProxy("127.0.0.1:" + std::to_string(FreePort()), "", "");
    client.SetProxy("", "", "");

    EXPECT_EQ(200, client.Get(target.Url("/echo")).httpCode);
}

}  // namespace
