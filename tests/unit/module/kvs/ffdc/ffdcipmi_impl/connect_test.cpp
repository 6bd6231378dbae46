// SPDX-License-Identifier: Apache-2.0
#include "unit/module/kvs/ffdc/IpmiTest.h"

using fakes::Journal;
using fakes::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using Varnex::KEMFfdcIpmiImpl;

namespace {

class IpmiConstruction : public IpmiTest {};
class IpmiConnect : public IpmiTest {};

}  // namespace

TEST_F(IpmiConstruction, LogsTheConnectionFieldByFieldWithThePasswordMasked) {
    conn.connection_type = 5;
    conn.connection_ipversion = 1;
    outputPath = "/var/tmp/";

    const KEMFfdcIpmiImpl channel(conn, outputPath, 2);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace(kChannel, "Calling constructor of KEMFfdcIpmiImpl"),
                    Trace("KEMFfdcIpmiImpl ConnectionInfo:"), Trace("host=10.0.0.5"),
                    Trace("port=623"), Trace("userid=admin"), Trace("password=xxxxx"),
                    Trace("node=2"), Trace("ciphersuite=17"), Trace("connection_type=5"),
                    Trace("connection_case=1"), Trace("KEMFfdcIpmiImpl strOutputPath_ = /var/tmp/"),
                    Trace("connection_ipversion=1")));
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_EQ("", channel.GetFFDCPath());
}

TEST_F(IpmiConstruction, DestructorLogsItsLineAndDestroysTheClient) {
    ConnectedChannel(2);

    made.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kChannel, "Calling destructor of KEMFfdcIpmiImpl")));
    EXPECT_THAT(Journal::Take(), ElementsAre("destroy"));
}

TEST_F(IpmiConnect, ConnectionCase1IsIpmiOverTheLan) {
    EXPECT_EQ(0, Channel(2).Connect());

    EXPECT_THAT(Journal::Take(), ElementsAre("lan 10.0.0.5 admin secret 623 17", "connect"));
    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kChannel, "Enter KEMFfdcIpmiImpl::Connect"),
                                         Trace(kChannel, "Connect in IPMI LAN"),
                                         Trace(kChannel, "KEMFfdcIpmiImpl::Connect Success ")));
}

TEST_F(IpmiConnect, EveryOtherConnectionCaseIsKcs) {
    for (const int connectionCase : {0, 2, 3, -1}) {
        conn.connection_case = connectionCase;

        EXPECT_EQ(0, Channel(2).Connect());

        EXPECT_THAT(Journal::Take(), ElementsAre("kcs 0", "connect"));
        EXPECT_THAT(log.Lines(), ElementsAre(Trace("Enter KEMFfdcIpmiImpl::Connect"),
                                             Trace("Connect in IPMI KCS"),
                                             Trace("KEMFfdcIpmiImpl::Connect Success ")));
    }
}

TEST_F(IpmiConnect, FailedConnectReturns1WhateverTheClientReturned) {
    for (const int result : {1, -1, 13}) {
        bmc.NextConnect(result);

        EXPECT_EQ(1, Channel(2).Connect());

        EXPECT_THAT(log.Lines(), ElementsAre(Trace("Enter KEMFfdcIpmiImpl::Connect"),
                                             Trace("Connect in IPMI LAN")));
    }
}

TEST_F(IpmiConnect,
       GetConnectStatusMakesANewAttemptAndTheEarlierClientIsNeitherClosedNorDestroyed) {
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);

    EXPECT_EQ(0, channel.GetConnectStatus());

    EXPECT_THAT(Journal::Take(), ElementsAre("lan 10.0.0.5 admin secret 623 17", "connect"));
}

TEST_F(IpmiConnect, DisconnectKeepsTheClient) {
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    bmc.Answer(kCollect, 0, {});

    channel.Disconnect();
    channel.Disconnect();
    EXPECT_TRUE(channel.CollectFiles());

    EXPECT_THAT(Journal::Take(), ElementsAre("disconnect", "disconnect", "send 3A 49 01"));
}

TEST_F(IpmiConnect, DisconnectWithoutAClientDoesNothing) {
    Channel(2).Disconnect();

    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiConnect, ResetConnConnectsWithTheNewData) {
    KEMFfdcIpmiImpl& channel = Channel(2);
    Varnex::VarnexConnection::ConnectionInfo other = conn;
    other.host = "fe80::7";
    other.userid = "operator";
    other.password = "other";
    other.port = 1623;
    other.ciphersuite = 3;
    bmc.NextConnect(0);
    bmc.NextConnect(1);

    EXPECT_EQ(0, channel.ResetConn(other));
    EXPECT_EQ(1, channel.ResetConn(conn));

    EXPECT_THAT(Journal::Take(), ElementsAre("lan fe80::7 operator other 1623 3", "connect",
                                             "lan 10.0.0.5 admin secret 623 17", "connect"));
}
