// SPDX-License-Identifier: Apache-2.0
// Texts, names, arrays.
#include <gtest/gtest.h>

#include <sstream>

#include "support.h"

using namespace Pegasus;

namespace {

TEST(PegasusString, RoundTripsThroughUtf16AreExact) {
    for (const char* text : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E clef"}) {
        EXPECT_STREQ(text, String(text).getCString());
    }
    EXPECT_EQ(1U, String("\xE2\x82\xAC").size());
    EXPECT_EQ(2U, String("\xF0\x9D\x84\x9E").size());  // a pair of units
}

TEST(PegasusString, AnEmbeddedNulSurvivesButEndsTheTextForAReaderOfPointers) {
    const String text("a\0b", 3);

    EXPECT_EQ(3U, text.size());
    EXPECT_STREQ("a", text.getCString());
    EXPECT_TRUE(String::equal(text.subString(2), "b"));
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

TEST(PegasusString, ComparesAndSearches) {
    EXPECT_TRUE(String("a") + "b" == String("ab"));
    EXPECT_TRUE(String("a") != String("A"));
    EXPECT_TRUE(String::equalNoCase("Name", "nAmE"));
    EXPECT_EQ(2U, String("abcd").find("cd"));
    EXPECT_EQ(PEG_NOT_FOUND, String("abcd").find("x"));
    EXPECT_STREQ("bc", String("abcd").subString(1, 2).getCString());
    EXPECT_EQ("IndexOutOfBoundsException: index out of bounds",
              Thrown([] { String("ab").subString(3); }));
}

TEST(PegasusCIMName, LegalNamesAreTakenAndComparedWithoutCase) {
    EXPECT_TRUE(CIMName("ZOR_FFDCData") == CIMName("zor_ffdcdata"));
    EXPECT_TRUE(CIMName("_a1").equal("_A1"));
    EXPECT_TRUE(CIMName("caf\xC3\xA9") != CIMName("cafe"));
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
    EXPECT_TRUE(CIMNamespaceName("ROOT/CimV2") == CIMNamespaceName("root/cimv2"));
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
    EXPECT_EQ(3U, Array<String>(3).size());
    EXPECT_TRUE(Array<Boolean>(2, true)[1]);
}

TEST(PegasusArray, OutOfRangeThrows) {
    Array<String> empty;
    const std::string text = "IndexOutOfBoundsException: index out of bounds";
    EXPECT_EQ(text, Thrown([&] { empty[0].size(); }));
}

TEST(PegasusCIMStatusCode, EveryCodeHasItsNameAndNumber) {
    EXPECT_EQ(7, static_cast<int>(CIM_ERR_NOT_SUPPORTED));
    EXPECT_EQ(17, static_cast<int>(CIM_ERR_METHOD_NOT_FOUND));
    EXPECT_EQ(28, static_cast<int>(CIM_ERR_SERVER_IS_SHUTTING_DOWN));
    EXPECT_STREQ("CIM_ERR_METHOD_NOT_FOUND",
                 cimStatusCodeToString(CIM_ERR_METHOD_NOT_FOUND).getCString());
}

TEST(PegasusCIMType, TypesHaveTheirNamesInOrder) {
    const char* names[] = {"boolean", "uint8",    "sint8",     "uint16", "sint16",  "uint32",
                           "sint32",  "uint64",   "sint64",    "real32", "real64",  "char16",
                           "string",  "datetime", "reference", "object", "instance"};
    for (Uint32 i = 0; i < 17; ++i) {
        EXPECT_STREQ(names[i], cimTypeToString(static_cast<CIMType>(i)));
    }
    EXPECT_EQ(16, static_cast<int>(CIMTYPE_INSTANCE));
}

}  // namespace
