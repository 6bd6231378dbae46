// SPDX-License-Identifier: Apache-2.0
//
// The helpers that platform and tool share.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "shared/Base64.h"
#include "shared/FileDescriptor.h"
#include "shared/Hex.h"
#include "shared/HostName.h"
#include "shared/Percent.h"
#include "shared/Utf8.h"

namespace {

using std::string_literals::operator""s;

TEST(SharedBase64, GoesThereAndBack) {
    const struct {
        std::string bytes, text;
    } rows[] = {
        {"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\0\xFF\xFE"s, "AP/+"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.text, shared::ToBase64(row.bytes));
        EXPECT_EQ(row.bytes, shared::FromBase64(row.text));
    }
    for (const char* text : {"Zg", "Zg=", "Z===", "====", "Zm9v*mFy", "="}) {
        EXPECT_EQ("", shared::FromBase64(text)) << text;
    }
}

TEST(SharedHex, HasTwoDigitsForEachByte) {
    EXPECT_EQ("00ff7a", shared::ToHex("\0\xFFz"s));
    EXPECT_EQ("00:FF:7A", shared::ToHex("\0\xFFz"s, shared::kUpperDigits, ":"));
    EXPECT_EQ(10, shared::HexValue('a'));
    EXPECT_EQ(15, shared::HexValue('F'));
    for (const char c : {'g', '/', ':', '@', '`', '\0', '\xFF'}) {
        EXPECT_EQ(-1, shared::HexValue(c)) << c;
    }
}

TEST(SharedPercent, DecodesWhatIsEncodedAndLeavesTheRest) {
    const struct {
        std::string text, bytes;
    } rows[] = {
        {"a%20b%2f%2F", "a b//"}, {"100%", "100%"}, {"%4", "%4"},     {"%zz%41", "%zzA"},
        {"%%41", "%A"},           {"%00", "\0"s},   {"%2541", "%41"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.bytes, shared::PercentDecoded(row.text));
    EXPECT_EQ("a%2F%FF%00", shared::PercentEncoded("a/\xFF\0"s, [](char c) { return c == 'a'; }));
}

TEST(SharedUtf8, KnowsWellFormedCharacters) {
    const struct {
        std::string text;
        std::size_t length;
        char32_t code;
    } rows[] = {
        {"a", 1, U'a'},
        {"\0"s, 1, 0},
        {"\xC3\xA4x", 2, 0xE4},
        {"\xE2\x82\xAC", 3, 0x20AC},
        {"\xF0\x9F\x98\x80", 4, 0x1F600},
        {"\xF4\x8F\xBF\xBF", 4, 0x10FFFF},
        {"\xC0\x80", 0, 0},          // too long
        {"\xE0\x80\x80", 0, 0},      // too long
        {"\xED\xA0\x80", 0, 0},      // half of a pair
        {"\xF4\x90\x80\x80", 0, 0},  // beyond all characters
        {"\x80", 0, 0},
        {"\xFF", 0, 0},
        {"\xC3", 0, 0},      // cut
        {"\xC3(", 0, 0},     // cut by another
        {"\xE2\x82", 0, 0},  // cut
    };
    for (const auto& row : rows) {
        const auto [length, code] = shared::FirstUtf8(row.text);
        EXPECT_EQ(row.length, length) << testing::PrintToString(row.text);
        EXPECT_EQ(row.code, code);
        if (length == 0) continue;
        std::string written;
        shared::AppendUtf8(written, code);
        EXPECT_EQ(row.text.substr(0, length), written);
    }
}

TEST(SharedHostName, BracketsStandAroundAddressesAlone) {
    const struct {
        std::string host, plain, withPort;
    } rows[] = {
        {"bmc.example", "bmc.example", "bmc.example:1"},
        {"192.0.2.1", "192.0.2.1", "192.0.2.1:1"},
        {"fe80::1%eth0", "fe80::1%eth0", "[fe80::1%eth0]:1"},
        {"[::1]", "::1", "[::1]:1"},
        {"[]", "[]", "[]:1"},
        {"", "", ":1"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.plain, shared::WithoutBrackets(row.host));
        EXPECT_EQ(row.withPort, shared::HostAndPort(row.host, 1));
    }
}

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

TEST(SharedFileDescriptor, ClosesWhatItOwnsOnce) {
    int number = -1;
    {
        shared::FileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        number = file.Get();
        shared::FileDescriptor other = std::move(file);
        EXPECT_FALSE(file.IsOpen());  // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(IsOpen(number));
        other = shared::FileDescriptor(open("/dev/zero", O_RDONLY | O_CLOEXEC));
        EXPECT_NE(number, other.Get());
        EXPECT_FALSE(IsOpen(number));
        number = other.Get();
    }
    EXPECT_FALSE(IsOpen(number));

    shared::FileDescriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
    number = file.Release();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(IsOpen(number));
    shared::FileDescriptor again(number);
    EXPECT_EQ(0, again.Close());
    EXPECT_EQ(0, again.Close());
    shared::FileDescriptor bad(number);
    EXPECT_EQ(-1, bad.Close());
    EXPECT_EQ(EBADF, errno);
}

}  // namespace
