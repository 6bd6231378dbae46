// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Xml.h"
#include "shared/Percent.h"

#include <gmock/gmock.h>

namespace {

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

TEST(PercentDecoded, ReadsWhatIsEncodedAndLeavesTheRest) {
    EXPECT_EQ(shared::PercentDecoded("a%20b%2F"), "a b/");
    EXPECT_EQ(shared::PercentDecoded("100% %2 %zz %4"), "100% %2 %zz %4");
}

}  // namespace
