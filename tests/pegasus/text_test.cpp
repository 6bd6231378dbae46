// SPDX-License-Identifier: Apache-2.0
// Texts, names, arrays.
#include <gtest/gtest.h>

#include "support.h"

using namespace Pegasus;

namespace {

TEST(PegasusString, RoundTripsAreExact) {
    for (const char* text : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E clef"}) {
        EXPECT_STREQ(text, String(text).getCString());
    }
}

TEST(PegasusString, BytesThatAreNoUtf8Throw) {
    const std::string start = "Exception: The byte sequence starting at index ";
    EXPECT_EQ(start + "2 is not valid UTF-8 encoding: 0xC3 0x28",
              Thrown([] { String text("ab\xC3("); }));
    EXPECT_EQ(start + "0 is not valid UTF-8 encoding: 0xFF", Thrown([] { String text("\xFF"); }));
    for (const char* bad : {"\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80"}) {
        EXPECT_NE("", Thrown([&] { String text(bad); })) << bad;
    }
}

TEST(PegasusString, ANullPointerThrows) {
    const char* none = nullptr;
    EXPECT_EQ("NullPointer: null pointer", Thrown([&] { String text(none); }));
}

TEST(PegasusString, Compares) {
    EXPECT_TRUE(String("a") + "b" == String("ab"));
    EXPECT_TRUE(String("a") != String("A"));
    EXPECT_TRUE(String::equalNoCase("Name", "nAmE"));
    EXPECT_FALSE(String::equalNoCase("Name", "Names"));
}

TEST(PegasusCIMName, LegalNamesAreTaken) {
    for (const char* name : {"ZOR_FFDCData", "_a1", "caf\xC3\xA9"}) {
        EXPECT_STREQ(name, CIMName(name).getString().getCString());
    }
    EXPECT_TRUE(CIMName().isNull());
    EXPECT_STREQ("", CIMName().getString().getCString());
}

TEST(PegasusCIMName, AnIllegalNameThrows) {
    for (const char* bad : {"", " a", "a ", "1a", "a-b", "a b", "a.b", "a\"b"}) {
        EXPECT_EQ("InvalidNameException: The CIM name is not valid: " + std::string(bad),
                  Thrown([&] { CIMName name(bad); }));
    }
}

TEST(PegasusCIMNamespaceName, OneLeadingSlashIsDropped) {
    EXPECT_STREQ("root/cimv2", CIMNamespaceName("/root/cimv2").getString().getCString());
    EXPECT_TRUE(CIMNamespaceName().isNull());
}

TEST(PegasusCIMNamespaceName, AnIllegalNamespaceThrows) {
    for (const char* bad : {"", "/", "//a", "a//b", "a/", "a b", " a", "a/1b"}) {
        EXPECT_EQ("InvalidNamespaceNameException: invalid CIM namespace name: " + std::string(bad),
                  Thrown([&] { CIMNamespaceName name(bad); }));
    }
}

TEST(PegasusArray, GrowsAndCopiesIndependently) {
    Array<Uint32> a;
    a.append(1);
    a.append(2);
    Array<Uint32> b(a);
    b[0] = 7;
    b.append(3);

    EXPECT_EQ(1U, a[0]);
    EXPECT_EQ(2U, a.size());
    EXPECT_EQ(3U, b.size());
    EXPECT_EQ(7U, b[0]);
}

TEST(PegasusArray, OutOfRangeThrows) {
    Array<String> empty;
    const std::string text = "IndexOutOfBoundsException: index out of bounds";
    EXPECT_EQ(text, Thrown([&] { (void)empty[0]; }));
}

TEST(PegasusCIMStatusCode, CodesHaveTheirNames) {
    const std::pair<Uint32, const char*> rows[] = {
        {CIM_ERR_INVALID_NAMESPACE, "CIM_ERR_INVALID_NAMESPACE"},
        {17, "CIM_ERR_METHOD_NOT_FOUND"},
        {28, "CIM_ERR_SERVER_IS_SHUTTING_DOWN"},
        {18, "Unrecognized CIM status code \"18\""},
    };
    for (const auto& [code, name] : rows) {
        EXPECT_STREQ(name, cimStatusCodeToString(static_cast<CIMStatusCode>(code)).getCString());
    }
}

TEST(PegasusCIMType, TypesHaveTheirNamesInOrder) {
    const char* names[] = {"boolean", "uint8",  "sint8",  "uint16",   "sint16",
                           "uint32",  "sint32", "uint64", "sint64",   "real32",
                           "real64",  "char16", "string", "datetime", "reference"};
    for (Uint32 i = 0; i < 15; ++i) {
        EXPECT_STREQ(names[i], cimTypeToString(static_cast<CIMType>(i)));
    }
    EXPECT_EQ(14, static_cast<int>(CIMTYPE_REFERENCE));
}

}  // namespace
