// SPDX-License-Identifier: Apache-2.0
#include "common/json_reading.h"

#include <gtest/gtest.h>

#include <boost/property_tree/json_parser.hpp>

namespace {

std::string Nested(std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

std::string RefusalOf(const std::string& text) {
    try {
        ReadJson(text);
    } catch (const boost::property_tree::json_parser_error& failure) {
        return failure.what();
    }
    return "nothing was thrown";
}

}  // namespace

TEST(ReadJson, ReadsObjectsWithStringsNumbersAndNestedObjects) {
    const auto json = ReadJson(R"({"Id":"42","Count":7,"Oem":{"Tavrin":{}}})");

    EXPECT_EQ("42", FindMember(json, "Id")->data());
    EXPECT_EQ("7", FindMember(json, "Count")->data());
    EXPECT_NE(nullptr, FindMember(*FindMember(json, "Oem"), "Tavrin"));
    EXPECT_EQ(nullptr, FindMember(json, "id"));
}

TEST(ReadJson, ADotInANameIsPartOfTheName) {
    const auto json = ReadJson(R"({"a.b":"1","c":{"d":"2"}})");

    EXPECT_EQ("1", FindMember(json, "a.b")->data());
    EXPECT_EQ(nullptr, FindMember(json, "c.d"));
}

TEST(ReadJson, UnescapesStrings) {
    EXPECT_EQ("\"\\/\n\xC3\xA9", ReadJson(R"("\"\\\/\n\u00e9")").data());
}

TEST(ReadJson, FiveHundredAndTwelveLevelsAreReadAndOneMoreRefused) {
    EXPECT_NO_THROW(ReadJson(Nested(512)));
    EXPECT_EQ("<unspecified file>: more than 512 nested levels", RefusalOf(Nested(513)));
}

TEST(ReadJson, AHundredThousandNestedBracketsAreRefusedAndDoNotOverflowTheStack) {
    EXPECT_EQ("<unspecified file>: more than 512 nested levels",
              RefusalOf(std::string(100000, '[')));
    EXPECT_EQ("<unspecified file>: more than 512 nested levels", RefusalOf(Nested(100000)));
    std::string objects;
    for (int i = 0; i < 100000; ++i) objects += "{\"a\":";
    EXPECT_EQ("<unspecified file>: more than 512 nested levels", RefusalOf(objects));
}

TEST(ReadJson, BracketsInStringsDoNotNest) {
    EXPECT_NO_THROW(ReadJson("\"" + std::string(1000, '[') + "\""));
    EXPECT_NO_THROW(ReadJson("\"\\\"" + std::string(1000, '{') + "\""));
}

TEST(ReadJson, ClosingBracketsAheadDoNotHideANesting) {
    EXPECT_EQ("<unspecified file>: more than 512 nested levels",
              RefusalOf(std::string(600, ']') + std::string(100000, '[')));
}

TEST(ReadJson, SixteenMebibytesAreReadAndOneByteMoreRefused) {
    const std::size_t limit = 16 * 1024 * 1024;
    EXPECT_EQ(limit - 2, ReadJson("\"" + std::string(limit - 2, 'x') + "\"").data().size());
    EXPECT_EQ("<unspecified file>: more than 16777216 bytes",
              RefusalOf("\"" + std::string(limit - 1, 'x') + "\""));
}

TEST(ReadJson, TextThatIsNoJsonIsRefusedWithTheReadersText) {
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf(""));
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf("<html>"));
    EXPECT_EQ("<unspecified file>(1): garbage after data", RefusalOf("{} {}"));
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf(std::string("\0", 1)));
}
