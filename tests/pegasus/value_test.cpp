// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "ValueContent.h"
#include "support.h"

using namespace Pegasus;

namespace {

Array<String> Texts(std::initializer_list<const char*> items) {
    Array<String> array;
    for (const char* item : items) array.append(item);
    return array;
}

CIMObjectPath Path(const char* className) { return {String(), CIMNamespaceName(), className}; }

TEST(PegasusCIMValueToString, EveryTypeHasItsText) {
    struct Row {
        CIMValue value;
        const char* text;
        const char* why;
    };
    const Row rows[] = {
        {CIMValue(), "", "a null boolean"},
        {CIMValue(CIMTYPE_STRING, false), "", "a null string"},
        {CIMValue(CIMTYPE_UINT16, true), "", "a null array"},
        {CIMValue(true), "TRUE", "boolean"},
        {CIMValue(false), "FALSE", "boolean"},
        {CIMValue(Uint16(65535)), "65535", "uint16"},
        {CIMValue(Uint32(4294967295U)), "4294967295", "uint32"},
        {CIMValue(Sint32(-5)), "-5", "sint32"},
        {CIMValue(String(" \"a\" & <b>\\ ")), " \"a\" & <b>\\ ", "unquoted and unescaped"},
        {CIMValue(Path("ZOR_X")), "ZOR_X", "reference"},
        {CIMValue(Texts({"first one", "", "third"})), "first one  third ",
         "a blank after each, the last and the empty one too"},
        {CIMValue(Array<String>()), "", "an empty array"},
    };
    for (const Row& row : rows) EXPECT_EQ(row.text, Utf8(row.value.toString())) << row.why;
}

TEST(PegasusCIMValue, APlainTextMakesABooleanAndAnIntLiteralASint32) {
    const char* text = "text";  // clang warns of the literal itself, which is as well
    EXPECT_EQ(CIMTYPE_BOOLEAN, CIMValue(text).getType());
    EXPECT_EQ(CIMTYPE_STRING, CIMValue(String("text")).getType());
    EXPECT_EQ(CIMTYPE_SINT32, CIMValue(0).getType());
    EXPECT_EQ(CIMTYPE_UINT32, CIMValue(Uint32(0)).getType());
}

TEST(PegasusCIMValueEqual, TypeArrayNullAndContentMustAgree) {
    const CIMValue zero(Uint32(0));
    EXPECT_TRUE(zero == CIMValue(Uint32(0)));
    struct Row {
        CIMValue other;
        const char* why;
    };
    const Row rows[] = {
        {CIMValue(Sint32(0)), "sint32"},
        {CIMValue(Uint16(0)), "uint16"},
        {CIMValue(String("0")), "string"},
        {CIMValue(CIMTYPE_UINT32, false), "a null uint32"},
        {CIMValue(), "the default value"},
        {ValueContent::Make(CIMTYPE_UINT32, Texts({"0"})), "an array"},
        {CIMValue(Uint32(1)), "another number"},
    };
    for (const Row& row : rows) {
        EXPECT_FALSE(zero == row.other) << row.why;
        EXPECT_TRUE(zero != row.other) << row.why;
    }
    EXPECT_TRUE(CIMValue(CIMTYPE_UINT32, false) == CIMValue(CIMTYPE_UINT32, false));
    EXPECT_FALSE(CIMValue(CIMTYPE_UINT32, false) == CIMValue(CIMTYPE_UINT32, true));
    EXPECT_TRUE(CIMValue(Texts({"a", "b"})) == CIMValue(Texts({"a", "b"})));
    EXPECT_FALSE(CIMValue(Texts({"a", "b"})) == CIMValue(Texts({"a", "c"})));
    EXPECT_FALSE(CIMValue(Texts({"a", "b"})) == CIMValue(Texts({"a b"}))) << "toString() agrees";
    EXPECT_TRUE(CIMValue(Path("A")) == CIMValue(Path("A")));
    EXPECT_FALSE(CIMValue(Path("A")) == CIMValue(Path("B")));
}

TEST(PegasusCIMValueGet, AnotherTypeThrowsAndANullLeavesTheArgument) {
    Array<String> texts = Texts({"kept"});
    const std::string mismatch = "TypeMismatchException: type mismatch";

    CIMValue(CIMTYPE_STRING, true).get(texts);
    EXPECT_EQ(1U, texts.size());
    EXPECT_EQ(mismatch, Thrown([&] { CIMValue(CIMTYPE_UINT32, true).get(texts); }));
    EXPECT_EQ(mismatch, Thrown([&] { CIMValue(String("a")).get(texts); }));
    CIMValue(Texts({"a", "b"})).get(texts);
    EXPECT_EQ(2U, texts.size());
}

TEST(PegasusCIMValue, CopiesAreIndependent) {
    CIMValue a(Uint32(1));
    const CIMValue b(a);
    a = CIMValue(Uint32(2));
    EXPECT_EQ("1", Utf8(b.toString()));
}

}  // namespace
