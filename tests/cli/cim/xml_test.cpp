// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Xml.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Cim::BasicAuthorization;
using Kemffdc::Cim::Enumeration;
using Kemffdc::Cim::ReadEnumeration;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(EnumerationRequest, NamesNamespaceAndClass) {
    EXPECT_EQ(
        Kemffdc::Cim::EnumerationRequest("zor/kem2/cimv2", "ZOR_FFDCData"),
        "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
        "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\">"
        "<SIMPLEREQ><IMETHODCALL NAME=\"EnumerateInstances\"><LOCALNAMESPACEPATH>"
        "<NAMESPACE NAME=\"zor\"/><NAMESPACE NAME=\"kem2\"/><NAMESPACE NAME=\"cimv2\"/>"
        "</LOCALNAMESPACEPATH><IPARAMVALUE NAME=\"ClassName\"><CLASSNAME NAME=\"ZOR_FFDCData\"/>"
        "</IPARAMVALUE></IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>\n");
    EXPECT_EQ(Kemffdc::Cim::CimObjectHeader("zor/kem2/cimv2"), "zor%2Fkem2%2Fcimv2");
}

std::string Answer(const std::string& inside) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP>"
           "<IMETHODRESPONSE NAME=\"EnumerateInstances\">" +
           inside + "</IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";
}

TEST(ReadEnumeration, ListsTheTypesOfTheObjects) {
    const Enumeration found = ReadEnumeration(
        Answer("<IRETURNVALUE><VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"X\"/><INSTANCE "
               "CLASSNAME=\"X\"><PROPERTY NAME=\"A\" TYPE=\"string\"><VALUE>9</VALUE></PROPERTY>"
               "<PROPERTY NAME=\"DataCollectionType\" TYPE=\"uint16\"><VALUE>4</VALUE></PROPERTY>"
               "</INSTANCE></VALUE.NAMEDINSTANCE><VALUE.NAMEDINSTANCE><INSTANCE CLASSNAME=\"X\"/>"
               "</VALUE.NAMEDINSTANCE></IRETURNVALUE>"));
    EXPECT_EQ(found.unreadable, "");
    EXPECT_FALSE(found.failed);
    EXPECT_THAT(found.types, ElementsAre("4", ""));
    EXPECT_THAT(ReadEnumeration(Answer("<IRETURNVALUE></IRETURNVALUE>")).types, IsEmpty());
}

TEST(ReadEnumeration, ReadsACimError) {
    const Enumeration found =
        ReadEnumeration(Answer("<ERROR CODE=\"3\" DESCRIPTION=\"a &lt;b&gt;\"/>"));
    EXPECT_TRUE(found.failed);
    EXPECT_EQ(found.errorCode, 3);
    EXPECT_EQ(found.errorText, "a <b>");
}

struct BadRow {
    std::string document;
    const char* why;
};

TEST(ReadEnumeration, WhatIsNoAnswerSaysWhy) {
    std::string deep = "<?xml version=\"1.0\"?>";
    for (int i = 0; i < 100000; ++i) deep += "<A>";
    const BadRow rows[] = {
        {"", "its answer is not XML"},
        {"hello", "its answer is not XML"},
        {"<CIM></CIM>", "its answer is not XML"},
        {"<?xml version=\"1.0\"?><CIM>", "its answer is not well-formed XML"},
        {Answer("<A").substr(0, 200), "its answer is not well-formed XML"},
        {deep, "its answer is not well-formed XML"},
        {"<?xml version=\"1.0\"?><html></html>", "its answer is not CIM-XML"},
    };
    for (const BadRow& row : rows) EXPECT_EQ(ReadEnumeration(row.document).unreadable, row.why);
}

TEST(ReadEnumeration, EntitiesDoNotExpand) {
    const std::string document = Answer(
        "<IRETURNVALUE><VALUE.NAMEDINSTANCE><INSTANCE><PROPERTY NAME=\"DataCollectionType\"><VALUE>"
        "&e9;</VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE></IRETURNVALUE>");
    EXPECT_THAT(ReadEnumeration(document).types, ElementsAre("&e9;"));
}

struct CredentialRow {
    const char* user;
    const char* password;
    const char* value;
    const char* why;
};

TEST(BasicAuthorization, SendsOneByteForEachCharacterAsTheLibraryDoes) {
    const CredentialRow rows[] = {
        {"admin", "secret", "Basic YWRtaW46c2VjcmV0", "ASCII"},
        {"admin", "", "Basic YWRtaW46", "an empty password"},
        {"u", "\xC3\xA9", "Basic dTrp", "Latin-1: E9"},
        {"u", "\xE5\xAF\x86", "Basic dTrG", "U+5BC6: its low byte"},
        {"u", "\xF0\x9F\x98\x80", "Basic dTo9AA==", "U+1F600: the low bytes of D83D and DE00"},
        {"u", "\xE9", "Basic dTrp", "no valid UTF-8: the byte itself"},
    };
    for (const CredentialRow& row : rows) {
        EXPECT_EQ(BasicAuthorization(row.user, row.password), row.value) << row.why;
    }
}

TEST(IsBasicChallenge, WantsTheSchemeSpelledSoAndARealmInQuotes) {
    EXPECT_TRUE(Kemffdc::Cim::IsBasicChallenge("Basic realm=\"bmc\""));
    EXPECT_TRUE(Kemffdc::Cim::IsBasicChallenge("Basic realm=\"\", charset=\"UTF-8\""));
    for (const char* challenge : {"", "Basic", "basic realm=\"bmc\"", "Basic realm=bmc",
                                  "Digest realm=\"bmc\"", "Basic realm=\"bmc"}) {
        EXPECT_FALSE(Kemffdc::Cim::IsBasicChallenge(challenge)) << challenge;
    }
}

TEST(PercentDecoded, ReadsWhatIsEncodedAndLeavesTheRest) {
    EXPECT_EQ(Kemffdc::Cim::PercentDecoded("a%20b%2F"), "a b/");
    EXPECT_EQ(Kemffdc::Cim::PercentDecoded("100% %2 %zz %4"), "100% %2 %zz %4");
}

}  // namespace
