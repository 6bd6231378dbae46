// SPDX-License-Identifier: Apache-2.0
// What a client makes of answers: headers, trailers, documents, values.
#include <gtest/gtest.h>

#include "ValueContent.h"
#include "support.h"

using namespace Pegasus;

namespace {

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return text.replace(at, from.size(), to);
}

// What one enumeration against a server with this answer gives: "N instances" or the exception.
std::string Outcome(const std::function<std::string(const std::string&)>& answer) {
    ScriptedServer server({[&](Peer& peer) {
        const std::string request = peer.Request();
        peer.Send(answer(request));
    }});
    ConnectedClient client(server);
    std::string outcome;
    const std::string thrown =
        Thrown([&] { outcome = std::to_string(client.Enumerate().size()) + " instances"; });
    return outcome + thrown;
}

std::string OutcomeOfXml(const std::string& xml) {
    return Outcome([&](const std::string& request) { return WithLength(request, xml); });
}

// The same for a method: the type and text of what it returned.
std::string MethodOutcome(const std::string& inside) {
    ScriptedServer server({AnsweringXml(MethodXml(inside))});
    ConnectedClient client(server);
    std::string outcome;
    const std::string thrown = Thrown([&] {
        const CIMValue value = client.Invoke();
        outcome = std::string(cimTypeToString(value.getType())) + " " +
                  (value.isNull() ? "(null)" : Utf8(value.toString()));
    });
    return outcome + thrown;
}

// The value of a property that stands in an instance as `xml`: its type and text, or the exception.
std::string PropertyOutcome(const std::string& xml) {
    ScriptedServer server({AnsweringXml(EnumerationXml(
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"ZOR_X\"/><INSTANCE CLASSNAME=\"ZOR_X\">" +
        xml + "</INSTANCE></VALUE.NAMEDINSTANCE>"))});
    ConnectedClient client(server);
    std::string outcome;
    const std::string thrown = Thrown([&] {
        const CIMValue value = client.Enumerate()[0].getProperty(0).getValue();
        outcome = std::string(cimTypeToString(value.getType())) + (value.isArray() ? "[] " : " ") +
                  (value.isNull() ? "(null)" : Utf8(value.toString()));
    });
    return outcome + thrown;
}

std::string ValueOutcome(const std::string& type, const std::string& value) {
    return PropertyOutcome("<PROPERTY NAME=\"P\" TYPE=\"" + type + "\">" + value + "</PROPERTY>");
}

const std::string kXml = "CIMClientXmlException: Validation error: on line ";

// Whether the outcome is the exception of a document that is not as it must be.
void ExpectRefused(const std::string& outcome, const std::string& why) {
    EXPECT_EQ("CIMClientXmlException: ", outcome.substr(0, 23)) << why << ": " << outcome;
}

// --- status, headers, trailers ---

TEST(PegasusAnswer, AnyOtherStatusThan200IsAnHttpError) {
    struct Row {
        const char* head;
        const char* message;
    };
    const Row rows[] = {
        {"503 Service Unavailable\r\ncontent-length: 4\r\n\r\nbody", "(503 Service Unavailable)."},
        {"302 Found\r\nLocation: http://elsewhere/\r\ncontent-length: 0\r\n\r\n", "(302 Found)."},
        {"201 Created\r\ncontent-length: 0\r\n\r\n", "(201 Created)."},
        {"204 No Content\r\n\r\n", "(204 No Content)."},
        {"400 Bad Request\r\nCIMError: request-not-valid\r\n\r\n",
         "(400 Bad Request): CIMError = \"request-not-valid\"."},
        {"400 Bad Request\r\nPGErrorDetail: a%20b\r\n\r\n", "(400 Bad Request): Detail = \"a b\"."},
        {"400 Bad Request\r\nCIMError: x\r\nPGErrorDetail: a%20b%\r\n\r\n",
         "(400 Bad Request): CIMError = \"x\" Detail = \"a b%\"."},
        {"500 \r\n\r\n", "(500 Internal Server Error)."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error " + std::string(row.message),
                  Outcome([&](const std::string&) { return "HTTP/1.1 " + std::string(row.head); }));
    }
}

TEST(PegasusAnswer, HeadersOfAnAnswerThatIsNoneAreRefused) {
    const std::string start = "CIMClientMalformedHTTPException: ";
    struct Row {
        const char* from;
        const char* to;
        std::string thrown;
    };
    const Row rows[] = {
        {"CIMOperation: MethodResponse\r\n", "", start + "Missing CIMOperation HTTP header"},
        {"application/xml; charset=utf-8", "text/html",
         start + "Bad Content-Type HTTP header; text/html"},
        {"charset=utf-8", "charset=iso-8859-1",
         start + "Bad Content-Type HTTP header; application/xml; charset=iso-8859-1"},
        {"MethodResponse", "MethodCall",
         start + "Received CIMOperation HTTP header value \"MethodCall\", expected "
                 "\"MethodResponse\""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.thrown, Outcome([&](const std::string& request) {
                      return Replaced(WithLength(request, EnumerationXml("")), row.from, row.to);
                  }));
    }
}

TEST(PegasusAnswer, HeadersThatAreOnlyUnusualAreTaken) {
    const std::string type = "Content-Type: application/xml; charset=utf-8\r\n";
    const std::pair<std::string, std::string> rows[] = {
        {type, ""},
        {type, "Content-Type: text/xml\r\n"},
        {type, "Content-Type: text/xml; charset=\"utf-8\"\r\n"},
        {type, "content-type: Application/XML;Charset=UTF-8\r\n"},
        {"HTTP/1.1", "HTTP/1.0"},
        {"CIMOperation: MethodResponse",
         "Ext:\r\nMan: http://www.dmtf.org/cim/mapping/http/v1.0; ns=36\r\n"
         "36-CIMOperation: MethodResponse"},
        {"CIMOperation: MethodResponse", "cimoperation:methodresponse"},
        {"HTTP/1.1 200 OK", "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK"},
    };
    for (const auto& [from, to] : rows) {
        EXPECT_EQ("1 instances", Outcome([&, f = from, t = to](const std::string& request) {
                      return Replaced(WithLength(request, EnumerationXml(kOneInstance)), f, t);
                  }))
            << to;
    }
}

TEST(PegasusAnswer, ABodyThatEndsWithTheConnectionIsTaken) {
    for (const char* version : {"HTTP/1.0", "HTTP/1.1"}) {
        EXPECT_EQ("1 instances", Outcome([&](const std::string& request) {
                      std::string answer = WithLength(request, EnumerationXml(kOneInstance));
                      const std::size_t at = answer.find("content-length");
                      answer.erase(at, answer.find("\r\n", at) + 2 - at);
                      return Replaced(answer, "HTTP/1.1", version);
                  }));
    }
}

TEST(PegasusAnswer, CimErrorsInATrailerAreExceptions) {
    const std::string empty = Replaced(EnumerationXml(""), "<IRETURNVALUE></IRETURNVALUE>", "");
    struct Row {
        const char* trailer;
        const char* outcome;
        const char* why;
    };
    const Row rows[] = {
        {"", "0 instances", "no status"},
        {"CIMStatusCode: 0\r\n", "0 instances", "success"},
        {"CIMStatusCode: 3\r\nCIMStatusCodeDescription: CIM_ERR_INVALID_NAMESPACE%3A%20a%2Fb\r\n",
         "CIMException 3: CIM_ERR_INVALID_NAMESPACE: a/b", "percent-encoded"},
        {"CIMStatusCode: 1\r\nCIMStatusCodeDescription: disk%20full%20on%20%3Cstore%3E%20%C3%A9\r\n",
         "CIMException 1: disk full on <store> \xC3\xA9", "UTF-8"},
        {"CIMStatusCode: 1\r\nCIMStatusCodeDescription: caf%E9\r\n", "CIMException 1: caf\xC3\xA9",
         "no UTF-8: Latin-1"},
        {"CIMStatusCode: 7\r\n", "CIMException 7: CIM_ERR_NOT_SUPPORTED", "only the code"},
        {"CIMStatusCode: 99\r\nCIMStatusCodeDescription: x\r\n", "CIMException 99: x",
         "an unknown code"},
        {"CIMStatusCode: 99\r\n", "CIMException 99: Unrecognized CIM status code \"99\"",
         "an unknown code alone"},
        {"CIMStatusCode: abc\r\n",
         "CIMClientMalformedHTTPException: Bad CIMStatusCode HTTP header; abc", "no number"},
        {"CIMStatusCode: 99999999999999999999\r\n",
         "CIMClientMalformedHTTPException: Bad CIMStatusCode HTTP header; 99999999999999999999",
         "a number beyond all codes"},
        {"CIMError: request-not-valid\r\n",
         "CIMClientHTTPErrorException: HTTP Error (400 Bad Request): CIMError = "
         "\"request-not-valid\".",
         "a CIMError"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.outcome, Outcome([&](const std::string& request) {
                      return Chunked(request, empty, row.trailer);
                  }))
            << row.why;
    }
}

TEST(PegasusAnswer, AnEmptyBodyWithACimErrorInItsTrailerIsThatError) {
    const auto outcome = [](const std::string& trailer) {
        return Outcome([&](const std::string& request) { return Chunked(request, "", trailer); });
    };
    EXPECT_EQ("CIMException 3: CIM_ERR_INVALID_NAMESPACE", outcome("CIMStatusCode: 3\r\n"));
    EXPECT_EQ("CIMException 5: no class",
              outcome("CIMStatusCode: 5\r\nCIMStatusCodeDescription: no%20class\r\n"));
    ExpectRefused(outcome("CIMStatusCode: 0\r\n"), "success without a document");
    ExpectRefused(outcome(""), "nothing at all");
}

TEST(PegasusAnswer, AMethodsCimErrorComesThroughAnEmptyBodyToo) {
    ScriptedServer server({Answering(
        [](const std::string& request) { return Chunked(request, "", "CIMStatusCode: 16\r\n"); })});
    ConnectedClient client(server);
    EXPECT_EQ("CIMException 16: CIM_ERR_METHOD_NOT_AVAILABLE", Thrown([&] { client.Invoke(); }));
}

TEST(PegasusAnswer, LineEndsInAttributesAreBlanks) {
    EXPECT_EQ("CIMException 1: a b c d\ne",
              OutcomeOfXml(Replaced(EnumerationXml(""), "<IRETURNVALUE></IRETURNVALUE>",
                                    "<ERROR CODE=\"1\" DESCRIPTION=\"a\nb\r\nc\td&#10;e\"/>")));
}

TEST(PegasusAnswer, AStatusCodeInAnOrdinaryHeaderCountsToo) {
    EXPECT_EQ("CIMException 6: gone", Outcome([](const std::string& request) {
                  return WithLength(request, EnumerationXml(""),
                                    "CIMStatusCode: 6\r\nCIMStatusCodeDescription: gone\r\n");
              }));
}

TEST(PegasusAnswer, AnErrorElementIsAnExceptionUnlessItsCodeIs0) {
    const std::pair<const char*, const char*> rows[] = {
        {"<ERROR CODE=\"3\" DESCRIPTION=\"CIM_ERR_INVALID_NAMESPACE: &lt;a&gt;\"/>",
         "CIMException 3: CIM_ERR_INVALID_NAMESPACE: <a>"},
        {"<ERROR CODE=\"7\"/>", "CIMException 7: "},
        {"<ERROR CODE=\" 007 \"/>", "CIMException 7: "},
        {"<ERROR CODE=\"99\" DESCRIPTION=\"x\"></ERROR>", "CIMException 99: x"},
        {"<ERROR CODE=\"0\" DESCRIPTION=\"x\"/>", "0 instances"},
    };
    for (const auto& [element, outcome] : rows) {
        EXPECT_EQ(outcome, OutcomeOfXml(Replaced(EnumerationXml(""),
                                                 "<IRETURNVALUE></IRETURNVALUE>", element)));
    }
    EXPECT_EQ("CIMException 16: no", MethodOutcome("<ERROR CODE=\"16\" DESCRIPTION=\"no\"/>"));
    EXPECT_EQ("boolean (null)", MethodOutcome("<ERROR CODE=\"0\"/>"));
}

// --- documents ---

TEST(PegasusAnswer, AnotherMessageNumberOrProtocolIsAResponseException) {
    ScriptedServer server({AnsweringXml(Replaced(EnumerationXml(""), "@ID@", "9"))});
    ConnectedClient client(server);
    const std::string thrown = Thrown([&] { client.Enumerate(); });
    const std::string start =
        "CIMClientResponseException: Mismatched response message ID:  Got \"9\", expected \"1";
    EXPECT_EQ(start, thrown.substr(0, start.size()));
    EXPECT_EQ("\".", thrown.substr(thrown.size() - 2));

    for (const char* version : {"2.0", "1.", "1", "1.x", ""}) {
        EXPECT_EQ("CIMClientResponseException: Received unsupported protocol version \"" +
                      std::string(version) + "\", expected \"1.[0-9]+\"",
                  OutcomeOfXml(Replaced(EnumerationXml(""), "PROTOCOLVERSION=\"1.0\"",
                                        "PROTOCOLVERSION=\"" + std::string(version) + "\"")));
    }
    for (const char* version : {"1.4", "1.23"}) {
        EXPECT_EQ("0 instances",
                  OutcomeOfXml(Replaced(EnumerationXml(""), "PROTOCOLVERSION=\"1.0\"",
                                        "PROTOCOLVERSION=\"" + std::string(version) + "\"")));
    }
}

TEST(PegasusAnswer, ADocumentWithoutItsDeclarationIsRefused) {
    const std::string message = kXml + "1: Expected <?xml ... ?> style declaration";
    EXPECT_EQ(message, OutcomeOfXml(Replaced(EnumerationXml(""),
                                             "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n", "")));
    EXPECT_EQ(message, OutcomeOfXml("hello"));
    EXPECT_EQ(message, OutcomeOfXml(""));
    EXPECT_EQ(message, OutcomeOfXml("<html><body>no</body></html>"));
}

TEST(PegasusAnswer, DocumentsThatAreNotWellFormedOrNotCimXmlAreRefused) {
    const std::string good = EnumerationXml(kOneInstance);
    struct Row {
        std::string xml;
        const char* why;
    };
    const Row rows[] = {
        {good.substr(0, good.size() / 2), "cut"},
        {Replaced(good, "</IRETURNVALUE>", ""), "an element that is not closed"},
        {Replaced(good, "</IRETURNVALUE>", "</IRETURN>"), "closed with another name"},
        {Replaced(good, "</CIM>", "</CIM><CIM/>"), "two roots"},
        {Replaced(good, "<SIMPLERSP>", "<SIMPLERSP>text"), "text between elements"},
        {Replaced(good, "<SIMPLERSP>", "<SIMPLERSP><OTHER/>"), "an unknown element"},
        {Replaced(good, "DTDVERSION=\"2.0\"", ""), "a missing attribute"},
        {Replaced(good, "NAME=\"EnumerateInstances\"", "NAME=\"GetClass\""), "another operation"},
        {Replaced(good, "CLASSNAME=\"ZOR_X\"", "CLASSNAME=\"1 X\""), "a class name that is none"},
        {Replaced(good, "CLASSNAME=\"ZOR_X\"", "CLASSNAME=\"\""), "an empty class name"},
        {Replaced(good, "<IRETURNVALUE>", "<IRETURNVALUE><INSTANCE CLASSNAME=\"X\"/>"),
         "an instance without its name"},
        {MethodXml("<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE>"), "a method's answer"},
        {Replaced(good, "<SIMPLERSP>", std::string("<SIMPLERSP>") + '\0'), "a NUL"},
    };
    for (const Row& row : rows) {
        ExpectRefused(OutcomeOfXml(row.xml), row.why);
    }
    EXPECT_EQ("CIMClientXmlException: Closing element does not match opening element: on line 5",
              OutcomeOfXml(Replaced(good, "</IRETURNVALUE>", "</IRETURN>")));
    EXPECT_EQ(kXml + "5: Expected no more content in the IMETHODRESPONSE element",
              OutcomeOfXml(Replaced(good, "<IRETURNVALUE>", "<X/><IRETURNVALUE>")));
}

TEST(PegasusAnswer, DocumentsThatAreOnlyUnusualAreTaken) {
    const std::string good = EnumerationXml(kOneInstance);
    const std::string rows[] = {
        Replaced(good, "CIMVERSION=\"2.0\"", "CIMVERSION=\"3.7\""),
        Replaced(good, "<SIMPLERSP>", "<!-- a comment --><SIMPLERSP>"),
        Replaced(good, "<CIM ",
                 "<?pi x?><!DOCTYPE CIM SYSTEM \"http://127.0.0.1:9/cim.dtd\"><CIM "),
        Replaced(good, "NAME=\"EnumerateInstances\"", "NAME='EnumerateInstances'"),
        "\xEF\xBB\xBF" + good,
        good + "text behind the root",
        good + '\0',
        good + std::string(3, '\0') + "<rest of a buffer",
        Replaced(good, "NAME=\"EnumerateInstances\"", "NAME=\"ENUMERATEinstances\""),
        "\r\n \t" + good,
    };
    for (const std::string& xml : rows) EXPECT_EQ("1 instances", OutcomeOfXml(xml)) << xml;
}

TEST(PegasusAnswer, AnEmptyResponseIsNoInstances) {
    EXPECT_EQ("0 instances",
              OutcomeOfXml(Replaced(EnumerationXml(""), "<IRETURNVALUE></IRETURNVALUE>", "")));
    EXPECT_EQ("0 instances", OutcomeOfXml(EnumerationXml("")));
}

// --- values ---

TEST(PegasusAnswer, ValuesAreReadByTheirType) {
    struct Row {
        const char* type;
        const char* value;
        const char* outcome;
    };
    const Row rows[] = {
        {"uint8", "<VALUE>255</VALUE>", "uint8 255"},
        {"sint8", "<VALUE>-128</VALUE>", "sint8 -128"},
        {"sint16", "<VALUE>-32768</VALUE>", "sint16 -32768"},
        {"uint32", "<VALUE>0x1F</VALUE>", "uint32 31"},
        {"uint32", "<VALUE>0XfF</VALUE>", "uint32 255"},
        {"sint32", "<VALUE>+7</VALUE>", "sint32 7"},
        {"uint16", "<VALUE> \n 5\t </VALUE>", "uint16 5"},
        {"uint16", "<VALUE>&#32;5&#32;</VALUE>", "uint16 5"},
        {"sint64", "<VALUE>-9223372036854775808</VALUE>", "sint64 -9223372036854775808"},
        {"sint64", "<VALUE>9223372036854775807</VALUE>", "sint64 9223372036854775807"},
        {"uint64", "<VALUE>18446744073709551615</VALUE>", "uint64 18446744073709551615"},
        {"uint16", "<VALUE>65535</VALUE>", "uint16 65535"},
        {"sint16", "<VALUE>32767</VALUE>", "sint16 32767"},
        {"uint32", "<VALUE>4294967295</VALUE>", "uint32 4294967295"},
        {"sint32", "<VALUE>-2147483648</VALUE>", "sint32 -2147483648"},
        {"boolean", "<VALUE>true</VALUE>", "boolean TRUE"},
        {"boolean", "<VALUE> FALSE </VALUE>", "boolean FALSE"},
        {"real32", "<VALUE>1.2500000e+01</VALUE>", "real32 1.2500000000000000e+01"},
        {"real32", "<VALUE>0.1</VALUE>", "real32 1.0000000149011612e-01"},
        {"real64", "<VALUE>0.1</VALUE>", "real64 1.0000000000000001e-01"},
        {"real64", "<VALUE>-1e300</VALUE>", "real64 -1.0000000000000001e+300"},
        {"real64", "<VALUE>-.5E2</VALUE>", "real64 -5.0000000000000000e+01"},
        {"char16", "<VALUE>\xE2\x82\xAC</VALUE>", "char16 \xE2\x82\xAC"},
        {"char16", "<VALUE>&#32;</VALUE>", "char16  "},
        {"datetime", "<VALUE>00000001020304.000005:000</VALUE>",
         "datetime 00000001020304.000005:000"},
        {"datetime", "<VALUE>2024022912****.******+060</VALUE>",
         "datetime 2024022912****.******+060"},
        {"datetime", "<VALUE></VALUE>", "datetime 00000000000000.000000:000"},
        {"sint32", "<VALUE>-0</VALUE>", "sint32 0"},
        {"uint32", "<VALUE>0</VALUE>", "uint32 0"},
        {"uint32", "<VALUE>0x00F</VALUE>", "uint32 15"},
        {"string", "<VALUE></VALUE>", "string "},
        {"string", "<VALUE/>", "string "},
        {"string", "<VALUE>   </VALUE>", "string "},
        {"string", "", "string (null)"},
        {"string", "<VALUE> \r\n a  b \t</VALUE>", "string a  b"},
        {"string", "<VALUE>&#32;&#9; a &#10;&#x20;</VALUE>", "string  \t a \n "},
        {"string", "<VALUE>&lt;&amp;&gt;&quot;&apos;&#233;&#x20AC;&#x1D11E;</VALUE>",
         "string <&>\"'\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"},
        {"string", "<VALUE><![CDATA[ <a> &amp; ]]></VALUE>", "string  <a> &amp; "},
        {"string", "<VALUE>a<!-- x -->b</VALUE>", "string ab"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.outcome, ValueOutcome(row.type, row.value)) << row.value;
    }
}

TEST(PegasusAnswer, ValuesThatAreNoneOfTheirTypeAreRefused) {
    const std::pair<const char*, const char*> rows[] = {
        {"uint8", "<VALUE>256</VALUE>"},
        {"uint8", "<VALUE>-1</VALUE>"},
        {"sint8", "<VALUE>128</VALUE>"},
        {"sint8", "<VALUE>-129</VALUE>"},
        {"uint16", "<VALUE>65536</VALUE>"},
        {"sint16", "<VALUE>32768</VALUE>"},
        {"uint32", "<VALUE>4294967296</VALUE>"},
        {"sint32", "<VALUE>-2147483649</VALUE>"},
        {"sint64", "<VALUE>9223372036854775808</VALUE>"},
        {"sint64", "<VALUE>-9223372036854775809</VALUE>"},
        {"uint64", "<VALUE>18446744073709551616</VALUE>"},
        {"uint32", "<VALUE></VALUE>"},
        {"uint32", "<VALUE>1 2</VALUE>"},
        {"uint32", "<VALUE>00</VALUE>"},
        {"uint32", "<VALUE>-0</VALUE>"},
        {"uint32", "<VALUE>+0</VALUE>"},
        {"uint32", "<VALUE>+5</VALUE>"},
        {"uint32", "<VALUE>007</VALUE>"},
        {"sint32", "<VALUE>-07</VALUE>"},
        {"uint32", "<VALUE>0x</VALUE>"},
        {"uint32", "<VALUE>--1</VALUE>"},
        {"uint32", "<VALUE>1.0</VALUE>"},
        {"boolean", "<VALUE>yes</VALUE>"},
        {"boolean", "<VALUE></VALUE>"},
        {"real64", "<VALUE>inf</VALUE>"},
        {"real64", "<VALUE>1e999</VALUE>"},
        {"real64", "<VALUE>1,5</VALUE>"},
        {"real32", "<VALUE>1e300</VALUE>"},
        {"char16", "<VALUE>ab</VALUE>"},
        {"char16", "<VALUE></VALUE>"},
        {"char16", "<VALUE>\xF0\x9D\x84\x9E</VALUE>"},
        {"datetime", "<VALUE>today</VALUE>"},
        {"datetime", "<VALUE>20240229123456.654321</VALUE>"},
        {"datetime", "<VALUE>20240229123456.654321+06x</VALUE>"},
        {"datetime", "<VALUE>20241329123456.654321+060</VALUE>"},
        {"datetime", "<VALUE>20240229993456.654321+060</VALUE>"},
        {"string", "<VALUE>a<![CDATA[b]]></VALUE>"},
        {"string", "<VALUE>a<b/></VALUE>"},
        {"string", "<VALUE><b/></VALUE>"},
        {"string", "<VALUE>&unknown;</VALUE>"},
        {"string", "<VALUE>a & b</VALUE>"},
        {"string", "<VALUE>&#0;</VALUE>"},
        {"string", "<VALUE>&#xD800;</VALUE>"},
        {"string", "<VALUE>&#x110000;</VALUE>"},
        {"string", "<VALUE>\xC3(</VALUE>"},
        {"string", "<VALUE.ARRAY></VALUE.ARRAY>"},
        {"string", "<VALUE>a</VALUE><VALUE>b</VALUE>"},
        {"nonsense", "<VALUE>a</VALUE>"},
        {"reference", "<VALUE>a</VALUE>"},
    };
    for (const auto& [type, value] : rows) ExpectRefused(ValueOutcome(type, value), value);
}

TEST(PegasusAnswer, ArraysReferencesAndQualifiersAreRead) {
    EXPECT_EQ(
        "uint16[] 2 32768 ",
        PropertyOutcome("<PROPERTY.ARRAY NAME=\"P\" TYPE=\"uint16\"><VALUE.ARRAY>"
                        "<VALUE>2</VALUE><VALUE>32768</VALUE></VALUE.ARRAY></PROPERTY.ARRAY>"));
    EXPECT_EQ("string[] (null)",
              PropertyOutcome("<PROPERTY.ARRAY NAME=\"P\" TYPE=\"string\"></PROPERTY.ARRAY>"));
    ExpectRefused(PropertyOutcome("<PROPERTY.ARRAY NAME=\"P\" TYPE=\"string\"><VALUE.ARRAY>"
                                  "<VALUE.NULL/></VALUE.ARRAY></PROPERTY.ARRAY>"),
                  "a null within an array");
    EXPECT_EQ(
        "reference //h/a/b:ZOR_Y.K=\"v\"",
        PropertyOutcome("<PROPERTY.REFERENCE NAME=\"P\" REFERENCECLASS=\"ZOR_Y\"><VALUE.REFERENCE>"
                        "<INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH>"
                        "<NAMESPACE NAME=\"a\"/><NAMESPACE NAME=\"b\"/></LOCALNAMESPACEPATH>"
                        "</NAMESPACEPATH><INSTANCENAME CLASSNAME=\"ZOR_Y\"><KEYBINDING NAME=\"K\">"
                        "<KEYVALUE>v</KEYVALUE></KEYBINDING></INSTANCENAME></INSTANCEPATH>"
                        "</VALUE.REFERENCE></PROPERTY.REFERENCE>"));
    EXPECT_EQ("reference a:ZOR_Y",
              PropertyOutcome("<PROPERTY.REFERENCE NAME=\"P\"><VALUE.REFERENCE><LOCALCLASSPATH>"
                              "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"a\"/></LOCALNAMESPACEPATH>"
                              "<CLASSNAME NAME=\"ZOR_Y\"/></LOCALCLASSPATH></VALUE.REFERENCE>"
                              "</PROPERTY.REFERENCE>"));
    ExpectRefused(PropertyOutcome("<PROPERTY NAME=\"P\" TYPE=\"string\"/>"
                                  "<PROPERTY NAME=\"p\" TYPE=\"string\"/>"),
                  "a property twice");
    ScriptedServer server({AnsweringXml(EnumerationXml(
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"ZOR_X\"/><INSTANCE CLASSNAME=\"ZOR_X\">"
        "<PROPERTY NAME=\"P\" CLASSORIGIN=\"ZOR_O\" PROPAGATED=\"true\" TYPE=\"uint16\">"
        "<QUALIFIER NAME=\"Values\" TYPE=\"string\"><VALUE.ARRAY><VALUE>one</VALUE>"
        "<VALUE>two</VALUE></VALUE.ARRAY></QUALIFIER><QUALIFIER NAME=\"Key\" TYPE=\"boolean\">"
        "<VALUE>TRUE</VALUE></QUALIFIER><VALUE>1</VALUE></PROPERTY>"
        "</INSTANCE></VALUE.NAMEDINSTANCE>"))});
    ConnectedClient client(server);
    const CIMProperty property = client.Enumerate()[0].getProperty(0);
    EXPECT_NE(PEG_NOT_FOUND, property.findQualifier("KEY"));
    Array<String> values;
    property.getQualifier(property.findQualifier("values")).getValue().get(values);
    EXPECT_EQ(2U, values.size());
    EXPECT_STREQ("two", values[1].getCString());
    EXPECT_EQ("1", Utf8(property.getValue().toString()));
    ExpectRefused(PropertyOutcome("<PROPERTY NAME=\"P\" CLASSORIGIN=\"a b\" TYPE=\"string\"/>"),
                  "a class origin that is no name");
}

TEST(PegasusAnswer, KeysAreKeptAsSentAndSorted) {
    const auto pathOf = [](const std::string& inside) {
        ScriptedServer server({AnsweringXml(EnumerationXml(
            "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"ZOR_X\">" + inside +
            "</INSTANCENAME><INSTANCE CLASSNAME=\"ZOR_X\"/></VALUE.NAMEDINSTANCE>"))});
        ConnectedClient client(server);
        std::string path;
        const std::string thrown =
            Thrown([&] { path = Utf8(client.Enumerate()[0].getPath().toString()); });
        return path + thrown;
    };
    const auto key = [](const char* name, const std::string& value) {
        return "<KEYBINDING NAME=\"" + std::string(name) + "\">" + value + "</KEYBINDING>";
    };
    EXPECT_EQ("ZOR_X.a=5,B=true,c=\"&#32;\"",
              pathOf(key("c", "<KEYVALUE>&amp;#32;</KEYVALUE>") +
                     key("B", "<KEYVALUE VALUETYPE=\"boolean\">true</KEYVALUE>") +
                     key("a", "<KEYVALUE VALUETYPE=\"numeric\">5</KEYVALUE>")));
    EXPECT_EQ("ZOR_X.=\"v\"", pathOf("<KEYVALUE VALUETYPE=\"string\">v</KEYVALUE>"));
    EXPECT_EQ("ZOR_X.r=\"ZOR_Y.k=\\\"v\\\"\"",
              pathOf(key("r", "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"ZOR_Y\">" +
                                  key("k", "<KEYVALUE>v</KEYVALUE>") +
                                  "</INSTANCENAME></VALUE.REFERENCE>")));
    ExpectRefused(pathOf(key("a", "<KEYVALUE VALUETYPE=\"other\">5</KEYVALUE>")), "a type of key");
    ExpectRefused(pathOf(key("a", "")), "a key without value");
}

TEST(PegasusAnswer, AMethodReturnsWhatItsAnswerHolds) {
    struct Row {
        const char* inside;
        const char* outcome;
    };
    const Row rows[] = {
        {"<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>0</VALUE></RETURNVALUE>", "uint32 0"},
        {"<RETURNVALUE PARAMTYPE=\"uint16\"><VALUE>0</VALUE></RETURNVALUE>", "uint16 0"},
        {"<RETURNVALUE><VALUE>0</VALUE></RETURNVALUE>", "string 0"},
        {"<PARAMVALUE NAME=\"Job\"/><RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>6</VALUE></RETURNVALUE>"
         "<PARAMVALUE NAME=\"After\"/>",
         "uint32 6"},
        {"", "boolean (null)"},
        {"<RETURNVALUE><VALUE.REFERENCE><CLASSNAME NAME=\"ZOR_Y\"/></VALUE.REFERENCE></RETURNVALUE>",
         "reference ZOR_Y"},
    };
    for (const Row& row : rows) EXPECT_EQ(row.outcome, MethodOutcome(row.inside)) << row.inside;
    ExpectRefused(MethodOutcome("<RETURNVALUE PARAMTYPE=\"uint32\"></RETURNVALUE>"), "empty");
    ExpectRefused(MethodOutcome("<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>x</VALUE></RETURNVALUE>"),
                  "no number");
    ExpectRefused(MethodOutcome("<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE.REFERENCE>"
                                "<CLASSNAME NAME=\"ZOR_Y\"/></VALUE.REFERENCE></RETURNVALUE>"),
                  "a reference that is to be a number");
}

TEST(PegasusAnswer, OutParametersAreReplacedOnSuccessOnly) {
    int count = 0;
    ScriptedServer server({Answering([&](const std::string& request) {
        return count++ == 0
                   ? Chunked(request, MethodXml(""), "CIMStatusCode: 1\r\n")
                   : Chunked(
                         request,
                         MethodXml("<PARAMVALUE NAME=\"Job\" PARAMTYPE=\"uint8\"><VALUE>4</VALUE>"
                                   "</PARAMVALUE><PARAMVALUE NAME=\"Plain\"><VALUE>t</VALUE>"
                                   "</PARAMVALUE><PARAMVALUE NAME=\"None\" PARAMTYPE=\"real32\"/>"
                                   "<PARAMVALUE NAME=\"List\" PARAMTYPE=\"uint8\"><VALUE.ARRAY>"
                                   "<VALUE>1</VALUE></VALUE.ARRAY></PARAMVALUE>"));
    })});
    ConnectedClient client(server);
    Array<CIMParamValue> out;
    out.append(CIMParamValue("old", CIMValue(true)));

    EXPECT_EQ("CIMException 1: CIM_ERR_FAILED", Thrown([&] { client.Invoke(out); }));
    ASSERT_EQ(1U, out.size());
    EXPECT_STREQ("old", out[0].getParameterName().getCString());

    EXPECT_TRUE(client.Invoke(out).isNull());
    ASSERT_EQ(4U, out.size());
    EXPECT_TRUE(out[0].getValue() == ValueContent::Make(CIMTYPE_UINT8, "4"));
    EXPECT_TRUE(out[1].getValue() == CIMValue(String("t")));
    EXPECT_FALSE(out[1].isTyped());
    EXPECT_TRUE(out[2].getValue() == CIMValue(CIMTYPE_REAL32, false));
    EXPECT_TRUE(out[3].getValue().isArray());
}

}  // namespace
