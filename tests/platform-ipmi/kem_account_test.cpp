// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "CapturedLog.h"
#include "IpmiBmc.h"
#include "KEMAccount.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class GetKEMAccountViaKCS : public testing::Test {
protected:
    // What a BMC that answers `answer` to the request makes of an account.
    int Ask(const std::string& answer) {
        const IpmiBmc bmc("answers: {credential: [" + answer + "]}");
        setenv("EMULATED_KCS", bmc.Kcs().c_str(), 1);
        const int result = XM_WIDGETS::GetKEMAccountViaKCS(account, 1);
        EXPECT_THAT(bmc.Requests("\"netfn\": 58, \"command\": 121, \"data\": \"01\""), SizeIs(1));
        return result;
    }

    CapturedLog log;
    XM_WIDGETS::KEMAccount account{"old user", "old password"};
};

TEST_F(GetKEMAccountViaKCS, TakesUserAndPasswordFromTheAnswer) {
    EXPECT_EQ(Ask("{data: \"04 72 6f 6f 74 03 61 62 63\"}"), 0);

    EXPECT_EQ(account.user, "root");
    EXPECT_EQ(account.password, "abc");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(GetKEMAccountViaKCS, EmptyUserAndPasswordAreAnAccount) {
    EXPECT_EQ(Ask("{data: \"00 00\"}"), 0);

    EXPECT_EQ(account.user, "");
    EXPECT_EQ(account.password, "");
}

TEST_F(GetKEMAccountViaKCS, BytesBehindThePasswordAreIgnored) {
    EXPECT_EQ(Ask("{data: \"01 75 01 70 ff ff\"}"), 0);

    EXPECT_EQ(account.user, "u");
    EXPECT_EQ(account.password, "p");
}

TEST_F(GetKEMAccountViaKCS, LengthsThatOverrunTheAnswerFail) {
    for (const char* data : {"ff", "01", "02 75", "01 75", "01 75 01", "01 75 ff 70", "ff 75 01 70",
                             "00", "03 75 01 70"}) {
        EXPECT_EQ(Ask(std::string("{data: \"") + data + "\"}"), 4) << data;
    }

    EXPECT_EQ(account.user, "old user");
    EXPECT_EQ(account.password, "old password");
    EXPECT_THAT(log.Lines(), SizeIs(9));
    EXPECT_EQ(
        log.Lines().front(),
        "1 platform/src/KEMAccount: The BMC's answer with the account for its files is cut: 1 bytes");
}

TEST_F(GetKEMAccountViaKCS, EmptyAnswerFails) {
    EXPECT_EQ(Ask("{data: \"\"}"), 4);

    EXPECT_EQ(account.user, "old user");
}

TEST_F(GetKEMAccountViaKCS, CompletionCodeOtherThanZeroFailsWhateverTheData) {
    EXPECT_EQ(Ask("{code: 0xC1, data: \"04 72 6f 6f 74 03 61 62 63\"}"), 3);

    EXPECT_EQ(account.user, "old user");
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/KEMAccount: The BMC gives no account for its files: completion code 0xC1"));
}

TEST_F(GetKEMAccountViaKCS, WithoutADeviceFailsWithItsReason) {
    setenv("EMULATED_KCS", "errno:2", 1);

    EXPECT_EQ(XM_WIDGETS::GetKEMAccountViaKCS(account, 0), 1);

    EXPECT_EQ(account.user, "old user");
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI through /dev/ipmi0: no such device; load the kernel modules ipmi_si and ipmi_devintf"));
}

}  // namespace
