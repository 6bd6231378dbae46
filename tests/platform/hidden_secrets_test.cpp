// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <functional>
#include <random>
#include <vector>

#include "Log.h"
#include "LogSink.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "support/TempFolder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Varnex::HideInLog;
using Varnex::MaskedForDisplay;
using Varnex::WithoutHiddenSecrets;

#define M "**********"

struct Row {
    const char *text, *expected, *why;
};

void ExpectMasked(const std::vector<Row>& rows) {
    for (const Row& row : rows) EXPECT_EQ(row.expected, WithoutHiddenSecrets(row.text)) << row.why;
}

TEST(HideInLogTest, MasksASecretInEveryFormOfABody) {
    HideInLog("P@ss/w\"rd");

    ExpectMasked({
        {"a P@ss/w\"rd b", "a " M " b", "as it is"},
        {"xP@ss/w\"rdx", "x" M "x", "in a word"},
        {"P@ss/w\"rdP@ss/w\"rd", M, "twice, touching"},
        {R"("P@ss/w\"rd")", R"(")" M R"(")", "JSON"},
        {R"("P@ss\/w\"rd")", R"(")" M R"(")", "JSON with the slash escaped"},
        {R"("P\u0040ss\u002fw\u0022rd")", R"(")" M R"(")", "JSON by number"},
        {R"("P\u0040ss\u002Fw\u0022rd")", R"(")" M R"(")", "with upper-case digits"},
        {R"({\"a\":\"P@ss\\\/w\\\"rd\"})", R"({\"a\":\")" M R"(\"})", "JSON in JSON"},
        {R"({\\\"a\\\":\\\"P@ss/w\\\\\\\"rd\\\"})", R"({\\\"a\\\":\\\")" M R"(\\\"})",
         "and once more"},
        {"P%40ss%2Fw%22rd", M, "percent"},
        {"P%40ss%2fw%22rd", M, "percent in lower case"},
        {"u=%50%40%73%73%2F%77%22%72%64&", "u=" M "&", "percent throughout"},
        {"P%2540ss%252Fw%2522rd", M, "percent twice"},
        {"P@ss/w&quot;rd", M, "XML"},
        {"P&#64;ss&#x2f;w&#x22;rd", M, "XML by number"},
        {"P&#00064;ss&#X2F;w&quot;rd", M, "XML by number, other spellings"},
        {"P@ss/w&amp;quot;rd", M, "XML in XML"},
        {R"("P@ss/w\u0026quot;rd")", R"(")" M R"(")", "XML in JSON"},
        {"P@ss/w%5C%22rd", M, "JSON, then percent"},
        {"UEBzcy93InJk", M, "base64"},
        {R"(UEBzcy93InJk)", M, "base64"},
        {"cm9vdDpQQHNzL3cicmQ=", "cm9vdD" M "=", "base64 of root:secret"},
        {"YWRtaW46UEBzcy93InJk", "YWRtaW46" M, "base64 of admin:secret"},
        {"YWE6UEBzcy93InJkOmI=", "YWE6" M "OmI=", "base64, more behind it"},
        {"504073732f77227264", M, "hexadecimal"},
        {"504073732F77227264", M, "hexadecimal in upper case"},
        {"50 40 73 73 2f 77 22 72 64", M, "hexadecimal, as dumps write it"},
        {"50:40:73:73:2F:77:22:72:64", M, "hexadecimal with colons"},
        {R"(\x50\x40ss\x2f\x77\x22rd)", M, "bytes by number"},
        {"P@ss/w", "P@ss/w", "a part"},
        {"p@ss/w\"rd", "p@ss/w\"rd", "letter case"},
        {"P%40ss%2Fw%22r", "P%40ss%2Fw%22r", "a part, escaped"},
        {"100% \\ & P@ss/w\"rd &;%4", "100% \\ & " M " &;%4", "what only looks like escapes"},
        {"", "", "nothing"},
    });
}

TEST(HideInLogTest, MasksASecretThatEndsAsAnEscapeBegins) {
    HideInLog("abcdefgh\\x");
    HideInLog("ijklmnop\\xA");
    HideInLog("qrstuvwx\\u00");

    ExpectMasked({
        {R"([abcdefgh\x])", "[" M "]", "as it is"},
        {R"([abcdefgh\\x])", "[" M "]", "JSON"},
        {R"([abcdefgh\\\\x])", "[" M "]", "JSON in JSON"},
        {R"([ijklmnop\\xA])", "[" M "]", "JSON, a digit more"},
        {R"([qrstuvwx\\u00])", "[" M "]", "JSON, by number"},
    });
}

TEST(HideInLogTest, MasksSecretsWithOtherBytes) {
    HideInLog("gr\xC3\xBC\xC3\x9F\xF0\x9F\x98\x80");
    HideInLog("caf\xE9!");
    HideInLog("a%41\\n&lt;b");
    HideInLog("two words");
    HideInLog(">>>???ab");

    ExpectMasked({
        {R"(gr\u00fc\u00df\ud83d\ude00)", M, "code points, surrogates"},
        {"gr%C3%BC%C3%9F%F0%9F%98%80", M, "percent"},
        {"gr&#252;&#xDF;&#x1F600;", M, "XML by number"},
        {"gr\xC3\x83\xC2\xBC\xC3\x83\xC2\x9F\xC3\xB0\xC2\x9F\xC2\x98\xC2\x80", M,
         "taken for Latin-1"},
        {"caf\xC3\xA9!", M, "Latin-1 as UTF-8"},
        {R"(caf\u00e9!)", M, "and escaped"},
        {"a%41\\n&lt;b", M, "one that looks escaped"},
        {"a%2541%5Cn%26lt%3Bb", M, "the same by percent"},
        {R"(a%41\\n&lt;b)", M, "by JSON"},
        {"a%41\\n&amp;lt;b", M, "by XML"},
        {"two+words", M, "a form's blank"},
        {"two%20words", M, "percent"},
        {"Pj4+Pz8/YWI=", M "=", "base64 with its signs"},
        {"Pj4-Pz8_YWI=", M "=", "base64url"},
        {R"(Pj4+Pz8\/YWI=)", M "=", "base64 in JSON"},
        {"Pj4%2BPz8%2FYWI%3D", M "%3D", "base64 in an address"},
    });
}

TEST(HideInLogTest, MasksAShortSecretAsAWordOfItsOwn) {
    HideInLog("abc", "root");
    HideInLog("x");

    ExpectMasked({
        {"abc", M, "alone"},
        {"is abc.", "is " M ".", "in a sentence"},
        {R"({"V":"abc"})", R"({"V":")" M R"("})", "in JSON"},
        {R"({\"V\":\"a\u0062c\"})", R"({\"V\":\")" M R"(\"})", "escaped"},
        {"%22abc%22", "%22" M "%22", "between escapes"},
        {"v=%61%62%63", "v=" M, "percent"},
        {"abcd zabc abc_ 1abc \xC3\xA9"
         "abc",
         "abcd zabc abc_ 1abc \xC3\xA9"
         "abc",
         "a part of a word"},
        {"abc abcd abc", M " abcd " M, "both"},
        {"Basic cm9vdDphYmM=", "Basic " M, "as HTTP sends it"},
        {"YWJj xYWJj", M " xYWJj", "base64"},
        {"616263 0616263", M " 0616263", "hexadecimal"},
        {"x=xx 78 eA==", M "=xx 78 eA==", "one letter, and its own forms are too common"},
    });
}

TEST(HideInLogTest, HoldsForRecordsInAFileAndNotForSinks) {
    class Kept : public Varnex::LogSink {
    public:
        void Receive(const Varnex::LogRecord& record) override { text = record.text; }
        std::string text;
    } sink;
    const TempFolder folder;
    std::string error;
    ASSERT_TRUE(Varnex::SetLogFile(folder / "log", error)) << error;
    Varnex::SetLogLevel(4);
    Varnex::AddLogSink(&sink);
    HideInLog("opensesame");

    Log(4, "source", 1).Stream() << "{\"echo\":\"b3BlbnNlc2FtZQ==\"}";
    Varnex::RemoveLogSink(&sink);
    HideInLog("");
    Log(4, "source", 2).Stream() << "and opensesam";

    EXPECT_EQ("{\"echo\":\"b3BlbnNlc2FtZQ==\"}", sink.text);
    EXPECT_THAT(Content(folder / "log"), HasSubstr("source:1 {\"echo\":\"" M "==\"}\n"));
    EXPECT_THAT(Content(folder / "log"), HasSubstr("source:2 and opensesam\n"));
}

TEST(HideInLogTest, HoldsForRecordsOfManyMegabytes) {
    const TempFolder folder;
    std::string error;
    ASSERT_TRUE(Varnex::SetLogFile(folder / "log", error)) << error;
    Varnex::SetLogLevel(4);
    HideInLog("opensesame");
    const std::string filler(8000000, '\x01');

    Log(4, "source", 1).Stream() << filler << " opensesame\n" << filler;

    std::string expected = "\\x01";
    while (expected.size() < 4 * filler.size()) expected += expected;
    expected.resize(4 * filler.size());
    const std::string line = Content(folder / "log");
    const std::string text = "source:1 " + expected + " " M "\\x0A" + expected + "\n";
    EXPECT_TRUE(line.size() > text.size() &&
                line.compare(line.size() - text.size(), text.size(), text) == 0);
}

TEST(HideInLogTest, GoesWithTheOtherMasks) {
    HideInLog("opensesame");

    EXPECT_EQ("X-Auth-Token: " M "\\x0A" M "\\x0A",
              MaskedForDisplay("X-Auth-Token: a opensesame b\nopensesame\n"));
    EXPECT_EQ(R"({"Password":")" M R"("} )" M,
              MaskedForDisplay(R"({"Password":"opensesame"} open\u0073esame)"));
}

// Coders of the test's own.
constexpr char kUpper[] = "0123456789ABCDEF";

std::string Numbered(const std::string& bytes, const char* before, unsigned base, int digits,
                     const char* behind = "", const char* names = "0123456789abcdef") {
    std::string out;
    for (const char c : bytes) {
        std::string number;
        for (unsigned left = static_cast<unsigned char>(c); left > 0; left /= base) {
            number.insert(number.begin(), names[left % base]);
        }
        number.insert(
            0, static_cast<std::size_t>(std::max(0, digits - static_cast<int>(number.size()))),
            '0');
        out += before + number + behind;
    }
    return out;
}

std::string Base64(const std::string& bytes) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6) out += digits[bits >> (count - 6) & 63];
    }
    if (count > 0) out += digits[bits << (6 - count) & 63];
    return out.append((4 - out.size() % 4) % 4, '=');
}

std::string Escaped(const std::string& bytes, const std::string& special,
                    const std::function<std::string(char)>& escape) {
    std::string out;
    for (const char c : bytes) {
        out += special.find(c) == std::string::npos ? std::string(1, c) : escape(c);
    }
    return out;
}

using Coder = std::function<std::string(const std::string&)>;

const std::vector<Coder>& Escapes() {
    static const std::vector<Coder> all = {
        [](const std::string& s) { return s; },
        [](const std::string& s) { return Numbered(s, "%", 16, 2, "", kUpper); },
        [](const std::string& s) { return Numbered(s, "%", 16, 2); },
        [](const std::string& s) { return Numbered(s, "\\u", 16, 4); },
        [](const std::string& s) { return Numbered(s, "&#", 10, 1, ";"); },
        [](const std::string& s) { return Numbered(s, "&#x", 16, 1, ";"); },
        [](const std::string& s) {
            return Escaped(s, "\"\\/", [](char c) { return std::string("\\") + c; });
        },
        [](const std::string& s) {
            return Escaped(s, " %/?#&+=:\"\\<>'", [](char c) {
                return Numbered(std::string(1, c), "%", 16, 2, "", kUpper);
            });
        },
        [](const std::string& s) {
            return Escaped(s, "&<>\"'", [](char c) {
                return c == '&'   ? "&amp;"
                       : c == '<' ? "&lt;"
                       : c == '>' ? "&gt;"
                       : c == '"' ? "&quot;"
                                  : "&apos;";
            });
        },
    };
    return all;
}

// What is left of `text` once the mask is taken for nothing; the text around is of other letters.
TEST(HideInLogTest, NoCombinationOfTwoCodersShowsARandomSecret) {
    std::mt19937 random(20261121);
    const std::string letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
    const auto any = [&](std::size_t count) { return random() % count; };
    std::vector<std::string> secrets;
    for (int i = 0; i < 40; ++i) {
        std::string secret;
        for (std::size_t size = 6 + any(14); size > 0; --size)
            secret += letters[any(letters.size())];
        secrets.push_back(secret);
        HideInLog(secret);
    }
    const std::vector<Coder> inner = {
        [](const std::string& s) { return s; },
        [](const std::string& s) { return Base64(s); },
        [](const std::string& s) { return Base64("u:" + s); },
        [](const std::string& s) { return Base64("xx:" + s); },
        [](const std::string& s) { return Base64("abc:" + s + ":d"); },
        [](const std::string& s) { return Numbered(s, "", 16, 2); },
        [](const std::string& s) { return Numbered(s, "", 16, 2, "", kUpper); },
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string& secret = secrets[any(secrets.size())];
        const std::string coded = inner[any(inner.size())](secret);
        const std::string outer =
            Escapes()[any(Escapes().size())](Escapes()[any(Escapes().size())](coded));
        const std::string shown = WithoutHiddenSecrets("<<" + outer + ">>");
        ASSERT_THAT(shown, HasSubstr(M)) << "secret " << secret << " as " << outer;
        ASSERT_THAT(shown, Not(HasSubstr(outer))) << secret;
    }
}

double Seconds(const std::string& text) {
    const std::clock_t start = std::clock();  // of the processor: others use it, too
    MaskedForDisplay(text);
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

std::string Repeated(const std::string& piece, std::size_t size) {
    std::string text;
    while (text.size() < size) text += piece;
    return text;
}

TEST(HideInLogTest, TakesTimeInProportionToTheLength) {
    HideInLog(Repeated("a", 5000) + "b");
    HideInLog(Repeated("\\", 300));
    HideInLog(Repeated("%25", 300));
    HideInLog("aa");
    for (const char* piece : {"a", "aa ", "a%61", "%", "%25", "\\", "\\u", "\\u0061", "&", "&#",
                              "&#9;", "&amp;", "\\ud83d", "YWFh", "61", "61 ", "x"}) {
        const double small = Seconds(Repeated(piece, 1 << 15));
        const double large = Seconds(Repeated(piece, 1 << 18));
        EXPECT_LT(large, 30 * small + 0.5) << piece;
    }
}

}  // namespace
