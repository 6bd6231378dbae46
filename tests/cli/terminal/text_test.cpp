// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Text.h"

#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;
using Kemffdc::Clean;
using Kemffdc::ColumnsOf;
using Kemffdc::CutToColumns;
using Kemffdc::CutUtf8;
using Kemffdc::Elapsed;
using Kemffdc::FitToColumns;
using Kemffdc::HumanBytes;
using Kemffdc::ValidUtf8;
using testing::HasSubstr;
using testing::Not;

struct TextRow {
    std::string given;
    std::string expected;
    const char* why;
};

TEST(Clean, NothingThatSteersATerminalIsLeft) {
    const TextRow rows[] = {
        {"plain text", "plain text", "nothing to do"},
        {"Grüße 密码", "Grüße 密码", "other scripts are text"},
        {"a\x1b[2Jb", "a\\x1B[2Jb", "escape"},
        {"a\x07", "a\\x07", "bell"},
        {"one\ntwo\r\n", "one two  ", "line ends are blanks"},
        {"a\xC2\x9B"
         "2J",
         "a\\xC2\\x9B2J", "the eight-bit form of an escape"},
        {"a\xE2\x80\xAE"
         "b",
         "a\\xE2\\x80\\xAEb", "text that runs backwards"},
        {"a\xFF\xC3", "a\\xFF\\xC3", "no UTF-8"},
    };
    for (const TextRow& row : rows) EXPECT_EQ(Clean(row.given), row.expected) << row.why;
}

TEST(Clean, SecretsAreMasked) {
    EXPECT_THAT(Clean("{\"Password\": \"hunter2\"}"), Not(HasSubstr("hunter2")));
    EXPECT_THAT(Clean("X-Auth-Token: abcdef"), Not(HasSubstr("abcdef")));
}

TEST(Clean, LongTextsAreCutOutsideCharacters) {
    EXPECT_EQ(Clean(std::string(400, 'x'), 10), "xxxxxxxxxx...");
    EXPECT_EQ(Clean("xxxü", 4), "xxx...");
}

TEST(ValidUtf8, WhatIsNotWellFormedIsReplaced) {
    const std::string bad = "\xEF\xBF\xBD";
    const TextRow rows[] = {
        {"\xC0\x80", bad + bad, "overlong, two bytes"},
        {"\xE0\x80\x80", bad + bad + bad, "overlong, three bytes"},
        {"\xED\xA0\x80", bad + bad + bad, "half of a surrogate pair"},
        {"\xF4\x90\x80\x80", bad + bad + bad + bad, "beyond the last character"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80", "four bytes"},
        {"\xE2\x82", bad + bad, "cut short"},
    };
    for (const TextRow& row : rows) EXPECT_EQ(ValidUtf8(row.given), row.expected) << row.why;
}

TEST(CutUtf8, NeverCutsInsideACharacter) {
    EXPECT_EQ(CutUtf8("aü", 2), "a");
    EXPECT_EQ(CutUtf8("aü", 3), "aü");
}

TEST(HumanBytes, TakesTheUnitThatFits) {
    EXPECT_EQ(HumanBytes(0), "0 B");
    EXPECT_EQ(HumanBytes(1023), "1023 B");
    EXPECT_EQ(HumanBytes(1024), "1.0 KiB");
    EXPECT_EQ(HumanBytes(1024 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(HumanBytes(13002342), "12.4 MiB");
    EXPECT_EQ(HumanBytes(5ULL << 40), "5.0 TiB");
}

TEST(Elapsed, GrowsAnHourWhenItNeedsOne) {
    EXPECT_EQ(Elapsed(0ms), "0:00");
    EXPECT_EQ(Elapsed(59999ms), "0:59");
    EXPECT_EQ(Elapsed(754s), "12:34");
    EXPECT_EQ(Elapsed(3723s), "1:02:03");
}

struct WidthRow {
    std::string text;
    std::size_t columns;
    const char* why;
};

TEST(ColumnsOf, CountsWhatATerminalShows) {
    const WidthRow rows[] = {
        {"", 0, "nothing"},
        {"bmc001", 6, "ASCII"},
        {"Grüße", 5, "two bytes each, one column"},
        {"密码", 4, "wide characters"},
        {"e\xCC\x81", 1, "an accent that combines"},
        {"\xF0\x9F\x98\x80", 2, "beyond the basic plane"},
        {"a\xFF", 2, "a byte that is no UTF-8 shows as one character"},
    };
    for (const WidthRow& row : rows) EXPECT_EQ(ColumnsOf(row.text), row.columns) << row.why;
}

TEST(CutToColumns, NeverCutsACharacter) {
    EXPECT_EQ(CutToColumns("bmc001", 9), "bmc001");
    EXPECT_EQ(CutToColumns("bmc001", 3), "bmc");
    EXPECT_EQ(CutToColumns("密码", 3), "密");
    EXPECT_EQ(CutToColumns("密码", 1), "");
    EXPECT_EQ(CutToColumns("e\xCC\x81x", 1), "e\xCC\x81");
}

TEST(FitToColumns, FillsUpWithBlanks) {
    EXPECT_EQ(FitToColumns("bmc", 5), "bmc  ");
    EXPECT_EQ(FitToColumns("bmc001", 3), "bmc");
    EXPECT_EQ(FitToColumns("密码", 3), "密 ");
    EXPECT_EQ(FitToColumns("", 2), "  ");
}

}  // namespace
