// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Requests.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Kemffdc::Cim::CimLogin;

struct CredentialRow {
    const char* user;
    const char* password;
    const char* value;
    const char* why;
};

TEST(CimLogin, SendsOneByteForEachCharacterAsTheLibraryDoes) {
    const CredentialRow rows[] = {
        {"admin", "secret", "Basic YWRtaW46c2VjcmV0", "ASCII"},
        {"admin", "", "Basic YWRtaW46", "an empty password"},
        {"u", "\xC3\xA9", "Basic dTrp", "Latin-1: E9"},
        {"u", "\xE5\xAF\x86", "Basic dTrG", "U+5BC6: its low byte"},
        {"u", "\xF0\x9F\x98\x80", "Basic dTo9AA==", "U+1F600: the low bytes of D83D and DE00"},
        {"u", "\xE9", "Basic dTrp", "no valid UTF-8: the byte itself"},
    };
    for (const CredentialRow& row : rows) {
        EXPECT_EQ(CimLogin(row.user, row.password).header.Reveal(),
                  std::string("Authorization: ") + row.value)
            << row.why;
    }
}

TEST(IsBasicChallenge, WantsTheSchemeSpelledSoAndARealmInQuotes) {
    EXPECT_TRUE(Kemffdc::Cim::IsBasicChallenge("Basic realm=\"bmc\""));
    EXPECT_TRUE(Kemffdc::Cim::IsBasicChallenge("Basic realm=\"\", charset=\"UTF-8\""));
    for (const char* challenge : {"", "Basic", "basic realm=\"bmc\"", "Basic realm=bmc",
                                  "Digest realm=\"bmc\"", "Basic realm=\"bmc"}) {
        EXPECT_FALSE(Kemffdc::Cim::IsBasicChallenge(challenge)) << challenge;
    }
}

TEST(CimHeader, MayHaveThePrefixThatManTells) {
    Kemffdc::Answer answer;
    answer.headers = {{"man", "http://www.dmtf.org/cim/mapping/http/v1.0;ns=73"},
                      {"73-cimerror", "unsupported-operation"},
                      {"pgerrordetail", "no"}};
    EXPECT_EQ(Kemffdc::Cim::CimHeader(answer, "cimerror"), "unsupported-operation");
    EXPECT_EQ(Kemffdc::Cim::CimHeader(answer, "pgerrordetail"), "no");
    EXPECT_EQ(Kemffdc::Cim::CimHeader(answer, "cimoperation"), "");
}

}  // namespace
