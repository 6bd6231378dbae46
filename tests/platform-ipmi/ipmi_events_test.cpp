// SPDX-License-Identifier: Apache-2.0
#include "IpmiEvents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "CapturedLog.h"
#include "IpmiBmc.h"
#include "IpmiSessions.h"
#include "KEMAccount.h"
#include "UsbLanCfg.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const IPMICOMMAND kPoll{0x4D, {0x01}, 0x3A};

std::string Way(bool inBand) { return inBand ? "in band" : "lan"; }

// One line an event; the texts stand in the log as well.
class Notes : public Varnex::IpmiWatcher {
public:
    Notes() { Varnex::AddIpmiWatcher(this); }
    ~Notes() override { Varnex::RemoveIpmiWatcher(this); }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;

    void Connected(const Varnex::IpmiConnection& connection) override {
        lines.push_back(Way(connection.inBand) + " connect " +
                        std::to_string(connection.error.value()));
        EXPECT_EQ(Varnex::IpmiCategory(), connection.error.category());
        EXPECT_EQ(!connection.error, connection.reason.empty());
        last = connection.error;
        reason = connection.reason;
        address = connection.address;
    }
    void Exchanged(const Varnex::IpmiExchange& exchange) override {
        lines.push_back(Way(exchange.inBand) + " " + std::to_string(exchange.netfn) + ":" +
                        std::to_string(exchange.command) + " " +
                        std::to_string(exchange.error.value()) + ":" +
                        std::to_string(exchange.completionCode));
        EXPECT_EQ(!exchange.error, exchange.reason.empty());
        last = exchange.error;
        reason = exchange.reason;
    }
    void Disconnected(bool inBand) override { lines.push_back(Way(inBand) + " end"); }
    void AccountLookedUp(const Varnex::AccountLookupResult& account) override {
        lines.push_back("account " + std::to_string(static_cast<int>(account.result)) + ":" +
                        std::to_string(account.completionCode));
        reason = account.reason;
    }
    void UsbLanLookedUp(const Varnex::UsbLanLookupResult& usbLan) override {
        lines.push_back("usb lan " + std::to_string(static_cast<int>(usbLan.result)));
        reason = usbLan.reason;
    }

    std::vector<std::string> lines;
    std::error_code last;
    std::string reason;
    std::string address;
};

class IpmiEvents : public testing::Test {
protected:
    void SetUp() override { setenv("VARNEX_IPMI_SESSION_TIMEOUT", "2", 1); }

    std::unique_ptr<IpmiClient> ClientOf(const IpmiBmc& bmc, const std::string& user = "admin",
                                         const std::string& password = "secret",
                                         std::uint16_t suite = 17) {
        return std::make_unique<IpmiClient>("127.0.0.1", user, password, bmc.Port(), suite);
    }
    int Send(IpmiClient& client) {
        std::vector<std::uint8_t> response;
        std::uint8_t code = 0xEE;
        return client.send(kPoll, response, code);
    }
    // The log's last text is what the watcher was given.
    void ExpectReasonIsLogged() {
        ASSERT_FALSE(log.Lines().empty());
        EXPECT_THAT(log.Lines().back(), testing::EndsWith(": " + notes.reason));
    }

    CapturedLog log;
    Notes notes;
};

TEST_F(IpmiEvents, ASessionIsToldFromItsStartToItsEnd) {
    const IpmiBmc bmc("answers: {poll: [{data: \"00\"}, {code: 0xC1}]}");
    auto client = ClientOf(bmc);

    EXPECT_EQ(client->connect(), 0);
    EXPECT_EQ(notes.address, "127.0.0.1");
    EXPECT_EQ(Send(*client), 0);
    EXPECT_EQ(Send(*client), 0);
    client->disconnect();
    client->disconnect();
    EXPECT_EQ(Send(*client), kIpmiNotConnected);

    EXPECT_THAT(notes.lines, ElementsAre("lan connect 0", "lan 58:77 0:0", "lan 58:77 0:193",
                                         "lan end", "lan 58:77 12:0"));
    EXPECT_EQ(notes.last, std::errc::not_connected);
    ExpectReasonIsLogged();
}

TEST_F(IpmiEvents, ASessionEndsWithItsClientAndWithTheNextConnect) {
    const IpmiBmc bmc;
    {
        auto client = ClientOf(bmc);
        EXPECT_EQ(client->connect(), 0);
        EXPECT_EQ(client->connect(), 0);
    }

    EXPECT_THAT(notes.lines, ElementsAre("lan connect 0", "lan end", "lan connect 0", "lan end"));
}

TEST_F(IpmiEvents, ASessionThatIsClosedForTheProcessHasEnded) {
    const IpmiBmc bmc;
    auto client = ClientOf(bmc);
    EXPECT_EQ(client->connect(), 0);

    Varnex::CloseIpmiSessions(std::chrono::seconds(20));
    client.reset();

    EXPECT_THAT(notes.lines, ElementsAre("lan connect 0", "lan end"));
}

TEST_F(IpmiEvents, ABmcThatFallsSilentEndsTheSession) {
    const IpmiBmc bmc("answers: {poll: [{gone: true}]}");
    auto client = ClientOf(bmc);
    EXPECT_EQ(client->connect(), 0);

    EXPECT_EQ(Send(*client), kIpmiNoAnswer);

    EXPECT_THAT(notes.lines, ElementsAre("lan connect 0", "lan 58:77 5:0", "lan end"));
    EXPECT_EQ(notes.last, std::errc::timed_out);
    ExpectReasonIsLogged();
}

TEST_F(IpmiEvents, WhyAConnectFailsIsAValue) {
    const IpmiBmc bmc("cipher_suites: [3]");
    const IpmiBmc operatorsOnly("privilege: 3");
    const auto connect = [&](const std::string& host, const std::string& port,
                             const std::string& user, const std::string& password,
                             std::uint16_t suite) {
        return IpmiClient(host, user, password, port, suite).connect();
    };
    const struct {
        std::string host, port, user, password;
        std::uint16_t suite;
        IpmiResult result;
    } rows[] = {
        {"127.0.0.1", "1", "admin", "secret", 17, kIpmiRefused},
        {"no-such-host.invalid", "623", "admin", "secret", 17, kIpmiUnknownHost},
        {"127.0.0.1", "x", "admin", "secret", 17, kIpmiBadArgument},
        {"127.0.0.1", bmc.Port(), "admin", "wrong", 3, kIpmiWrongPassword},
        {"127.0.0.1", bmc.Port(), "nobody", "secret", 3, kIpmiUnknownUser},
        {"127.0.0.1", bmc.Port(), "admin", "secret", 17, kIpmiNoCipherSuite},
        {"127.0.0.1", operatorsOnly.Port(), "admin", "secret", 17, kIpmiNoPrivilege},
    };
    for (const auto& row : rows) {
        notes.lines.clear();

        EXPECT_EQ(connect(row.host, row.port, row.user, row.password, row.suite), row.result);

        EXPECT_THAT(notes.lines, ElementsAre("lan connect " + std::to_string(row.result)));
        ExpectReasonIsLogged();
    }
}

TEST_F(IpmiEvents, InBandIsToldApart) {
    setenv("EMULATED_KCS", "errno:13", 1);
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiNoPermission);

    EXPECT_THAT(notes.lines, ElementsAre("in band connect 11"));
    EXPECT_EQ(notes.address, "");
    EXPECT_EQ(notes.last, std::errc::permission_denied);
}

TEST_F(IpmiEvents, AnAccountLookupTellsItsOutcomeAndTheBmcsCode) {
    XM_WIDGETS::KEMAccount account;
    const struct {
        const char* answer;
        std::vector<std::string> lines;
    } rows[] = {
        {"{data: \"01 75 01 70\"}", {"in band 58:121 0:0", "account 0:0"}},
        {"{code: 0xD5}", {"in band 58:121 0:213", "account 3:213"}},
        {"{data: \"05\"}", {"in band 58:121 0:0", "account 4:0"}},
    };
    for (const auto& row : rows) {
        const IpmiBmc bmc(std::string("answers: {credential: [") + row.answer + "]}");
        setenv("EMULATED_KCS", bmc.Kcs().c_str(), 1);
        notes.lines.clear();

        (void)XM_WIDGETS::GetKEMAccountViaKCS(account, 0);

        EXPECT_THAT(notes.lines,
                    ElementsAre("in band connect 0", row.lines[0], "in band end", row.lines[1]));
    }
    ExpectReasonIsLogged();

    setenv("EMULATED_KCS", "errno:2", 1);
    notes.lines.clear();
    EXPECT_EQ(XM_WIDGETS::GetKEMAccountViaKCS(account, 0), 1);
    EXPECT_THAT(notes.lines, ElementsAre("in band connect 10", "account 1:0"));
    EXPECT_EQ(notes.reason, "") << "the client has said it";
}

TEST_F(IpmiEvents, AUsbLanLookupTellsItsOutcome) {
    setenv("VARNEX_DMI_TABLE", "/absent", 1);
    UsbLanNodeList nodes;

    EXPECT_EQ(UsbLanCfg::GetInstance(kUsbLanLeaveAsFound, false).QueryUsbLanState(nodes, false), 1);

    EXPECT_THAT(notes.lines, ElementsAre("usb lan 1"));
    ExpectReasonIsLogged();
}

TEST_F(IpmiEvents, AWatcherMayThrowAndComeAndGo) {
    class Bad : public Varnex::IpmiWatcher {
        void Connected(const Varnex::IpmiConnection&) override { throw std::runtime_error("bad"); }
    } bad;
    const IpmiBmc bmc;
    auto client = ClientOf(bmc);
    Varnex::AddIpmiWatcher(&bad);

    EXPECT_EQ(client->connect(), 0);
    Varnex::RemoveIpmiWatcher(&bad);
    Varnex::RemoveIpmiWatcher(&notes);
    notes.lines.clear();
    EXPECT_EQ(Send(*client), 0);

    EXPECT_THAT(notes.lines, IsEmpty());
}

}  // namespace
