// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <memory>

#include "fakes/FakeCim.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeLog.h"
#include "fakes/Journal.h"
#include "module/kvs/ffdc/ffdc_impl.h"

using fakes::Failure;
using fakes::Journal;
using fakes::MakeInstance;
using fakes::Milestone;
using fakes::Trace;
using Pegasus::CIMValue;
using Pegasus::String;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Varnex::KEMFfdcImpl;

namespace {

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdc_impl";
constexpr char kConnect[] = "connect ssl 10.0.0.5 5989 admin secret";
constexpr char kCommon[] =
    "InitializationNeeded=boolean:TRUE ExportURI=string:sftp://10.0.0.9/in "
    "Username=string:store Password=string:pass";

class CimChannel : public testing::Test {
protected:
    CimChannel() {
        conn.host = "10.0.0.5";
        conn.userid = "admin";
        conn.password = "secret";
        conn.port = 5989;
        conn.connection_type = 1;
        conn.connection_case = 2;
        uri = {"sftp://10.0.0.9/in", "store", "pass"};
    }

    KEMFfdcImpl& Channel(bool initializationNeeded = true) {
        made = std::make_unique<KEMFfdcImpl>(conn, uri, initializationNeeded);
        Forget();
        return *made;
    }

    KEMFfdcImpl& ConnectedChannel(bool initializationNeeded = true) {
        KEMFfdcImpl& channel = Channel(initializationNeeded);
        EXPECT_EQ(0, channel.Connect());
        Forget();
        return channel;
    }

    // A BMC with its service and these data objects, named by number, of these collection types.
    void BmcHas(const std::vector<std::string>& types) {
        cim.Enumerate({MakeInstance("ZOR_FFDCService", "S")});
        std::vector<Pegasus::CIMInstance> objects;
        for (const std::string& type : types) {
            objects.push_back(
                MakeInstance("ZOR_FFDCData", std::to_string(objects.size() + 1), type));
        }
        cim.Enumerate(objects);
    }

    int ApplyReturning(const CIMValue& value) {
        BmcHas({"1", "2"});
        cim.Return(value);
        return ConnectedChannel().Apply();
    }

    void Forget() {
        log.Clear();
        Journal::Take();
    }

    std::vector<std::string> Invocations() {
        std::vector<std::string> invocations;
        for (const std::string& entry : Journal::Take()) {
            if (entry.compare(0, 6, "invoke") == 0) invocations.push_back(entry);
        }
        return invocations;
    }

    static std::string Export(const std::string& object, const std::string& common = kCommon) {
        return "invoke root/cimv2 ZOR_FFDCService.InstanceID=\"S\" ExportData " + common +
               " DataCollectionType=reference:ZOR_FFDCData.InstanceID=\"" + object + "\"";
    }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeCim cim;
    Varnex::VarnexConnection::ConnectionInfo conn;
    Varnex::KEMFfdcUploadingUri uri;
    std::unique_ptr<KEMFfdcImpl> made;
};

using CimChannelConnect = CimChannel;
using CimChannelApply = CimChannel;

}  // namespace

TEST_F(CimChannelConnect, ConstructorLogsItsLineAndMakesNoConnection) {
    const KEMFfdcImpl channel(conn, uri, true);

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kChannel, "Calling constructor of KEMFfdcImpl")));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(CimChannelConnect, DestructorLogsItsLineAndThenDestroysTheConnection) {
    ConnectedChannel();

    made.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kChannel, "Calling destructor of KEMFfdcImpl")));
    EXPECT_THAT(Journal::Take(), ElementsAre("client destroyed"));
}

TEST_F(CimChannelConnect, ConnectionCase2And4BothUseRootCimv2And3WithNode2UsesZorKem2Cimv2) {
    struct Row {
        int connectionCase;
        std::uint16_t node;
        const char* nameSpace;
    };
    for (const Row& row :
         {Row{2, 2, "root/cimv2"}, Row{4, 2, "root/cimv2"}, Row{3, 2, "zor/kem2/cimv2"},
          Row{3, 65535, "zor/kem65535/cimv2"}, Row{3, 0, "zor/kem0/cimv2"}}) {
        conn.connection_case = row.connectionCase;
        conn.node = row.node;
        cim.Enumerate({});

        EXPECT_EQ(1, ConnectedChannel().Apply());

        EXPECT_THAT(Journal::Take(), Contains(std::string("enumerate ") + row.nameSpace +
                                              " ZOR_FFDCService deep local"));
    }
}

TEST_F(CimChannelConnect,
       ConnectionInfoWithAnEmptyHostMakesTheConnectionAttemptFailAtOnceWithItsMessage) {
    conn.host = "";

    EXPECT_EQ(1, Channel().Connect());

    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre(Failure("Failed to connect remote cimserver due to "
                                                 "invalid connection information. ")));
}

TEST_F(CimChannelConnect, WrongConnectionTypeReturns0WithoutConnecting) {
    conn.connection_type = 2;

    EXPECT_EQ(0, Channel().Connect());

    EXPECT_THAT(Journal::Take(), Not(Contains(kConnect)));
}

TEST_F(CimChannelConnect, ASecondConnectReplacesTheHolderWithoutDestroyingIt) {
    KEMFfdcImpl& channel = ConnectedChannel();

    EXPECT_EQ(0, channel.GetConnectStatus());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("client", "ssl context '' ''", "timeout 2400000", kConnect));
}

TEST_F(CimChannelConnect, AFailedLaterConnectLeavesTheMemberNullAndAbandonsTheEarlierHolder) {
    KEMFfdcImpl& channel = ConnectedChannel();
    for (int i = 0; i < 3; ++i) cim.RefuseConnect("no");

    EXPECT_EQ(1, channel.Connect());

    EXPECT_THAT(Journal::Take(), Contains("client destroyed").Times(1)) << "the new one alone";
    EXPECT_EQ(1, channel.Apply());
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(CimChannelConnect, DisconnectDestroysTheConnection) {
    KEMFfdcImpl& channel = ConnectedChannel();

    channel.Disconnect();
    channel.Disconnect();

    EXPECT_THAT(Journal::Take(), ElementsAre("client destroyed"));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(1, channel.Apply());
}

TEST_F(CimChannelConnect, ResetConnConnectsWithTheNewDataAndAbandonsTheEarlierHolderToo) {
    KEMFfdcImpl& channel = ConnectedChannel();
    Varnex::VarnexConnection::ConnectionInfo other = conn;
    other.host = "10.0.0.6";
    other.userid = "operator";
    other.password = "other";
    other.port = 5988;
    other.connection_type = 0;

    EXPECT_EQ(0, channel.ResetConn(other));

    EXPECT_THAT(Journal::Take(), ElementsAre("client", "ssl context '' ''", "timeout 2400000",
                                             "connect 10.0.0.6 5988 operator other"));
}

TEST_F(CimChannelConnect, ResetConnTakesOverCaseAndNodeToo) {
    KEMFfdcImpl& channel = ConnectedChannel();
    Varnex::VarnexConnection::ConnectionInfo other = conn;
    other.connection_case = 3;
    other.node = 7;
    cim.Enumerate({});

    EXPECT_EQ(0, channel.ResetConn(other));
    EXPECT_THAT(log.Lines(), Contains(Trace("connection case is 3")));
    EXPECT_EQ(1, channel.Apply());

    EXPECT_THAT(Journal::Take(), Contains("enumerate zor/kem7/cimv2 ZOR_FFDCService deep local"));
    other.connection_case = 5;
    EXPECT_EQ(1, channel.ResetConn(other));
}

TEST_F(CimChannelApply, ExportsEveryObjectInTheOrderOfTheEnumeration) {
    BmcHas({"1", "2"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCService deep local",
                            "timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local",
                            "timeout 1200000", Export("1"), "timeout 1200000", Export("2")));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Milestone("Calling GetCIMArrayFromEnumerateInstances()"),
                            Milestone("The value of class name is:ZOR_FFDCService"),
                            Milestone("The value of cim namespace is:root/cimv2"),
                            Milestone("The size of ei_array is:1"),
                            Milestone("Calling GetCIMArrayFromEnumerateInstances()"),
                            Milestone("The value of class name is:ZOR_FFDCData"),
                            Milestone("The value of cim namespace is:root/cimv2"),
                            Milestone("The size of ei_array is:2"),
                            Trace("Showing properties for ZOR_FFDCData.InstanceID=\"1\""),
                            Trace("DataCollectionType = 1 with raw data (1)"),
                            Trace("Showing properties for ZOR_FFDCData.InstanceID=\"2\""),
                            Trace("DataCollectionType = 2 with raw data (2)")));
}

TEST_F(CimChannelApply, InitializationNeededIsHandedOnAsItIs) {
    BmcHas({"1"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel(false).Apply());

    EXPECT_THAT(Invocations(),
                ElementsAre(Export("1",
                                   "InitializationNeeded=boolean:FALSE "
                                   "ExportURI=string:sftp://10.0.0.9/in Username=string:store "
                                   "Password=string:pass")));
}

TEST_F(CimChannelApply, ApplyWithoutAPriorSuccessfulConnectReturns1AndSendsNothing) {
    EXPECT_EQ(1, Channel().Apply());

    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CimChannelApply, AFilestoreUriOfTftpSendsUsernameAndPasswordAsEmptyStrings) {
    uri.filestore_uri_ = "tftp://10.0.0.5/ffdc";
    BmcHas({"1"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(),
                ElementsAre(Export("1",
                                   "InitializationNeeded=boolean:TRUE "
                                   "ExportURI=string:tftp://10.0.0.5/ffdc Username=string: "
                                   "Password=string:")));
}

TEST_F(CimChannelApply, TheWordsCountAnywhereInTheUri) {
    for (const auto& [text, user] :
         {std::pair("ftp://10.0.0.5/tftpboot", ""), std::pair("ftp://10.0.0.5/by-sftp", "store")}) {
        uri.filestore_uri_ = text;
        BmcHas({"1"});
        cim.Return(CIMValue(Pegasus::Uint32(0)));

        EXPECT_EQ(0, ConnectedChannel().Apply());

        EXPECT_THAT(Invocations(),
                    ElementsAre(testing::HasSubstr("Username=string:" + std::string(user) + " ")));
    }
}

TEST_F(CimChannelApply, AUriHoldingBothWordsCountsAsSftp) {
    uri.filestore_uri_ = "tftp://sftp.example/ffdc";
    BmcHas({"1"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), ElementsAre(testing::HasSubstr("Username=string:store")));
}

TEST_F(CimChannelApply,
       AFilestoreUriBeginningFtpReturns4AfterBothEnumerationsHaveRunAndBeforeAnyExport) {
    uri.filestore_uri_ = "ftp://10.0.0.5/ffdc";
    BmcHas({"1"});

    EXPECT_EQ(4, ConnectedChannel().Apply());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCService deep local",
                            "timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local"));
    EXPECT_THAT(log.Lines().back(),
                Failure("Invalid uploading_uri_.filestore_uri_ : ftp://10.0.0.5/ffdc\n"));
}

TEST_F(CimChannelApply, UriWithNeitherWordReturns4AlsoWithoutAnyDataObject) {
    uri.filestore_uri_ = "";
    BmcHas({});

    EXPECT_EQ(4, ConnectedChannel().Apply());

    EXPECT_THAT(log.Lines().back(), Failure("Invalid uploading_uri_.filestore_uri_ : \n"));
}

TEST_F(CimChannelApply, ADataObjectWhoseDataCollectionTypeReads4IsNeverExported) {
    BmcHas({"4", "1", " 4\t"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), ElementsAre(Export("2")));
}

TEST_F(CimChannelApply, ADataObjectWhoseDataCollectionTypeOnlyHoldsA4IsExported) {
    BmcHas({"14", "4 4", "44"});
    for (int i = 0; i < 3; ++i) cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), SizeIs(3));
}

TEST_F(CimChannelApply, IfAllObjectsRead4ApplyReturns0WithoutCallingExportData) {
    BmcHas({"4", "4"});

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), IsEmpty());
}

TEST_F(CimChannelApply, AnObjectWithoutACollectionTypeIsExported) {
    BmcHas({""});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), ElementsAre(Export("1")));
    EXPECT_THAT(log.Lines(), Contains(fakes::Warning("Property DataCollectionType is not found!")));
}

TEST_F(CimChannelApply, AnObjectWithoutACollectionTypeDoesNotTakeThatOfTheOneBefore) {
    BmcHas({"4", "", "4"});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), ElementsAre(Export("2")));
}

TEST_F(CimChannelApply, ExportDataReturning3Gives4Returning1Gives2Returning4Gives2) {
    struct Row {
        Pegasus::Uint32 value;
        int result;
    };
    for (const Row& row :
         {Row{3, 4}, Row{1, 2}, Row{4, 2}, Row{5, 5}, Row{6, 6}, Row{2, 2}, Row{4294967295U, 2}}) {
        EXPECT_EQ(row.result, ApplyReturning(CIMValue(row.value))) << row.value;

        EXPECT_THAT(Invocations(), SizeIs(1)) << "the first failure ends the run";
        EXPECT_THAT(log.Lines().back(),
                    Failure("ExportData rev = " + std::to_string(row.value) + "\n"));
    }
}

TEST_F(CimChannelApply, AReturnValueOfUint16OrNullIsNotUint32) {
    struct Row {
        CIMValue value;
        const char* text;
    };
    const Row rows[] = {
        {CIMValue(Pegasus::Uint16(0)), "0"},
        {CIMValue(Pegasus::Sint32(0)), "0"},
        {CIMValue(Pegasus::CIMTYPE_UINT32, false), ""},
        {CIMValue(), ""},
        {CIMValue(String("0")), "0"},
        {CIMValue(Pegasus::Uint16(3)), "3"},
        {CIMValue(Pegasus::Uint16(5)), "5"},
        {CIMValue(Pegasus::Uint16(6)), "6"},
        {CIMValue(String("6")), "6"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(2, ApplyReturning(row.value));

        EXPECT_THAT(log.Lines().back(),
                    Failure(std::string("ExportData rev = ") + row.text + "\n"));
    }
}

TEST_F(CimChannelApply, FailedServiceEnumerationReturns1WhateverItsOwnCode) {
    for (const Pegasus::CIMStatusCode code :
         {Pegasus::CIM_ERR_INVALID_NAMESPACE, Pegasus::CIM_ERR_FAILED}) {
        cim.NextEnumeration([code]() -> fakes::FakeCim::Instances {
            throw Pegasus::CIMException(code, String("no"));
        });

        EXPECT_EQ(1, ConnectedChannel().Apply());

        EXPECT_THAT(log.Lines().back(),
                    Trace(kChannel, "EnumerateInstances ZOR_FFDCService Failed!"));
    }
}

TEST_F(CimChannelApply, FailedDataEnumerationReturns1) {
    cim.Enumerate({MakeInstance("ZOR_FFDCService", "S")});
    cim.NextEnumeration(
        []() -> fakes::FakeCim::Instances { throw Pegasus::ConnectionTimeoutException(); });

    EXPECT_EQ(1, ConnectedChannel().Apply());

    EXPECT_THAT(log.Lines().back(), Trace(kChannel, "EnumerateInstances ZOR_FFDCData Failed!"));
}

TEST_F(CimChannelApply, NoServiceInstanceIs1) {
    cim.Enumerate({});

    EXPECT_EQ(1, ConnectedChannel().Apply());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCService deep local"));
    EXPECT_THAT(log.Lines().back(), Trace("EnumerateInstances ZOR_FFDCService Failed!"));
}

TEST_F(CimChannelApply, TheFirstServiceInstanceIsTheOneThatExports) {
    cim.Enumerate({MakeInstance("ZOR_FFDCService", "A"), MakeInstance("ZOR_FFDCService", "B")});
    cim.Enumerate({MakeInstance("ZOR_FFDCData", "1", "1")});
    cim.Return(CIMValue(Pegasus::Uint32(0)));

    EXPECT_EQ(0, ConnectedChannel().Apply());

    EXPECT_THAT(Invocations(), ElementsAre(testing::HasSubstr("ZOR_FFDCService.InstanceID=\"A\"")));
}

TEST_F(CimChannelApply, ExceptionDuringAnExportIsFollowedByAReconnectionAndGives2) {
    BmcHas({"1", "2"});
    cim.NextInvocation([]() -> CIMValue {
        throw Pegasus::CIMException(Pegasus::CIM_ERR_FAILED, String("disk full"));
    });

    EXPECT_EQ(2, ConnectedChannel().Apply());

    const auto journal = Journal::Take();
    EXPECT_EQ(kConnect, journal.back());
    EXPECT_THAT(log.Lines(),
                Contains(Failure(kChannel, "invokeMethod return exeption: disk full")));
}

TEST_F(CimChannelApply, AnyExceptionOfTheLibraryIsFollowedByAReconnection) {
    BmcHas({"1"});
    cim.NextInvocation([]() -> CIMValue { throw Pegasus::ConnectionTimeoutException(); });

    EXPECT_EQ(2, ConnectedChannel().Apply());

    EXPECT_EQ(kConnect, Journal::Take().back());
}

TEST_F(CimChannelApply,
       ExceptionDuringAnExportAndAReconnectionThatFailsGives1AndTheNextRunReconnectsFirst) {
    BmcHas({"1"});
    cim.NextInvocation([]() -> CIMValue { throw Pegasus::ConnectionTimeoutException(); });
    KEMFfdcImpl& channel = ConnectedChannel();
    for (int i = 0; i < 3; ++i) cim.RefuseConnect("gone");

    EXPECT_EQ(1, channel.Apply());

    Forget();
    BmcHas({"4"});
    EXPECT_EQ(0, channel.Apply());
    EXPECT_THAT(log.Lines(),
                Contains(Milestone("The value of cim client is NULL,Now restart cimserver!")));
}

TEST_F(CimChannelApply, PasswordsNeverReachTheLog) {
    BmcHas({"1"});
    cim.NextInvocation([]() -> CIMValue { throw Pegasus::ConnectionTimeoutException(); });
    conn.password = "connection-secret";
    uri.filestore_password_ = "store-secret";
    KEMFfdcImpl channel(conn, uri, true);
    channel.Connect();

    channel.Apply();

    for (const fakes::LogLine& line : log.Lines()) {
        EXPECT_EQ(std::string::npos, line.text.find("connection-secret")) << line.text;
        EXPECT_EQ(std::string::npos, line.text.find("store-secret")) << line.text;
    }
}

TEST_F(CimChannelApply, AUriWithNeitherSftpNorTftpMakesApplyFailWithCode4) {
    for (const char* other : {"http://10.0.0.9/in", "SFTP://10.0.0.9/in", "file:///in"}) {
        uri.filestore_uri_ = other;
        BmcHas({"1"});

        EXPECT_EQ(4, ConnectedChannel().Apply()) << other;
    }
}
