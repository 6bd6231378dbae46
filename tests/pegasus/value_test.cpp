// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <clocale>
#include <limits>

#include "support.h"

using namespace Pegasus;

namespace {

template <class T>
Array<T> ArrayOf(std::initializer_list<T> items) {
    Array<T> array;
    for (const T& item : items) array.append(item);
    return array;
}

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
        {CIMValue(Uint8(65)), "65", "a number, no character"},
        {CIMValue(Sint8(-128)), "-128", "the least sint8"},
        {CIMValue(Uint16(65535)), "65535", "uint16"},
        {CIMValue(Sint16(-32768)), "-32768", "sint16"},
        {CIMValue(Uint32(4294967295U)), "4294967295", "uint32"},
        {CIMValue(Sint32(-5)), "-5", "sint32"},
        {CIMValue(std::numeric_limits<Uint64>::max()), "18446744073709551615", "uint64"},
        {CIMValue(std::numeric_limits<Sint64>::min()), "-9223372036854775808", "sint64"},
        {CIMValue(Real32(0)), "0.0000000000000000e+00", "real32"},
        {CIMValue(Real32(12.5F)), "1.2500000000000000e+01", "real32"},
        {CIMValue(Real32(0.1F)), "1.0000000149011612e-01", "real32, as the double it becomes"},
        {CIMValue(Real64(0.1)), "1.0000000000000001e-01", "real64"},
        {CIMValue(Real64(-1e300)), "-1.0000000000000001e+300", "three digits of exponent"},
        {CIMValue(Char16(0x20AC)), "\xE2\x82\xAC", "char16"},
        {CIMValue(String(" \"a\" & <b>\\ ")), " \"a\" & <b>\\ ", "unquoted and unescaped"},
        {CIMValue(CIMDateTime(String("20240229123456.654321+060"))), "20240229123456.654321+060",
         "a time stamp"},
        {CIMValue(CIMDateTime(String("00000001020304.000005:000"))), "00000001020304.000005:000",
         "an interval"},
        {CIMValue(CIMObjectPath("root/cimv2:ZOR_X.A=\"b\"")), "root/cimv2:ZOR_X.A=\"b\"",
         "reference"},
        {CIMValue(ArrayOf<Uint16>({2, 32768})), "2 32768 ", "a blank after the last one too"},
        {CIMValue(ArrayOf<Boolean>({true, false})), "TRUE FALSE ", "booleans"},
        {CIMValue(ArrayOf<String>({"first one", "", "third"})), "first one  third ",
         "an empty one in the middle"},
        {CIMValue(Array<Uint8>()), "", "an empty array"},
    };
    for (const Row& row : rows) EXPECT_EQ(row.text, Utf8(row.value.toString())) << row.why;
}

TEST(PegasusCIMValueToString, TheDecimalPointDoesNotDependOnTheLocale) {
    const char* before = std::setlocale(LC_ALL, nullptr);
    const std::string kept = before;
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_EQ("1.2500000000000000e+01", Utf8(CIMValue(Real64(12.5)).toString()));
    std::setlocale(LC_ALL, kept.c_str());
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
        {CIMValue(Sint32(0)), "sint32"},         {CIMValue(Uint16(0)), "uint16"},
        {CIMValue(String("0")), "string"},       {CIMValue(CIMTYPE_UINT32, false), "a null uint32"},
        {CIMValue(), "the default value"},       {CIMValue(ArrayOf<Uint32>({0})), "an array"},
        {CIMValue(Uint32(1)), "another number"},
    };
    for (const Row& row : rows) {
        EXPECT_FALSE(zero == row.other) << row.why;
        EXPECT_TRUE(zero != row.other) << row.why;
    }
    EXPECT_TRUE(CIMValue(CIMTYPE_UINT32, false) == CIMValue(CIMTYPE_UINT32, false));
    EXPECT_FALSE(CIMValue(CIMTYPE_UINT32, false) == CIMValue(CIMTYPE_UINT32, true));
    EXPECT_TRUE(CIMValue(ArrayOf<String>({"a", "b"})) == CIMValue(ArrayOf<String>({"a", "b"})));
    EXPECT_FALSE(CIMValue(ArrayOf<String>({"a", "b"})) == CIMValue(ArrayOf<String>({"a", "c"})));
    EXPECT_TRUE(CIMValue(CIMObjectPath("A.k=1")) == CIMValue(CIMObjectPath("a.K=1")));
    EXPECT_TRUE(CIMValue(Char16('x')) == CIMValue(Char16('x')));
}

TEST(PegasusCIMValueGet, AnotherTypeThrowsAndANullLeavesTheArgument) {
    Uint32 number = 5;
    Array<Uint32> numbers;
    const std::string mismatch = "TypeMismatchException: type mismatch";

    CIMValue(CIMTYPE_UINT32, false).get(number);
    EXPECT_EQ(5U, number);
    CIMValue(Uint32(9)).get(number);
    EXPECT_EQ(9U, number);
    EXPECT_EQ(mismatch, Thrown([&] { CIMValue(Sint32(1)).get(number); }));
    EXPECT_EQ(mismatch, Thrown([&] { CIMValue(Uint32(1)).get(numbers); }));
    EXPECT_EQ(mismatch, Thrown([&] { CIMValue(ArrayOf<Uint32>({1})).get(number); }));
    CIMValue(ArrayOf<Uint32>({1, 2})).get(numbers);
    EXPECT_EQ(2U, numbers.size());
}

TEST(PegasusCIMValue, CopiesAreIndependent) {
    CIMValue a(Uint32(1));
    const CIMValue b(a);
    a = CIMValue(Uint32(2));
    EXPECT_EQ("1", Utf8(b.toString()));
}

TEST(PegasusCIMDateTime, OnlyTheTwoShapesAreTaken) {
    for (const char* bad : {"", "2024", "20240229123456.654321", "20240229123456.654321+06x",
                            "20241329123456.654321+060", "20240229993456.654321+060"}) {
        EXPECT_EQ("InvalidDateTimeFormatException: invalid datetime format: " + std::string(bad),
                  Thrown([&] { CIMDateTime date{String(bad)}; }));
    }
    EXPECT_EQ("", Thrown([] { CIMDateTime date(String("2024022912****.******+060")); }));
    EXPECT_EQ("", Thrown([] { CIMDateTime interval(String("00000001020304.000005:000")); }));
}

}  // namespace
