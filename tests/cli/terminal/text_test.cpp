// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Text.h"

#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;
using Kemffdc::Clean;
using Kemffdc::CutUtf8;
using Kemffdc::Elapsed;
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

}  // namespace
