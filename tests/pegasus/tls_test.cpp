// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>

#include "support.h"

using namespace Pegasus;
using namespace std::chrono_literals;

namespace {

ScriptedServer::Scene Secured(const std::shared_ptr<SSL_CTX>& context,
                              ScriptedServer::Scene scene) {
    return [context, scene = std::move(scene)](Peer& peer) {
        if (peer.StartTls(context.get())) scene(peer);
    };
}

void Connect(CIMClient& client, const ScriptedServer& server) {
    client.setTimeout(2000);
    client.connect("127.0.0.1", server.Port(), SSLContext("", nullptr), "user", "password");
}

std::string CannotConnect(const ScriptedServer& server) {
    return "CannotConnectException: Cannot connect to 127.0.0.1:" + std::to_string(server.Port()) +
           ". Connection failed.";
}

Boolean Accept(SSLCertificateInfo&) { return true; }

TEST(PegasusSSLContext, WhatWouldVerifyIsRefusedAndNotPassedOver) {
    const std::string refused = "SSLException: the built-in CIM client verifies no certificates";
    EXPECT_EQ(refused, Thrown([] { SSLContext context("/etc/ssl/certs", nullptr); }));
    EXPECT_EQ(refused, Thrown([] { SSLContext context("", Accept); }));
}

TEST(PegasusTls, ExpiredAndForeignCertificatesAreAccepted) {
    for (const long valid : {3600L, -60L}) {
        const auto context = SelfSigned("another.example", valid);
        std::string version;
        std::string name = "unset";
        ScriptedServer server({Secured(context, [&](Peer& peer) {
            version = peer.TlsVersion();
            name = peer.TlsServerName();
            AnsweringXml(EnumerationXml(kOneInstance))(peer);
        })});
        CIMClient client;
        Connect(client, server);

        EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
        EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
        client.disconnect();
        EXPECT_EQ(1U, server.Connections());
        EXPECT_EQ("TLSv1.2", version);  // though the server offers 1.3
        EXPECT_EQ("", name);            // no server name is sent
    }
}

TEST(PegasusTls, APeerThatSpeaksPlainOrClosesCannotBeConnectedTo) {
    ScriptedServer plain({[](Peer& peer) {
        peer.Send("HTTP/1.1 400 Bad Request\r\n\r\n");
        peer.ClientCloses();
    }});
    ScriptedServer closing({[](Peer&) {}});
    CIMClient client;
    EXPECT_EQ(CannotConnect(plain), Thrown([&] { Connect(client, plain); }));
    EXPECT_EQ(CannotConnect(closing), Thrown([&] { Connect(client, closing); }));
    EXPECT_EQ("NotConnectedException: not connected",
              Thrown([&] { client.enumerateInstances("root/cimv2", "ZOR_X"); }));
}

TEST(PegasusTls, ASilentPeerCostsTheTimeout) {
    ScriptedServer server({[](Peer& peer) {
        peer.Request();  // the hello, until the client gives up
    }});
    CIMClient client;
    client.setTimeout(200);
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(CannotConnect(server), Thrown([&] {
                  client.connect("127.0.0.1", server.Port(), SSLContext("", nullptr), "", "");
              }));

    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, 200ms);
    EXPECT_LT(took, 2s);
}

TEST(PegasusTls, APlainClientOnATlsPortLosesTheConnection) {
    const auto context = SelfSigned("some.example");
    ScriptedServer server({Secured(context, [](Peer&) {})});
    ConnectedClient client(server);
    EXPECT_EQ("CIMClientMalformedHTTPException: Connection closed by CIM Server.",
              Thrown([&] { client.Enumerate(); }));
}

TEST(PegasusTls, AnIdleConnectionThatTheServerClosedIsRenewed) {
    const auto context = SelfSigned("some.example");
    const auto once = Secured(context, [](Peer& peer) {
        const std::string request = peer.Request();
        peer.Send(Chunked(request, EnumerationXml(kOneInstance)));
    });
    ScriptedServer server({once, once});
    CIMClient client;
    Connect(client, server);

    EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
    std::this_thread::sleep_for(100ms);  // the server's goodbye arrives
    EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
    EXPECT_EQ(2U, server.Connections());
}

// A good answer whose end is the end of the connection.
std::string EndedByClosing(const std::string& request) {
    std::string answer = WithLength(request, EnumerationXml(kOneInstance));
    const std::size_t at = answer.find("content-length");
    return answer.erase(at, answer.find("\r\n", at) + 2 - at);
}

TEST(PegasusTls, APeerThatJustClosesHasEndedItsBody) {
    const auto context = SelfSigned("some.example");
    ScriptedServer server({Secured(context, [](Peer& peer) {
        peer.Send(EndedByClosing(peer.Request()));
        peer.SkipGoodbye();
    })});
    CIMClient client;
    Connect(client, server);
    EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
}

TEST(PegasusTls, APeerThatJustClosesHasCutABodyOfKnownLength) {
    const auto context = SelfSigned("some.example");
    for (const bool goodbye : {true, false}) {
        ScriptedServer server({Secured(context, [&](Peer& peer) {
            const std::string answer = WithLength(peer.Request(), EnumerationXml(kOneInstance));
            peer.Send(answer.substr(0, answer.size() - 1));
            if (!goodbye) peer.SkipGoodbye();
        })});
        CIMClient client;
        Connect(client, server);
        EXPECT_EQ("CIMClientMalformedHTTPException: Connection closed by CIM Server.",
                  Thrown([&] { client.enumerateInstances("root/cimv2", "ZOR_X"); }));
    }
}

TEST(PegasusTls, AfterABodyThatEndedWithTlsTheConnectionIsRenewedThoughItIsOpen) {
    const auto context = SelfSigned("some.example");
    ScriptedServer server({Secured(context,
                                   [](Peer& peer) {
                                       peer.Send(EndedByClosing(peer.Request()));
                                       peer.SayGoodbye();
                                       peer.ClientCloses();
                                   }),
                           Secured(context, AnsweringXml(EnumerationXml(kOneInstance)))});
    CIMClient client;
    Connect(client, server);
    EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
    EXPECT_EQ(1U, client.enumerateInstances("root/cimv2", "ZOR_X").size());
    EXPECT_EQ(2U, server.Connections());
}

// A server that asks for a new handshake again and again.
TEST(PegasusTls, RenegotiationNeitherHangsNorEnds) {
    const auto context = SelfSigned("some.example");
    ScriptedServer server({Secured(context, [](Peer& peer) {
        const std::string request = peer.Request();
        peer.Renegotiate(20);
        peer.Send(WithLength(request, EnumerationXml(kOneInstance)));
        peer.ClientCloses();
    })});
    CIMClient client;
    Connect(client, server);
    client.setTimeout(20000);
    EXPECT_EQ("", Thrown([&] { client.enumerateInstances("root/cimv2", "ZOR_X"); }));
}

TEST(PegasusTls, ACutWithinTheHandshakeOrARecordIsALoss) {
    const auto context = SelfSigned("some.example");
    ScriptedServer server({Secured(context, [](Peer& peer) {
        peer.Request();
        // A record of application data that announces more than comes.
        peer.SendBelowTls(std::string("\x17\x03\x03\x01\x00", 5) + std::string(20, 'x'));
    })});
    CIMClient client;
    Connect(client, server);
    EXPECT_EQ("CIMClientMalformedHTTPException: Connection closed by CIM Server.",
              Thrown([&] { client.enumerateInstances("root/cimv2", "ZOR_X"); }));
}

}  // namespace
