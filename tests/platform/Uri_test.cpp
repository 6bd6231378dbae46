// SPDX-License-Identifier: Apache-2.0
#include "Uri.h"

#include <stdexcept>

#include "gtest/gtest.h"

namespace {

std::string Address(const std::string& host, const std::string& path) {
    return Uri("https", host, 443, "user", "word", path).str();
}

TEST(UriStr, WritesTheHostAsAUrlNeedsIt) {
    const struct {
        const char* host;
        const char* expected;
        const char* why;
    } rows[] = {
        {"bmc.example", "https://bmc.example:443/", "a name"},
        {"bmc_1", "https://bmc_1:443/", "an underscore"},
        {"192.0.2.1", "https://192.0.2.1:443/", "IPv4"},
        {"::1", "https://[::1]:443/", "bare IPv6"},
        {"[::1]", "https://[::1]:443/", "bracketed IPv6"},
        {"fe80::1%eth0", "https://[fe80::1%25eth0]:443/", "bare with a scope"},
        {"[fe80::1%eth0]", "https://[fe80::1%25eth0]:443/", "bracketed with a scope"},
        {"[fe80::1%25eth0]", "https://[fe80::1%25eth0]:443/", "the scope as a URL writes it"},
        {"fe80::1%3", "https://[fe80::1%253]:443/", "a scope by number"},
        {"fe80::1%25", "https://[fe80::1%2525]:443/", "the interface number 25"},
        {"\xC3\xA4.example", "https://\xC3\xA4.example:443/", "a name in its own script"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.expected, Address(row.host, "/")) << row.why;
}

TEST(UriStr, EncodesWhatAPathCannotHoldAndNothingElse) {
    const struct {
        const char* path;
        const char* expected;
        const char* why;
    } rows[] = {
        {"/ffdc/a.tgz", "/ffdc/a.tgz", "plain"},
        {"", "/", "no path"},
        {"a.tgz", "/a.tgz", "the first slash is missing"},
        {"/a b", "/a%20b", "a blank"},
        {"/a%20b", "/a%20b", "encoded already"},
        {"/a%2Fb%2fc", "/a%2Fb%2fc", "an encoded slash, either case"},
        {"/100%", "/100%25", "a lone percent sign at the end"},
        {"/100%2", "/100%252", "one digit"},
        {"/50%zz", "/50%25zz", "no digits"},
        {"/%%41", "/%25%41", "a percent sign before an escape"},
        {"/a?b#c", "/a%3Fb%23c", "neither query nor fragment"},
        {"/\"<>\\^`{|}", "/%22%3C%3E%5C%5E%60%7B%7C%7D", "what no URL holds"},
        {"/!$&'()*+,;=:@-._~", "/!$&'()*+,;=:@-._~", "what a path may hold"},
        {"/\xC3\xA4", "/%C3%A4", "UTF-8"},
        {"/\x01\x7F\xFF", "/%01%7F%FF", "control bytes and no UTF-8"},
        {"/a\nb", "/a%0Ab", "a line end"},
        {"/a/../b/./c//d", "/a/../b/./c//d", "dots and double slashes stay"},
        {"/[v1]", "/%5Bv1%5D", "brackets"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ("https://h:443" + std::string(row.expected), Address("h", row.path)) << row.why;
    }
}

TEST(UriStr, HoldsNeitherUserNorPassword) {
    const Uri uri("sftp", "h", 115, "admin", "s3cret", "/x");

    EXPECT_EQ("sftp://h:115/x", uri.str());
}

TEST(UriConstructor, KeepsWhatItWasGiven) {
    const Uri uri("sftp", "[::1]", 115, "ad:min", "pa@ss/\n\xC3\xA4", "/a b%20");

    EXPECT_EQ("sftp", uri.scheme());
    EXPECT_EQ("::1", uri.host());
    EXPECT_EQ(115, uri.port());
    EXPECT_EQ("ad:min", uri.user());
    EXPECT_EQ("pa@ss/\n\xC3\xA4", uri.password());
    EXPECT_EQ("/a b%20", uri.path());
}

TEST(UriConstructor, RefusesWhatIsNoAddress) {
    const struct {
        std::string scheme, host, path;
        std::string text;
    } rows[] = {
        {"", "h", "/", "bad scheme \"\""},
        {"1a", "h", "/", "bad scheme \"1a\""},
        {"ht tp", "h", "/", "bad scheme \"ht tp\""},
        {"https:", "h", "/", "bad scheme \"https:\""},
        {"https", "", "/", "bad host \"\""},
        {"https", "a b", "/", "bad host \"a b\""},
        {"https", "a/b", "/", "bad host \"a/b\""},
        {"https", "user@h", "/", "bad host \"user@h\""},
        {"https", "h:22", "/", "bad host \"h:22\""},
        {"https", "h?x", "/", "bad host \"h?x\""},
        {"https", "h#x", "/", "bad host \"h#x\""},
        {"https", "a%20b", "/", "bad host \"a%20b\""},
        {"https", "a\\b", "/", "bad host \"a\\b\""},
        {"https", "a\nb", "/", "bad host \"a\nb\""},
        {"https", std::string("a\0b", 3), "/", std::string("bad host \"a\0b\"", 14)},
        {"https", "[]", "/", "bad host \"[]\""},
        {"https", "[h]", "/", "bad host \"[h]\""},
        {"https", "[192.0.2.1]", "/", "bad host \"[192.0.2.1]\""},
        {"https", "[::1", "/", "bad host \"[::1\""},
        {"https", "::1]", "/", "bad host \"::1]\""},
        {"https", "[[::1]]", "/", "bad host \"[[::1]]\""},
        {"https", "h", std::string("/a\0b", 4), "NUL byte in the path"},
    };
    for (const auto& row : rows) {
        try {
            const Uri uri(row.scheme, row.host, 443, "", "", row.path);
            ADD_FAILURE() << "accepted: " << uri.str();
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(row.text.c_str(), error.what());
        }
    }
}

TEST(UriSetPath, RefusesANulByteAndKeepsThePath) {
    Uri uri("https", "h", 443, "", "", "/old");

    EXPECT_THROW(uri.set_path(std::string("/\0", 2)), std::invalid_argument);

    EXPECT_EQ("/old", uri.path());
}

TEST(UriSetQuery, StandsBehindThePathAndIsEncodedWhereItMustBe) {
    const struct {
        const char* query;
        const char* expected;
        const char* why;
    } rows[] = {
        {"", "https://h:443/a%3Fb", "none: the one of the path is no query's"},
        {"id=7&part=core.bin", "https://h:443/a%3Fb?id=7&part=core.bin", "plain"},
        {"$filter=a/b?c", "https://h:443/a%3Fb?$filter=a/b?c", "what a query may hold"},
        {"x=%20 #", "https://h:443/a%3Fb?x=%20%20%23", "encoded, a blank, no fragment"},
    };
    for (const auto& row : rows) {
        Uri uri("https", "h", 443, "", "", "/a?b");
        uri.set_query(row.query);
        EXPECT_EQ(row.expected, uri.str()) << row.why;
        EXPECT_EQ(row.query, uri.query()) << row.why;
        EXPECT_EQ("/a?b", uri.path()) << row.why;
        EXPECT_EQ(uri.str(), Uri(uri).str()) << row.why;
    }
}

TEST(UriSetQuery, RefusesANulByteAndKeepsTheQuery) {
    Uri uri("https", "h", 443, "", "", "/");
    uri.set_query("old");

    EXPECT_THROW(uri.set_query(std::string("\0", 1)), std::invalid_argument);

    EXPECT_EQ("old", uri.query());
}

TEST(UriCopy, IsAValueOfItsOwn) {
    Uri original("sftp", "h", 115, "a", "b", "/1");
    Uri copy(original);
    Uri assigned("https", "x", 1, "", "", "");
    assigned = original;

    original.set_path("/2");
    original.set_auth("c", "d");

    EXPECT_EQ("/1", copy.path());
    EXPECT_EQ("a", copy.user());
    EXPECT_EQ("sftp://h:115/1", assigned.str());
    EXPECT_EQ("b", assigned.password());
    EXPECT_EQ("sftp://h:115/2", original.str());
    EXPECT_EQ("c", original.user());
    EXPECT_EQ("d", original.password());
    const Uri moved(std::move(copy));
    EXPECT_EQ("sftp://h:115/1", moved.str());
}

TEST(UriJoinPath, PutsExactlyOneSlashBetween) {
    const struct {
        const char *folder, *name, *expected;
    } rows[] = {
        {"/download/ffdc/", "a.tgz", "/download/ffdc/a.tgz"},
        {"/download/ffdc", "a.tgz", "/download/ffdc/a.tgz"},
        {"/download/ffdc//", "//a.tgz", "/download/ffdc/a.tgz"},
        {"/", "a", "/a"},
        {"", "a", "/a"},
        {"/f", "", "/f/"},
        {"f", "a/b", "f/a/b"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, Uri::join_path(row.folder, row.name)) << row.folder << row.name;
    }
}

TEST(UriJoinPath, ANameThatLooksEncodedMeansItself) {
    EXPECT_EQ("/f/a%2541b", Uri::join_path("/f", "a%41b"));
    EXPECT_EQ("/f/100%", Uri::join_path("/f", "100%"));
    EXPECT_EQ("sftp://h:115/f/a%2541b%25zz",
              Uri("sftp", "h", 115, "", "", Uri::join_path("/f", "a%41b%zz")).str());
}

TEST(UriEncodeURI, EncodesAllButTheUnreservedBytes) {
    EXPECT_EQ("", Uri::encodeURI(""));
    EXPECT_EQ("AZaz09-._~", Uri::encodeURI("AZaz09-._~"));
    EXPECT_EQ(
        "%20%21%22%23%24%25%26%27%28%29%2A%2B%2C%2F%3A%3B%3C%3D%3E%3F%40%5B%5C%5D%5E%60%7B%7C%7D",
        Uri::encodeURI(" !\"#$%&'()*+,/:;<=>?@[\\]^`{|}"));
    EXPECT_EQ("%41%C3%A4%00%0A%7F%FF",
              "%41" + Uri::encodeURI(std::string("\xC3\xA4\0\n\x7F\xFF", 6)));
    EXPECT_EQ("%2541", Uri::encodeURI("%41"));
}

}  // namespace
