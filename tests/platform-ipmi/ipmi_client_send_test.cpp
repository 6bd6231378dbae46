// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CapturedLog.h"
#include "IpmiBmc.h"
#include "IpmiClient.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Bytes = std::vector<std::uint8_t>;

const IPMICOMMAND kCollect{0x49, {0x01}, 0x3A};
const IPMICOMMAND kPoll{0x4D, {0x01}, 0x3A};
const IPMICOMMAND kCredential{0x79, {0x01}, 0x3A};

class IpmiClientSend : public testing::Test {
protected:
    // Text, in seconds; for the connections that are made from here on.
    void SessionTimeoutIs(const char* seconds) {
        setenv("VARNEX_IPMI_SESSION_TIMEOUT", seconds, 1);
    }

    std::unique_ptr<IpmiClient> Connected(const IpmiBmc& bmc, std::uint16_t suite = 17) {
        auto client =
            std::make_unique<IpmiClient>("127.0.0.1", "admin", "secret", bmc.Port(), suite);
        EXPECT_EQ(client->connect(), 0);
        return client;
    }

    CapturedLog log;
    Bytes response{0xAB};
    std::uint8_t code = 0xCD;
};

TEST_F(IpmiClientSend, RequestGoesOutByteForByte) {
    const IpmiBmc bmc;
    const auto client = Connected(bmc, 3);

    EXPECT_EQ(client->send(kCollect, response, code), 0);
    EXPECT_EQ(client->send({0x50, {0xDE, 0xAD, 0x00, 0xFF}, 0x3A}, response, code), 0);
    EXPECT_EQ(client->send({0x01, {}, 0x06}, response, code), 0);

    EXPECT_THAT(bmc.Requests("netfn"),
                ElementsAre(HasSubstr("\"netfn\": 58, \"command\": 73, \"data\": \"01\""),
                            HasSubstr("\"netfn\": 58, \"command\": 80, \"data\": \"dead00ff\""),
                            HasSubstr("\"netfn\": 6, \"command\": 1, \"data\": \"\"")));
}

TEST_F(IpmiClientSend, AnswerComesBackWithoutItsCompletionCode) {
    const IpmiBmc bmc("polls: 0\ncredential: {user: root, password: abc}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_EQ(code, 0);

    EXPECT_EQ(client->send(kCredential, response, code), 0);
    EXPECT_EQ(response, (Bytes{4, 'r', 'o', 'o', 't', 3, 'a', 'b', 'c'}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientSend, AnyCompletionCodeIsAnAnswerAndNoFailure) {
    const IpmiBmc bmc(
        "answers: {poll: [{code: 0xC1}, {code: 0xD4, data: \"01\"}, {code: 0xFF}, {code: 0xC0}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(code, 0xC1);
    EXPECT_THAT(response, IsEmpty());
    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(code, 0xD4);
    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(code, 0xFF);
    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(code, 0xC0);

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientSend, EmptyAnswerIsAnAnswer) {
    const IpmiBmc bmc("answers: {poll: [{data: \"\"}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_THAT(response, IsEmpty());
    EXPECT_EQ(code, 0);
}

TEST_F(IpmiClientSend, LongestAnswerArrivesWhole) {
    Bytes expected;
    std::string text;
    for (int n = 0; n < 255; ++n) {
        expected.push_back(static_cast<std::uint8_t>(n));
        text += "0123456789abcdef"[n / 16];
        text += "0123456789abcdef"[n % 16];
    }
    const IpmiBmc bmc("answers: {credential: [{data: \"" + text + "\"}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kCredential, response, code), 0);

    EXPECT_EQ(response, expected);
}

TEST_F(IpmiClientSend, WithoutAConnectionFailsAndLeavesTheResultsAlone) {
    IpmiClient client("127.0.0.1", "admin", "secret", "1", 17);

    EXPECT_EQ(client.send(kPoll, response, code), kIpmiNotConnected);

    EXPECT_EQ(response, Bytes{0xAB});
    EXPECT_EQ(code, 0xCD);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI: nothing is connected, or the session was lost; connect again"));
}

TEST_F(IpmiClientSend, AfterDisconnectFails) {
    const IpmiBmc bmc;
    const auto client = Connected(bmc);
    client->disconnect();

    EXPECT_EQ(client->send(kPoll, response, code), kIpmiNotConnected);
}

TEST_F(IpmiClientSend, RequestThatIsTooLongFailsAndTheSessionLives) {
    const IpmiBmc bmc;
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send({0x50, Bytes(5000), 0x3A}, response, code), kIpmiBadArgument);
    EXPECT_EQ(client->send(kPoll, response, code), 0);
}

TEST_F(IpmiClientSend, BmcThatIsGoneInMidSessionCostsTheTimeoutOnce) {
    const IpmiBmc bmc("answers: {poll: [{}, {gone: true}]}");
    SessionTimeoutIs("3");
    const auto client = Connected(bmc);
    EXPECT_EQ(client->send(kPoll, response, code), 0);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client->send(kPoll, response, code), kIpmiNoAnswer);
    EXPECT_EQ(client->send(kPoll, response, code), kIpmiNotConnected);
    client->disconnect();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;

    EXPECT_GE(taken.count(), 2.9);
    EXPECT_LT(taken.count(), 5.8);
    EXPECT_EQ(response, Bytes{0x00});
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " + bmc.Port() +
                ": no answer within 3 seconds; the session is lost",
            "1 platform/src/IpmiClient: IPMI: nothing is connected, or the session was lost; connect again"));
}

TEST_F(IpmiClientSend, BmcWhoseProcessEndedIsNoAnswer) {
    IpmiBmc bmc;
    SessionTimeoutIs("3");
    const auto client = Connected(bmc);
    bmc.End();

    EXPECT_EQ(client->send(kPoll, response, code), kIpmiNoAnswer);
    EXPECT_EQ(client->connect(), kIpmiRefused);
}

TEST_F(IpmiClientSend, LostSessionIsReplacedByTheNextConnect) {
    const IpmiBmc bmc("answers: {poll: [{hang: true, repeat: true}]}");
    SessionTimeoutIs("3");
    const auto client = Connected(bmc);
    EXPECT_EQ(client->send(kPoll, response, code), kIpmiNoAnswer);

    EXPECT_EQ(client->connect(), 0);
    EXPECT_EQ(client->send(kCollect, response, code), 0);
}

TEST_F(IpmiClientSend, SlowAnswerIsAwaitedAndTheRequestExecutedOnce) {
    const IpmiBmc bmc("answers: {poll: [{delay: 2.5, data: \"01\"}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_THAT(bmc.Requests("\"netfn\": 58"), SizeIs(1));
}

// Each thread with its own BMC and its own object; every answer has to be its own BMC's.
void PollInThreads(int count, int polls) {
    std::vector<std::unique_ptr<IpmiBmc>> bmcs;
    for (int n = 0; n < count; ++n) {
        bmcs.push_back(std::make_unique<IpmiBmc>(
            "answers: {poll: [{data: \"" + std::to_string(10 + n) + "\", repeat: true}]}",
            "127.0.0." + std::to_string(n + 1)));
    }
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < count; ++n) {
        threads.emplace_back([&good, n, polls, port = bmcs[static_cast<std::size_t>(n)]->Port()] {
            IpmiClient client("127.0.0." + std::to_string(n + 1), "admin", "secret", port,
                              n % 2 == 0 ? 3 : 17);
            const auto expected =
                static_cast<std::uint8_t>(std::stoi(std::to_string(10 + n), nullptr, 16));
            if (client.connect() != 0) return;
            for (int poll = 0; poll < polls; ++poll) {
                Bytes answer;
                std::uint8_t completion = 0xEE;
                if (client.send(kPoll, answer, completion) != 0 || completion != 0) return;
                if (answer != Bytes{expected}) return;
            }
            ++good;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(good, count);
}

TEST(IpmiClientThreads, TwoObjectsInTwoThreadsDoNotMeet) { PollInThreads(2, 200); }

TEST(IpmiClientThreads, SixteenObjectsInSixteenThreadsReachSixteenBmcs) { PollInThreads(16, 50); }

}  // namespace
