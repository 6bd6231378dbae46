// SPDX-License-Identifier: Apache-2.0
#include "cli/http/CertificateJudge.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace {

using Kemffdc::Certificate;
using Kemffdc::CertificateJudge;
using Kemffdc::CertificateTrust;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

Certificate WithDigits(char digit) {
    Certificate certificate;
    for (int i = 0; i < 32; ++i)
        certificate.sha256 += std::string(i == 0 ? "" : ":") + digit + digit;
    return certificate;
}

const Certificate kOwn = WithDigits('A');
const Certificate kOther = WithDigits('B');

class CertificateJudgeTest : public testing::Test, public CertificateJudge::Audience {
protected:
    CertificateJudgeTest() {
        options.host = "bmc7.example";
        options.stateDir = folder / "state";
    }

    void Trusted(CertificateTrust how) override { trusts.push_back(how); }
    void Noted(const std::string& sentence) override { notes.push_back(sentence); }

    // A run, and what it says to a certificate on a port.
    std::string Judged(const Certificate& shown, std::uint16_t port = 443) {
        CertificateJudge judge(options, *this);
        return judge.AsTrust().judge(port, shown);
    }
    std::string Known() const { return Content(options.stateDir + "/known_bmcs"); }

    const TempFolder folder;
    Kemffdc::Options options;
    std::vector<CertificateTrust> trusts;
    std::vector<std::string> notes;
};

TEST_F(CertificateJudgeTest, TakesTheFirstOneAndRefusesAnotherInTheNextRun) {
    EXPECT_EQ(Judged(kOwn), "");
    EXPECT_THAT(notes, ElementsAre("The certificate of bmc7.example port 443, SHA-256 " +
                                   kOwn.sha256 + ", is new, is accepted and remembered in " +
                                   options.stateDir + "/known_bmcs."));

    EXPECT_EQ(Judged(kOwn), "");
    EXPECT_EQ(Judged(kOther),
              "The certificate of bmc7.example port 443 is not the one that is known (" +
                  options.stateDir + "/known_bmcs, line 2). It has SHA-256 " + kOther.sha256 +
                  ". The password was not sent. Somebody may be in the BMC's place. If the BMC has "
                  "a new certificate, compare with its own and use --accept-new-certificate.");

    EXPECT_EQ(notes.size(), 1U);
    EXPECT_THAT(trusts, ElementsAre(CertificateTrust::kFirstUse, CertificateTrust::kKnown));
}

TEST_F(CertificateJudgeTest, AnotherPortIsAnotherBmc) {
    EXPECT_EQ(Judged(kOwn, 443), "");
    EXPECT_EQ(Judged(kOther, 5989), "");
    EXPECT_THAT(Judged(kOther, 443), HasSubstr("is not the one that is known"));
}

TEST_F(CertificateJudgeTest, WhatThisRunHasTakenHoldsForIt) {
    options.acceptNewCertificate = true;
    CertificateJudge judge(options, *this);
    const Kemffdc::Trust trust = judge.AsTrust();

    EXPECT_EQ(trust.judge(443, kOwn), "");
    EXPECT_EQ(trust.judge(443, kOther),
              "The certificate of bmc7.example port 443 was in order at the beginning and is not "
              "any more. It has SHA-256 " +
                  kOther.sha256 +
                  ". Somebody else may answer there: if the password may have gone to him, change "
                  "it.");
    EXPECT_EQ(trust.judge(443, kOwn), "");
    EXPECT_THAT(trusts, ElementsAre(CertificateTrust::kFirstUse));
}

TEST_F(CertificateJudgeTest, AnyOfSeveralThatAreKnownWillDo) {
    ASSERT_EQ(Judged(kOwn), "");
    const TempFolder edited;
    edited.Write("known_bmcs", "bmc7.example:443 SHA256:" + kOwn.sha256 +
                                   "\nbmc7.example:443 SHA256:" + kOther.sha256 + "\n");
    options.stateDir = edited.Path();
    CertificateJudge judge(options, *this);
    EXPECT_EQ(judge.AsTrust().judge(443, kOther), "");
    EXPECT_EQ(judge.AsTrust().judge(443, kOwn), "");
}

TEST_F(CertificateJudgeTest, ANewOneTakesTheOldOnesPlaceWhereAskedTo) {
    ASSERT_EQ(Judged(kOwn), "");
    options.acceptNewCertificate = true;
    EXPECT_EQ(Judged(kOther), "");
    EXPECT_THAT(notes.back(), HasSubstr("is accepted in the place of the one that was known in "));
    EXPECT_EQ(trusts.back(), CertificateTrust::kReplaced);
    EXPECT_THAT(Known(), HasSubstr(kOther.sha256));

    options.acceptNewCertificate = false;
    EXPECT_THAT(Judged(kOwn), HasSubstr("is not the one that is known"));
}

TEST_F(CertificateJudgeTest, WhatCannotBeRememberedIsTakenAndNoted) {
    folder.Write("state", "no folder");
    EXPECT_EQ(Judged(kOwn), "");
    EXPECT_THAT(notes, ElementsAre(HasSubstr(", is new, is accepted and cannot be remembered: ")));
    EXPECT_EQ(Judged(kOther), "") << "nothing is known of it";
}

TEST_F(CertificateJudgeTest, WhatCannotBeReadTrustsNobody) {
    options.stateDir = folder.Path();
    folder.Write("known_bmcs", "nonsense\n");
    CertificateJudge judge(options, *this);
    EXPECT_EQ(judge.Prepare().code, Kemffdc::kLocalFile);
    EXPECT_THAT(judge.Prepare().reason, StartsWith(folder / "known_bmcs:1: "));
    EXPECT_THAT(judge.AsTrust().judge(443, kOwn), StartsWith(folder / "known_bmcs:1: "));
    EXPECT_THAT(trusts, IsEmpty());
}

TEST_F(CertificateJudgeTest, TheFingerprintIsTheOneThatIsTakenAndNothingIsRemembered) {
    options.fingerprint = kOwn.sha256;
    EXPECT_EQ(Judged(kOwn), "");
    EXPECT_EQ(
        Judged(kOther),
        "The certificate of bmc7.example port 443 is not the one that --fingerprint names. It "
        "has SHA-256 " +
            kOther.sha256 +
            ". The password was not sent. Somebody may be in the BMC's place, or the BMC has "
            "a new certificate: compare with the BMC's own.");
    EXPECT_THAT(trusts, ElementsAre(CertificateTrust::kFingerprint));
    EXPECT_NE(access(options.stateDir.c_str(), F_OK), 0);
}

TEST_F(CertificateJudgeTest, ACaFileAndInsecureAskNoJudge) {
    options.caFile = "/ca.pem";
    CertificateJudge byCa(options, *this);
    EXPECT_EQ(byCa.AsTrust().caFile, "/ca.pem");
    EXPECT_FALSE(byCa.AsTrust().judge);

    options.caFile.clear();
    options.insecure = true;
    CertificateJudge byNobody(options, *this);
    EXPECT_TRUE(byNobody.AsTrust().IsAnybodys());
    EXPECT_TRUE(byNobody.Prepare().Ok());
}

}  // namespace
