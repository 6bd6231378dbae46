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
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf("]][")) << "nor make one";
}

TEST(ReadJson, SixteenMebibytesAreReadAndOneByteMoreRefused) {
    const std::size_t limit = 16 * 1024 * 1024;
    EXPECT_EQ(limit - 2, ReadJson("\"" + std::string(limit - 2, 'x') + "\"").data().size());
    EXPECT_EQ("<unspecified file>: more than 16777216 bytes",
              RefusalOf("\"" + std::string(limit - 1, 'x') + "\""));
}

TEST(ReadJson, SixtyFourKibiValuesAreReadAndOneMoreRefused) {
    struct {
        std::string open, value, close;
        std::size_t most;  // beside the array or object itself
        const char* why;
    } const rows[] = {
        {"[", "0", "]", 65535, "numbers"},
        {"[", "{}", "]", 65535, "empty objects"},
        {"[", "[ ]", "]", 65535, "empty arrays"},
        {"[ ", " \"a,[\\\"{,\" ", " ]", 65535, "strings"},
        {"{", "\"a\":0", "}", 65535, "members; their names do not count"},
        {"[", "[0]", "]", 32767, "arrays of one: two values each"},
        {"[", "{\"a\":{}}", "]", 32767, "objects of one: two values each"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        std::string text = row.open + row.value;
        for (std::size_t i = 1; i < row.most; ++i) text.append(",").append(row.value);

        EXPECT_EQ(row.most, ReadJson(text + row.close).size());
        const std::string oneMore = text + "," + row.value + row.close;
        EXPECT_EQ("<unspecified file>: more than 65536 values", RefusalOf(oneMore));
    }
}

TEST(ReadJson, ValuesOfAllLevelsCountTogether) {
    std::string text = "[[0]";
    for (int i = 0; i < 65533; ++i) text += ",0";
    EXPECT_NO_THROW(ReadJson(text + "]"));
    EXPECT_EQ("<unspecified file>: more than 65536 values", RefusalOf(text + ",0]"));
}

TEST(ReadJson, TextThatIsNoJsonIsRefusedWithTheReadersText) {
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf(""));
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf("<html>"));
    EXPECT_EQ("<unspecified file>(1): garbage after data", RefusalOf("{} {}"));
    EXPECT_EQ("<unspecified file>(1): expected value", RefusalOf(std::string("\0", 1)));
}
