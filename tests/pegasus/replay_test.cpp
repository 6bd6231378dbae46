// SPDX-License-Identifier: Apache-2.0
// Recorded traffic, both ways: our requests must be the recorded ones, and the recorded answers
// must be read into the values that they hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "ValueContent.h"
#include "WireFile.h"
#include "support.h"

using namespace Pegasus;

namespace {

// Plays the server of a recording on one connection and keeps what the client sent.
class Replay {
public:
    explicit Replay(const std::string& file, const std::shared_ptr<SSL_CTX>& tls = nullptr)
        : m_exchanges(ReadWire(file)), m_server({[this, tls](Peer& peer) { Play(peer, tls); }}) {
        m_client.setTimeout(5000);
        if (tls) {
            m_client.connect("127.0.0.1", m_server.Port(), SSLContext("", nullptr, ""), kUser,
                             "secret pw");
        } else {
            m_client.connect("127.0.0.1", m_server.Port(), kUser, "secret pw");
        }
    }

    static constexpr char kUser[] = "zorguest";

    CIMClient* operator->() { return &m_client; }

    // All exchanges have taken place, with the recorded requests, on one connection.
    void ExpectTheRecordedRequests() {
        m_client.disconnect();
        ASSERT_EQ(m_exchanges.size(), m_requests.size());
        for (std::size_t i = 0; i < m_exchanges.size(); ++i) {
            EXPECT_EQ(m_exchanges[i].request, AsRecorded(m_requests[i], m_exchanges[i])) << i;
        }
        EXPECT_EQ(1U, m_server.Connections());
    }

private:
    void Play(Peer& peer, const std::shared_ptr<SSL_CTX>& tls) {
        if (tls && !peer.StartTls(tls.get())) return;
        for (const WireExchange& exchange : m_exchanges) {
            m_requests.push_back(peer.Request());
            peer.Send(ForRequest(exchange, m_requests.back()));
        }
        peer.ClientCloses();
    }

    std::vector<WireExchange> m_exchanges;
    std::vector<std::string> m_requests;  // the server's thread writes, we read after an answer
    ScriptedServer m_server;
    CIMClient m_client;
};

// "type[] name = text", "(null)" for nulls.
std::vector<std::string> Described(CIMInstance instance) {
    std::vector<std::string> lines;
    for (Uint32 i = 0; i < instance.getPropertyCount(); ++i) {
        const CIMProperty property = instance.getProperty(i);
        const CIMValue& value = property.getValue();
        std::string line = cimTypeToString(value.getType());
        line += std::string(value.isArray() ? "[]" : "") + " " +
                Utf8(property.getName().getString()) + " = ";
        line += value.isNull() ? "(null)" : Utf8(value.toString());
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> DescribedData(const std::string& id, const std::string& type) {
    return {"string InstanceID = " + id,
            "string ElementName =  \t padded name \n ",
            "string Caption = (null)",
            "uint16 DataCollectionType = " + type,
            "datetime LastCollected = 20240229123456.654321+060",
            "uint16[] OperationalStatus = 2 32768 ",
            "string[] StatusDescriptions = first one second ",
            "boolean Present = TRUE",
            "uint64 SizeInBytes = 18446744073709551615",
            "real32 Progress = 1.2500000000000000e+01"};
}

const std::vector<std::string> kService = {
    "string SystemCreationClassName = ZOR_ComputerSystem",
    "string SystemName = kem",
    "string CreationClassName = ZOR_FFDCService",
    "string Name = FFDC",
    "string ElementName = Service data <export> & \"upload\"",
    "uint16 EnabledState = 2"};

const char kServicePath[] =
    "ZOR_FFDCService.CreationClassName=\"ZOR_FFDCService\",Name=\"FFDC\","
    "SystemCreationClassName=\"ZOR_ComputerSystem\",SystemName=\"kem\"";

void ExpectTheService(const Array<CIMInstance>& instances) {
    ASSERT_EQ(1U, instances.size());
    EXPECT_EQ(kService, Described(instances[0]));
    EXPECT_EQ(kServicePath, Utf8(instances[0].getPath().toString()));
}

CIMValue Text(const char* text) { return {String(text)}; }

TEST(PegasusReplay, AnEnumerationOfThreeInstances) {
    Replay replay("enumerate.txt");

    const Array<CIMInstance> instances = replay->enumerateInstances("root/cimv2", "ZOR_FFDCData");

    ASSERT_EQ(3U, instances.size());
    EXPECT_EQ(DescribedData("ZOR:FFDC:1:1", "1"), Described(instances[0]));
    EXPECT_EQ(DescribedData("ZOR:FFDC:2:2", "2"), Described(instances[1]));
    EXPECT_EQ(DescribedData("ZOR:FFDC:3:4", "4"), Described(instances[2]));
    const CIMObjectPath& path = instances[0].getPath();
    EXPECT_EQ("ZOR_FFDCData.InstanceID=\"ZOR:FFDC:1:1\"", Utf8(path.toString()));
    EXPECT_TRUE(path.getHost() == String::EMPTY);
    EXPECT_TRUE(path.getNameSpace().isNull());
    replay.ExpectTheRecordedRequests();
}

TEST(PegasusReplay, EnumerationsAndAMethodWithItsFiveParametersOnOneConnection) {
    Replay replay("invoke.txt");
    const CIMNamespaceName nameSpace("zor/kem2/cimv2");

    const Array<CIMInstance> services = replay->enumerateInstances(nameSpace, "ZOR_FFDCService");
    ExpectTheService(services);
    const Array<CIMInstance> data = replay->enumerateInstances(nameSpace, "ZOR_FFDCData");
    ASSERT_EQ(3U, data.size());
    EXPECT_EQ(DescribedData("ZOR:FFDC:3:4 \"mini\" <&> back\\slash \xC3\xA9", "4"),
              Described(data[2]));
    EXPECT_EQ("ZOR_FFDCData.InstanceID=\"ZOR:FFDC:1:1 \\\"mini\\\" <&> back\\\\slash \xC3\xA9\"",
              Utf8(data[0].getPath().toString()));

    Array<CIMParamValue> in;
    in.append(CIMParamValue("InitializationNeeded", CIMValue(true)));
    in.append(CIMParamValue("ExportURI", Text("sftp://10.0.0.5/ffdc?a=1&b=<2>")));
    in.append(CIMParamValue("Username", Text("store user")));
    in.append(CIMParamValue("Password", Text("p\"w'&<\xC3\xA9> ")));
    in.append(CIMParamValue("DataCollectionType", CIMValue(data[0].getPath())));
    Array<CIMParamValue> out;
    const CIMValue result =
        replay->invokeMethod(nameSpace, services[0].getPath(), "ExportData", in, out);
    EXPECT_TRUE(result == CIMValue(Uint32(0)));
    EXPECT_EQ(0U, out.size());

    ExpectTheService(replay->enumerateInstances(nameSpace, "ZOR_FFDCService"));
    replay.ExpectTheRecordedRequests();
}

TEST(PegasusReplay, CimErrorsInTheTrailerAreExceptions) {
    Replay replay("errors.txt");
    const auto key = [](const char* name, const char* value) {
        return CIMKeyBinding(name, value, CIMKeyBinding::STRING);
    };
    const CIMObjectPath service =
        Path("ZOR_FFDCService",
             {key("CreationClassName", "ZOR_FFDCService"), key("Name", "FFDC"),
              key("SystemCreationClassName", "ZOR_ComputerSystem"), key("SystemName", "kem")});
    Array<CIMParamValue> none;
    Array<CIMParamValue> out;
    const auto invoke = [&](const CIMObjectPath& path, const char* method,
                            const Array<CIMParamValue>& in) {
        return replay->invokeMethod("root/cimv2", path, method, in, out);
    };
    const auto one = [](const char* name) {
        Array<CIMParamValue> in;
        in.append(CIMParamValue(name, Text("x")));
        return in;
    };

    EXPECT_EQ("CIMException 3: CIM_ERR_INVALID_NAMESPACE: zor/kem9/cimv2",
              Thrown([&] { replay->enumerateInstances("zor/kem9/cimv2", "ZOR_FFDCService"); }));
    EXPECT_EQ("CIMException 5: CIM_ERR_INVALID_CLASS: ZOR_NoSuchClass",
              Thrown([&] { replay->enumerateInstances("root/cimv2", "ZOR_NoSuchClass"); }));
    ExpectTheService(replay->enumerateInstances("root/cimv2", "ZOR_FFDCService"));
    EXPECT_EQ("CIMException 16: CIM_ERR_METHOD_NOT_AVAILABLE: NoSuch",
              Thrown([&] { invoke(service, "NoSuch", none); }));
    EXPECT_EQ("CIMException 6: CIM_ERR_NOT_FOUND: ZOR_FFDCServiceX", Thrown([&] {
                  invoke(Path("ZOR_FFDCServiceX", {key("Name", "a")}), "ExportData", none);
              }));
    ExpectTheService(replay->enumerateInstances("root/cimv2", "ZOR_FFDCService"));
    EXPECT_TRUE(invoke(service, "ExportData", one("Bogus")) == CIMValue(Uint32(0)));
    ExpectTheService(replay->enumerateInstances("root/cimv2", "ZOR_FFDCService"));
    EXPECT_TRUE(invoke(service, "ExportData", one("InitializationNeeded")) == CIMValue(Uint32(0)));
    replay.ExpectTheRecordedRequests();
}

TEST(PegasusReplay, CredentialsGoOutAfterTheServerAskedForThem) {
    Replay replay("auth_good.txt");

    ExpectTheService(replay->enumerateInstances("root/cimv2", "ZOR_FFDCService"));

    replay.ExpectTheRecordedRequests();
}

TEST(PegasusReplay, TheSameThroughTlsWithASelfSignedCertificateOfAnotherHost) {
    Replay replay("tls_self_signed.txt", SelfSigned("another.example"));

    ExpectTheService(replay->enumerateInstances("root/cimv2", "ZOR_FFDCService"));

    replay.ExpectTheRecordedRequests();
}

TEST(PegasusReplay, BadCredentialsAreAnHttpErrorAtTheFirstRequest) {
    const std::vector<WireExchange> recorded = ReadWire("auth_bad_password.txt");
    std::vector<std::string> requests;
    ScriptedServer server({[&](Peer& peer) {
        for (const WireExchange& exchange : recorded) {
            requests.push_back(peer.Request());
            peer.Send(ForRequest(exchange, requests.back()));
        }
        peer.ClientCloses();
    }});
    CIMClient client;
    client.connect("127.0.0.1", server.Port(), "zorguest", "wrong");

    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (401 Unauthorized).",
              Thrown([&] { client.enumerateInstances("root/cimv2", "ZOR_FFDCService"); }));

    client.disconnect();
    ASSERT_EQ(2U, requests.size());
    EXPECT_EQ(recorded[0].request, AsRecorded(requests[0], recorded[0]));
    EXPECT_EQ(recorded[1].request, AsRecorded(requests[1], recorded[1]));
}

TEST(PegasusReplay, EveryCharacterEveryKindOfParameterAndEveryKindOfReference) {
    Replay replay("special_values.txt");
    std::string printable;
    for (char c = ' '; c < 127; ++c) printable += c;
    printable += "\x7F\xC3\xA9\xE2\x82\xAC";
    std::string all;
    for (char c = 1; c < 32; ++c) all += c;
    Array<CIMKeyBinding> keys;
    keys.append(CIMKeyBinding("S", String(printable.c_str()), CIMKeyBinding::STRING));
    keys.append(CIMKeyBinding("N", "-5", CIMKeyBinding::NUMERIC));
    keys.append(CIMKeyBinding("B", "TRUE", CIMKeyBinding::BOOLEAN));
    const CIMObjectPath path("ignored.host:1", "ignored/ns", "ZOR_X", keys);
    CIMObjectPath inNamespace = Path("ZOR_X", {CIMKeyBinding("A", "1", CIMKeyBinding::STRING)});
    inNamespace.setNameSpace("root/cimv2");
    Array<String> texts;
    texts.append("a");
    texts.append(" b");

    Array<CIMParamValue> in;
    in.append(CIMParamValue("All", Text((all + printable).c_str())));
    in.append(CIMParamValue("Spaces", Text("  two  inner  ")));
    in.append(CIMParamValue("Untyped", Text("u"), false));
    in.append(CIMParamValue("NullString", CIMValue(CIMTYPE_STRING, false)));
    in.append(CIMParamValue("Empty", Text("")));
    in.append(CIMParamValue("False", CIMValue(false)));
    in.append(CIMParamValue("U8", ValueContent::Make(CIMTYPE_UINT8, "7")));
    in.append(CIMParamValue("R64", ValueContent::Make(CIMTYPE_REAL64, "1.0000000000000001e-01")));
    in.append(CIMParamValue("Arr", CIMValue(texts)));
    in.append(CIMParamValue("RefFull", CIMValue(path)));
    in.append(CIMParamValue("RefNs", CIMValue(inNamespace)));
    in.append(CIMParamValue("RefClass", CIMValue(Path("ZOR_X", {}))));
    Array<CIMParamValue> out;
    EXPECT_TRUE(replay->invokeMethod("root/cimv2", path, "ExportData", in, out) ==
                CIMValue(Uint32(0)));
    ASSERT_EQ(1U, out.size());
    EXPECT_EQ("Job", Utf8(out[0].getParameterName()));
    EXPECT_TRUE(out[0].getValue() == Text("j"));
    EXPECT_TRUE(out[0].isTyped());

    Array<CIMName> wanted;
    wanted.append("A");
    wanted.append("B");
    const Array<CIMInstance> instances = replay->enumerateInstances(
        "root/cimv2", "ZOR_X", false, false, true, true, CIMPropertyList(wanted));
    ASSERT_EQ(1U, instances.size());
    EXPECT_EQ("ZOR_X.A=\"k\",B=5,C=true", Utf8(instances[0].getPath().toString()));
    EXPECT_EQ(0U, instances[0].getPropertyCount());
    replay.ExpectTheRecordedRequests();
}

// What a client makes of the answers to the requests written by hand.
TEST(PegasusReplay, AnswersToRequestsWrittenByHandReadIntoWhatTheyHold) {
    const std::string service = "1 x ZOR_FFDCService";
    const std::string error = "CIMClientHTTPErrorException: HTTP Error ";
    const std::string mismatch =
        error + "(400 Bad Request): CIMError = \"header-mismatch\" Detail = ";
    const std::string invalid =
        error + "(400 Bad Request): CIMError = \"request-not-valid\" Detail = ";
    const std::string contentType =
        error + "(400 Bad Request): Detail = \"HTTP Content-Type header error.\".";
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"ok-no-TE", service},
        {"explicit-defaults", service},
        {"invalid-namespace-no-TE", "CIMException 3: CIM_ERR_INVALID_NAMESPACE: zor/kem9"},
        {"invalid-class-no-TE", "CIMException 5: CIM_ERR_INVALID_CLASS: ZOR_NoSuch"},
        {"unescaped-CIMObject", service},
        {"CIMObject-differs-from-body",
         mismatch + "\"CIMObject value \"root/other\" does not match CIM request object "
                    "\"root/cimv2\".\"."},
        {"CIMMethod-differs-from-body",
         mismatch + "\"CIMMethod value \"GetClass\" does not match CIM request method "
                    "\"EnumerateInstances\".\"."},
        {"no-CIMOperation", error + "(400 Bad Request)."},
        {"no-CIMMethod", mismatch + "\"Missing CIMMethod HTTP header.\"."},
        {"no-CIMObject", mismatch + "\"Missing CIMObject HTTP header.\"."},
        {"no-Content-Type", contentType},
        {"text-xml-quoted", service},
        {"latin1", contentType},
        {"other-path", service},
        {"no-Host", error +
                        "(400 Bad Request): Detail = \"HTTP request message lacks a Host header "
                        "field.\"."},
        {"http-1.0", service},
        {"m-post", service},
        {"get", error + "(404 Not Found)."},
        {"not-xml",
         invalid + "\"Validation error: on line 1: Expected <?xml ... ?> style declaration\"."},
        {"not-well-formed",
         error + "(400 Bad Request): CIMError = \"request-not-well-formed\" Detail = \"Closing "
                 "element does not match opening element: on line 2\"."},
        {"no-xml-declaration",
         invalid + "\"Validation error: on line 1: Expected <?xml ... ?> style declaration\"."},
        {"cimversion-2.3", service},
        {"cimversion-3.0", error + "(501 Not Implemented): CIMError = \"unsupported-cim-version\" "
                                   "Detail = \"CIM version \"3.0\" is not supported.\"."},
        {"dtdversion-3.0", error + "(501 Not Implemented): CIMError = \"unsupported-dtd-version\" "
                                   "Detail = \"DTD version \"3.0\" is not supported.\"."},
        {"protocol-1.4",
         mismatch +
             "\"CIMProtocolVersion value \"1.0\" does not match CIM request protocol version "
             "\"1.4\".\"."},
        {"protocol-2.0",
         mismatch +
             "\"CIMProtocolVersion value \"1.0\" does not match CIM request protocol version "
             "\"2.0\".\"."},
        {"connection-close", service},
    };
    const std::vector<WireExchange> recorded = ReadWire("handmade.txt");
    ASSERT_EQ(expected.size(), recorded.size());
    for (std::size_t i = 0; i < recorded.size(); ++i) {
        ASSERT_EQ(expected[i].first, recorded[i].name);
        ScriptedServer server({Answering(
            [&](const std::string& request) { return ForRequest(recorded[i], request); })});
        ConnectedClient client(server);
        std::string outcome;
        const std::string thrown = Thrown([&] {
            const Array<CIMInstance> instances = client.Enumerate();
            outcome = std::to_string(instances.size()) + " x " +
                      Utf8(instances[0].getPath().getClassName().getString());
        });
        EXPECT_EQ(expected[i].second, outcome + thrown) << recorded[i].name;
    }
}

TEST(PegasusReplay, A401ToARequestWithCredentialsIsTheError) {
    for (const WireExchange& recorded : ReadWire("auth_handmade.txt")) {
        ScriptedServer server(
            {Answering([&](const std::string& request) { return ForRequest(recorded, request); })});
        ConnectedClient client(server);
        const std::string detail =
            recorded.name == "auth-none" ? ": Detail = \"User Unauthorized\"" : "";
        EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (401 Unauthorized)" + detail + ".",
                  Thrown([&] { client.Enumerate(); }))
            << recorded.name;
    }
}

}  // namespace
