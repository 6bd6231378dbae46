// SPDX-License-Identifier: Apache-2.0
#include "common/cimom/src/cimfunc.h"

#include <gmock/gmock.h>

#include <chrono>

#include "fakes/FakeCim.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeLog.h"
#include "fakes/Journal.h"

using fakes::Failure;
using fakes::Journal;
using fakes::Milestone;
using fakes::Trace;
using fakes::Warning;
using Pegasus::CIMName;
using Pegasus::CIMNamespaceName;
using Pegasus::CIMProperty;
using Pegasus::CIMQualifier;
using Pegasus::CIMValue;
using Pegasus::String;
using testing::ElementsAre;
using testing::IsEmpty;
using Varnex::CimClientHolder;

using namespace std::chrono_literals;

namespace {

constexpr char kSource[] = "src/common/cimom/src/cimfunc";

class CimTest : public testing::Test {
protected:
    CimTest() {
        conn.host = "10.0.0.5";
        conn.userid = "admin";
        conn.password = "secret";
        conn.port = 5989;
        conn.connection_type = 1;
        conn.connection_case = 2;
    }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeCim cim;
    Varnex::VarnexConnection::ConnectionInfo conn;
};

class CimConnect : public CimTest {
protected:
    std::unique_ptr<CimClientHolder> Holder() {
        return std::make_unique<CimClientHolder>(CIMNamespaceName("root/cimv2"), conn);
    }
};

class CimEnumerate : public CimTest {
protected:
    CimEnumerate() : holder(CIMNamespaceName("root/cimv2"), conn) { Forget(); }

    void Forget() {
        log.Clear();
        Journal::Take();
    }

    // A holder that lost its client.
    void LoseTheClient() {
        for (int i = 0; i < 3; ++i) cim.RefuseConnect("no");
        EXPECT_EQ(1, holder.ReConnect());
        Forget();
    }

    int Enumerate() {
        return Varnex::GetCIMArrayFromEnumerateInstances("ZOR_FFDCData", holder, instances, 300000);
    }

    CimClientHolder holder;
    Pegasus::Array<Pegasus::CIMInstance> instances;
};

class CimProperties : public testing::Test {
protected:
    static CIMProperty Text(const char* name, const char* value) {
        return CIMProperty(CIMName(name), CIMValue(String(value)));
    }

    static CIMValue Texts(std::initializer_list<const char*> texts) {
        Pegasus::Array<String> array;
        for (const char* text : texts) array.append(String(text));
        return CIMValue(array);
    }

    static CIMProperty Mapped(const CIMValue& value, const CIMValue& keys, const CIMValue& names) {
        CIMProperty property(CIMName("P"), value);
        property.addQualifier(CIMQualifier(CIMName("ValueMap"), keys));
        property.addQualifier(CIMQualifier(CIMName("Values"), names));
        return property;
    }

    fakes::FakeLog log;
};

}  // namespace

TEST_F(CimConnect, ConnectsWithTlsAndAnyCertificate) {
    const auto holder = Holder();

    EXPECT_NE(nullptr, holder->GetClient());
    EXPECT_THAT(Journal::Take(), ElementsAre("client", "ssl context '' ''", "timeout 2400000",
                                             "connect ssl 10.0.0.5 5989 admin secret"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Milestone(kSource, "Connecting to admin:**********@10.0.0.5:5989"),
                            Trace(kSource, "connection case is 2"),
                            Milestone(kSource, "Cimserver connection succeeded ")));
}

TEST_F(CimConnect, ConnectionType0IsPlain) {
    conn.connection_type = 0;

    const auto holder = Holder();

    EXPECT_NE(nullptr, holder->GetClient());
    EXPECT_THAT(Journal::Take(), ElementsAre("client", "ssl context '' ''", "timeout 2400000",
                                             "connect 10.0.0.5 5989 admin secret"));
}

TEST_F(CimConnect,
       EmptyHostFailsAtOnceWithTheInvalidConnectionInformationLineWithoutAnyAttemptOrSleep) {
    conn.host = "";

    const auto holder = Holder();

    EXPECT_EQ(nullptr, holder->GetClient());
    EXPECT_EQ(1, holder->ReConnect());
    EXPECT_THAT(Journal::Take(),
                ElementsAre("client", "client destroyed", "client", "client destroyed"));
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            Failure("Failed to connect remote cimserver due to invalid connection information. "),
            Failure("Failed to connect remote cimserver due to invalid connection information. ")));
}

TEST_F(CimConnect,
       ConnectionCase1Or5Returns1AfterTheTwoOpeningLogLinesWithoutBuildingTheSslContext) {
    for (const int connectionCase : {1, 5, 0, -1}) {
        conn.connection_case = connectionCase;

        const auto holder = Holder();

        EXPECT_EQ(nullptr, holder->GetClient());
        EXPECT_THAT(Journal::Take(), ElementsAre("client", "client destroyed"));
        EXPECT_THAT(
            log.Lines(),
            ElementsAre(Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                        Trace("connection case is " + std::to_string(connectionCase)),
                        Trace("Connection case is not CIM, do not try to connect CIM server.")));
        log.Clear();
    }
}

TEST_F(CimConnect, ConnectionType2LogsInvalidConnectionTypeFollowedBy2AndReturns0) {
    conn.connection_type = 2;

    const auto holder = Holder();

    EXPECT_NE(nullptr, holder->GetClient()) << "not connected, but there";
    EXPECT_THAT(Journal::Take(), ElementsAre("client", "ssl context '' ''", "timeout 2400000"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                            Trace("connection case is 2"), Failure("Invalid connection type: 2")));
}

TEST_F(CimConnect, AServerThatRefusesEveryAttemptYieldsExactlyOneLineAndReturns1AfterAbout30s) {
    cim.RefuseConnect("first");
    cim.RefuseConnect("second");
    cim.RefuseConnect("Cannot connect to 10.0.0.5:5989. Connection failed.");

    const auto holder = Holder();

    EXPECT_EQ(nullptr, holder->GetClient());
    EXPECT_THAT(Journal::Take(),
                ElementsAre("client", "ssl context '' ''", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret", "client destroyed"))
        << "one SSL context serves the three attempts";
    EXPECT_THAT(clock.Slept(), ElementsAre(10s, 10s, 10s));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                    Trace("connection case is 2"),
                    Failure("Failed to connect remote cimserver with the reason: Cannot connect to "
                            "10.0.0.5:5989. Connection failed.")));
}

TEST_F(CimConnect, ASecondAttemptThatSucceedsLeavesNoFailureLine) {
    cim.RefuseConnect("first");

    const auto holder = Holder();

    EXPECT_NE(nullptr, holder->GetClient());
    EXPECT_THAT(clock.Slept(), ElementsAre(10s));
    EXPECT_THAT(log.Lines(), ElementsAre(Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                                         Trace("connection case is 2"),
                                         Milestone("Cimserver connection succeeded ")));
}

TEST_F(CimConnect, SslContextThatCannotBeMadeIsAFailureAndNotThrown) {
    cim.SslContextThrows();

    const auto holder = Holder();

    EXPECT_EQ(nullptr, holder->GetClient());
    EXPECT_THAT(clock.Slept(), IsEmpty());
    EXPECT_THAT(log.Lines().back(),
                Failure("Failed to connect remote cimserver with the reason: no SSL here"));
}

TEST_F(CimConnect, AHolderWithoutAClientCannotConnectIt) {
    for (int i = 0; i < 3; ++i) cim.RefuseConnect("no");
    const auto holder = Holder();
    ASSERT_EQ(nullptr, holder->GetClient());
    log.Clear();
    Journal::Take();

    EXPECT_EQ(1, holder->ConnectToCimServer());

    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CimConnect, ReConnectDestroysTheClientBeforeItMakesANewOne) {
    const auto holder = Holder();
    Journal::Take();

    EXPECT_EQ(0, holder->ReConnect());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("client destroyed", "client", "ssl context '' ''", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret"));
}

TEST_F(CimConnect, TextsGoOutAsUtf8AndAsLatin1WhereTheyAreNotValidUtf8) {
    conn.userid = "J\xC3\xBCrgen";
    conn.password = "p\xE9ss";

    const auto holder = Holder();

    EXPECT_THAT(Journal::Take(),
                testing::Contains("connect ssl 10.0.0.5 5989 J\xC3\xBCrgen p\xC3\xA9ss"));
    EXPECT_EQ("Connecting to J\xC3\xBCrgen:**********@10.0.0.5:5989", log.Lines()[0].text);
}

TEST_F(CimConnect, TextOfTheLibraryGoesIntoTheLogAsUtf8) {
    for (int i = 0; i < 3; ++i) cim.RefuseConnect("k\xC3\xA9in \xF0\x9F\x94\x8C");

    Holder();

    EXPECT_THAT(log.Lines().back(), Failure("Failed to connect remote cimserver with the reason: "
                                            "k\xC3\xA9in \xF0\x9F\x94\x8C"));
}

TEST_F(CimEnumerate, ReadsAllInstancesWithTheGivenFlagsAndTimeOut) {
    cim.Enumerate(
        {fakes::MakeInstance("ZOR_FFDCData", "1"), fakes::MakeInstance("ZOR_FFDCData", "2")});

    EXPECT_EQ(0, Enumerate());

    EXPECT_EQ(2U, instances.size());
    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Milestone(kSource, "Calling GetCIMArrayFromEnumerateInstances()"),
                            Milestone("The value of class name is:ZOR_FFDCData"),
                            Milestone("The value of cim namespace is:root/cimv2"),
                            Milestone("The size of ei_array is:2")));
}

TEST_F(CimEnumerate, TheTimeOutIsTheCallersOwn) {
    cim.Enumerate({});

    EXPECT_EQ(0, Varnex::GetCIMArrayFromEnumerateInstances("ZOR_X", holder, instances, 1234));

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 1234", "enumerate root/cimv2 ZOR_X deep local"));
}

TEST_F(CimEnumerate, EnumeratingInANamespaceThatTheServerDoesNotHaveGives6) {
    cim.NextEnumeration([]() -> fakes::FakeCim::Instances {
        throw Pegasus::CIMException(Pegasus::CIM_ERR_INVALID_NAMESPACE,
                                    String("CIM_ERR_INVALID_NAMESPACE: root/cimv2"));
    });
    instances.append(fakes::MakeInstance("ZOR_Old", "1"));

    EXPECT_EQ(6, Enumerate());

    EXPECT_EQ(1U, instances.size()) << "left as it was";
    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local",
                            "client destroyed", "client", "ssl context '' ''", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret"));
    EXPECT_THAT(log.Lines(), ElementsAre(Milestone("Calling GetCIMArrayFromEnumerateInstances()"),
                                         Milestone("The value of class name is:ZOR_FFDCData"),
                                         Milestone("The value of cim namespace is:root/cimv2"),
                                         Failure("Enumerate instances failed with the reason: "
                                                 "CIM_ERR_INVALID_NAMESPACE: root/cimv2"),
                                         Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                                         Trace("connection case is 2"),
                                         Milestone("Cimserver connection succeeded ")));
}

TEST_F(CimEnumerate, ALostConnectionDuringEnumerationIsReEstablishedBefore1IsReturned) {
    cim.NextEnumeration([]() -> fakes::FakeCim::Instances {
        throw Pegasus::CIMException(Pegasus::CIM_ERR_FAILED, String("connection lost"));
    });

    EXPECT_EQ(1, Enumerate());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local",
                            "client destroyed", "client", "ssl context '' ''", "timeout 2400000",
                            "connect ssl 10.0.0.5 5989 admin secret"));
    EXPECT_NE(nullptr, holder.GetClient());
}

TEST_F(CimEnumerate, AnyOtherExceptionOfTheLibraryReturns1WithoutReconnecting) {
    cim.NextEnumeration(
        []() -> fakes::FakeCim::Instances { throw Pegasus::ConnectionTimeoutException(); });

    EXPECT_EQ(1, Enumerate());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("timeout 300000", "enumerate root/cimv2 ZOR_FFDCData deep local"));
    EXPECT_EQ("Enumerate instances failed with the reason: connection timed out",
              log.Lines().back().text);
    EXPECT_EQ(1, log.Lines().back().level);
}

TEST_F(CimEnumerate, WithoutAClientItReconnectsFirst) {
    LoseTheClient();
    cim.Enumerate({});

    EXPECT_EQ(0, Enumerate());

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Milestone("Calling GetCIMArrayFromEnumerateInstances()"),
                    Milestone("The value of class name is:ZOR_FFDCData"),
                    Milestone("The value of cim namespace is:root/cimv2"),
                    Milestone("The value of cim client is NULL,Now restart cimserver!"),
                    Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                    Trace("connection case is 2"), Milestone("Cimserver connection succeeded "),
                    Milestone("Restart cim server succeed,Now reconnect to cimserver!"),
                    Milestone("The size of ei_array is:0")));
}

TEST_F(CimEnumerate, WithoutAClientAndWithoutASuccessfulReconnectionItReturns1) {
    LoseTheClient();
    for (int i = 0; i < 3; ++i) cim.RefuseConnect("still no");

    EXPECT_EQ(1, Enumerate());

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Milestone("Calling GetCIMArrayFromEnumerateInstances()"),
                    Milestone("The value of class name is:ZOR_FFDCData"),
                    Milestone("The value of cim namespace is:root/cimv2"),
                    Milestone("The value of cim client is NULL,Now restart cimserver!"),
                    Milestone("Connecting to admin:**********@10.0.0.5:5989"),
                    Trace("connection case is 2"),
                    Failure("Failed to connect remote cimserver with the reason: still no")));
}

TEST_F(CimEnumerate, ExceptionsOfOthersPassThrough) {
    cim.NextEnumeration([]() -> fakes::FakeCim::Instances { throw std::bad_alloc(); });

    EXPECT_THROW(Enumerate(), std::bad_alloc);
}

TEST_F(CimProperties, APropertyWithoutValueMapQualifiersComesBackWithSurroundingWhitespaceRemoved) {
    struct Row {
        const char* raw;
        const char* text;
    };
    for (const Row& row : {Row{" \f\n\r\t\va b\t \v\r\n\f", "a b"}, Row{"4", "4"}, Row{"", ""},
                           Row{" \t ", ""}, Row{"\xC2\xA0x", "\xC2\xA0x"}}) {
        EXPECT_EQ(row.text, Varnex::GetPropertyValueText(Text("P", row.raw)));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CimProperties, OneQualifierAloneIsNoValueMap) {
    CIMProperty keysOnly = Text("P", " 1 ");
    keysOnly.addQualifier(CIMQualifier(CIMName("ValueMap"), Texts({"1"})));
    CIMProperty namesOnly = Text("P", " 1 ");
    namesOnly.addQualifier(CIMQualifier(CIMName("Values"), Texts({"one"})));

    EXPECT_EQ("1", Varnex::GetPropertyValueText(keysOnly));
    EXPECT_EQ("1", Varnex::GetPropertyValueText(namesOnly));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CimProperties, ValueMapTranslatesAndIsWalkedUpToTheMatch) {
    const CIMProperty property = Mapped(CIMValue(Pegasus::Uint16(2)), Texts({"1", "2", "3"}),
                                        Texts({"one", "two", "three"}));

    EXPECT_EQ("two", Varnex::GetPropertyValueText(property));

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kSource, " processing value maps ..."),
                                         Trace("_1-one_"), Trace("_2-two_")));
}

TEST_F(CimProperties, ValueThatTheMapLacksComesBackStripped) {
    const CIMProperty property = Mapped(CIMValue(String(" 9 ")), Texts({"1"}), Texts({"one"}));

    EXPECT_EQ("9", Varnex::GetPropertyValueText(property));

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(" processing value maps ..."), Trace("_1-one_")));
}

TEST_F(CimProperties, TheMapIsComparedWithTheRawTextAndItsMeaningIsTakenAsItIs) {
    const CIMValue raw(String(" 2 "));

    EXPECT_EQ("2", Varnex::GetPropertyValueText(Mapped(raw, Texts({"2"}), Texts({"two"}))));
    EXPECT_EQ(" two\t",
              Varnex::GetPropertyValueText(Mapped(raw, Texts({" 2 "}), Texts({" two\t"}))));

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(" processing value maps ..."), Trace("_2-two_"),
                            Trace(" processing value maps ..."), Trace("_ 2 - two\t_")));
}

TEST_F(CimProperties, MapsOfUnequalLengthAreWalkedAsFarAsBothReach) {
    const CIMProperty property =
        Mapped(CIMValue(String("3")), Texts({"1", "2", "3"}), Texts({"one", "two"}));

    EXPECT_EQ("3", Varnex::GetPropertyValueText(property));

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(" processing value maps ..."), Trace("_1-one_"),
                                         Trace("_2-two_")));
}

TEST_F(CimProperties, QualifiersThatAreNoArraysOfTextsLeaveTheStrippedText) {
    const CIMValue text(String("1"));
    const CIMValue null(Pegasus::CIMTYPE_STRING, true);
    const CIMValue numbers(Pegasus::CIMTYPE_UINT32, true);

    EXPECT_EQ("1", Varnex::GetPropertyValueText(Mapped(text, text, text)));
    EXPECT_EQ("1", Varnex::GetPropertyValueText(Mapped(text, null, null)));
    EXPECT_EQ("1", Varnex::GetPropertyValueText(Mapped(text, numbers, Texts({"one"}))));
}

TEST_F(CimProperties, FillsTheKeysOfTheMapInAscendingOrder) {
    Pegasus::CIMInstance instance = fakes::MakeInstance("ZOR_FFDCData", "1");
    instance.addProperty(Text("Zeta", " z "));
    instance.addProperty(Text("Alpha", "a"));
    std::map<std::string, std::string> properties = {
        {"Zeta", ""}, {"Missing", "kept"}, {"Alpha", ""}};

    Varnex::GetProperties(instance, properties);

    EXPECT_EQ("a", properties["Alpha"]);
    EXPECT_EQ("kept", properties["Missing"]);
    EXPECT_EQ("z", properties["Zeta"]);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("Showing properties for ZOR_FFDCData.InstanceID=\"1\""),
                    Trace("Alpha = a with raw data (a)"), Warning("Property Missing is not found!"),
                    Trace("Zeta = z with raw data ( z )")));
}

TEST_F(CimProperties, ExceptionForOneKeyIsLoggedAndTheNextKeyRead) {
    Pegasus::CIMInstance instance = fakes::MakeInstance("ZOR_FFDCData", "1");
    instance.addProperty(Text("Good", "g"));
    std::map<std::string, std::string> properties = {{" bad name", "kept"}, {"Good", ""}};

    Varnex::GetProperties(instance, properties);

    EXPECT_EQ("kept", properties[" bad name"]);
    EXPECT_EQ("g", properties["Good"]);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Showing properties for ZOR_FFDCData.InstanceID=\"1\""),
                            Failure("Get properties from CIM instance failed with the reason: "
                                    "The CIM name is not valid:  bad name"),
                            Trace("Good = g with raw data (g)")));
}

TEST_F(CimProperties, AnInstanceThatIsNoneIsAFailureForEachKey) {
    std::map<std::string, std::string> properties = {{"A", "kept"}, {"B", ""}};

    Varnex::GetProperties(Pegasus::CIMInstance(), properties);

    EXPECT_EQ("kept", properties["A"]);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Showing properties for "),
                            Failure("Get properties from CIM instance failed with the reason: "
                                    "uninitialized object"),
                            Failure("Get properties from CIM instance failed with the reason: "
                                    "uninitialized object")));
}
