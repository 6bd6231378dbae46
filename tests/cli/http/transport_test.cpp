// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Transport.h"

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <boost/json.hpp>

#include "cli/redfish/Requests.h"
#include "support/EmulatedBmc.h"

namespace {

using Kemffdc::Answer;
using Kemffdc::BasicLogin;
using Kemffdc::Certificate;
using Kemffdc::Endpoint;
using Kemffdc::Stage;
using Kemffdc::Transport;
using Kemffdc::Trust;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRoot[] = "/redfish/v1/";
constexpr char kManager[] = "/redfish/v1/Managers/1";
constexpr char kSessions[] = "/redfish/v1/SessionService/Sessions";

Endpoint At(const EmulatedBmc& bmc) {
    return {"127.0.0.1", false, static_cast<std::uint16_t>(bmc.Number("/redfish/port")), true};
}

Transport To(const EmulatedBmc& bmc, Trust trust = {}) {
    return Transport(At(bmc), std::move(trust), Kemffdc::Redfish::kRedfishService, 10);
}

TEST(Transport, AnswersWithStatusHeadersAndBody) {
    const EmulatedBmc bmc;
    Transport transport = To(bmc);
    const Answer answer = transport.Get(kManager, BasicLogin("admin", "secret"));
    EXPECT_EQ(answer.failedAt, Stage::kDone) << answer.reason;
    EXPECT_EQ(answer.httpCode, 200);
    EXPECT_EQ(answer.Header("odata-version"), "4.0");
    EXPECT_EQ(answer.Header("x-auth-token"), "");
    EXPECT_FALSE(answer.lowerCaseNames);
    EXPECT_TRUE(boost::json::parse(answer.body).is_object());
}

TEST(Transport, SaysWhoAsksOnlyWhereItIsToldTo) {
    const EmulatedBmc bmc;
    Transport transport = To(bmc);
    EXPECT_EQ(transport.Get(kManager).httpCode, 401);
    EXPECT_EQ(transport.Get(kManager, BasicLogin("admin", "wrong")).httpCode, 401);
    EXPECT_EQ(transport.Get(kManager, BasicLogin("admin", "secret")).httpCode, 200);
    EXPECT_EQ(transport.Get(kManager).httpCode, 401) << "the login is not kept";
}

TEST(Transport, OpensASessionUsesItAndDeletesIt) {
    const EmulatedBmc bmc;
    Transport transport = To(bmc);
    const Answer opened = transport.Post(kSessions, R"({"UserName":"admin","Password":"secret"})",
                                         {"Content-Type: application/json"});
    ASSERT_EQ(opened.httpCode, 201);
    const Kemffdc::Login login =
        Kemffdc::TokenLogin(Kemffdc::Secret(opened.Header("x-auth-token")));
    const std::string session = opened.Header("location");
    EXPECT_EQ(transport.Get(session, login).httpCode, 200);
    EXPECT_EQ(transport.Delete(session, login).httpCode, 204);
    EXPECT_EQ(transport.Get(session, login).httpCode, 401);
}

TEST(Transport, KnowsOnAConnectionThatIsUsedAgainThatTheHandshakeIsOver) {
    const EmulatedBmc bmc("redfish: {answers: {\"GET */Managers/1\": [{hang: true}]}}");
    Transport transport(At(bmc), Trust(), Kemffdc::Redfish::kRedfishService, 2);
    ASSERT_EQ(transport.Get(kRoot).httpCode, 200);
    const Answer answer = transport.Get(kManager, BasicLogin("admin", "secret"));
    EXPECT_EQ(answer.failedAt, Stage::kService);
    EXPECT_EQ(answer.reason, At(bmc).Place() +
                                 " speaks HTTPS but does not answer within 2 s. A "
                                 "BMC that hangs needs a reset.");
}

TEST(TransportJudge, SeesTheCertificateAndLetsTheRequestGo) {
    const EmulatedBmc bmc;
    std::string seen;
    std::uint16_t seenAt = 0;
    Transport transport = To(bmc, {"", [&](std::uint16_t port, const Certificate& shown) {
                                       seen = shown.sha256;
                                       seenAt = port;
                                       return std::string();
                                   }});
    EXPECT_EQ(transport.Get(kRoot).httpCode, 200);
    EXPECT_EQ(seen.size(), 95U) << "32 bytes in hexadecimal, with colons: " << seen;
    EXPECT_EQ(transport.ShownCertificate()->sha256, seen);
    EXPECT_EQ(seenAt, At(bmc).port);
}

TEST(TransportJudge, AnObjectionEndsTheHandshakeBeforeAnyRequest) {
    const EmulatedBmc bmc;
    Transport transport = To(bmc, {"", [](std::uint16_t, const Certificate&) {
                                       return std::string("This is not the BMC.");
                                   }});
    const Answer answer = transport.Get(kManager, BasicLogin("admin", "secret"));
    EXPECT_EQ(answer.failedAt, Stage::kTrust);
    EXPECT_EQ(answer.reason, "This is not the BMC.");
    ASSERT_TRUE(transport.ShownCertificate());
    EXPECT_FALSE(transport.ShownCertificate()->verified);
    EXPECT_THAT(bmc.Requests(), IsEmpty());
}

TEST(TransportJudge, IsAskedAgainOnEachNewConnection) {
    const EmulatedBmc bmc;
    int asked = 0;
    Transport transport = To(bmc, {"", [&](std::uint16_t, const Certificate&) {
                                       return std::string(++asked > 1 ? "Another one." : "");
                                   }});
    EXPECT_EQ(transport.Get(kRoot).httpCode, 200);
    const Answer again = transport.CheckCertificate();
    EXPECT_EQ(again.failedAt, Stage::kTrust);
    EXPECT_EQ(again.reason, "Another one.");
    EXPECT_THAT(bmc.Requests(), ElementsAre("GET /redfish/v1/"));
}

// The CA's word is not the judge's to overrule, and the other way round.
TEST(TransportJudge, IsNotAskedWhereACaFileDecides) {
    const EmulatedBmc bmc;
    int asked = 0;
    Transport transport =
        To(bmc, {bmc.Text("/redfish/certificate"), [&](std::uint16_t, const Certificate&) {
                     ++asked;
                     return std::string("no");
                 }});
    EXPECT_EQ(transport.Get(kRoot).httpCode, 200);
    EXPECT_EQ(asked, 0);
    EXPECT_TRUE(transport.ShownCertificate()->verified);
}

}  // namespace
