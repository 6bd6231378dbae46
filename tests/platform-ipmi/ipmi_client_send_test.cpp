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
#include "IpmiSessions.h"

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

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(IpmiClientSend, AnswerThatComesAfterACopyWasSentIsTaken) {
    const IpmiBmc bmc("answers: {poll: {delay: 2, data: \"01\", repeat: true}}");
    const auto client = Connected(bmc);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_LT(SecondsSince(start), 3.4) << "it was the answer to the copy that was taken";
    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_THAT(bmc.Requests("\"netfn\": 58"), SizeIs(2)) << "the BMC was not asked again";
}

TEST_F(IpmiClientSend, BmcThatTakesEightSecondsForEachCommandIsHeard) {
    const IpmiBmc bmc(
        "answers: {collect: {delay: 8, repeat: true}, poll: {delay: 8, data: \"01\", repeat: true}}");
    const auto client = Connected(bmc, 3);

    EXPECT_EQ(client->send(kCollect, response, code), 0);
    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientSend, LateAnswerIsNotTakenForTheNextRequests) {
    const IpmiBmc bmc(
        "answers: {poll: [{delay: 2, data: \"01\"}, {data: \"02\"}, {delay: 1, data: \"03\"}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);
    EXPECT_EQ(response, Bytes{0x02});
    EXPECT_EQ(client->send(kPoll, response, code), 0);  // 01 comes while it waits

    EXPECT_EQ(response, Bytes{0x03});
}

TEST_F(IpmiClientSend, FirstCopyIsSentAfterTheSameTimeWhateverTheSessionTimeoutIs) {
    const IpmiBmc bmc("answers: {poll: [{hang: true}, {data: \"01\"}]}");
    SessionTimeoutIs("300");
    const auto client = Connected(bmc);

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_GE(SecondsSince(start), 1.4);
    EXPECT_LT(SecondsSince(start), 4.0);
}

TEST_F(IpmiClientSend, AnswerOfAnotherCommandOrNetworkFunctionIsNotTaken) {
    const IpmiBmc bmc(
        "answers: {poll: [{as: \"3A 49\", data: \"05\"}, {as: \"2E 4D\", data: \"06\"}, {data: \"01\"}]}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientSend, NothingButAnswersOfAnotherCommandIsAFailure) {
    const IpmiBmc bmc("answers: {poll: {as: \"3A 49\", data: \"01\", repeat: true}}");
    const auto client = Connected(bmc);

    EXPECT_EQ(client->send(kPoll, response, code), kIpmiFailed);

    EXPECT_EQ(response, Bytes{0xAB});
    EXPECT_THAT(log.Lines(),
                ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " + bmc.Port() +
                            ": answers that belong to other requests keep coming"));
}

TEST_F(IpmiClientSend, SixtyPollsOverANetworkThatLosesSomeDatagramsGoThrough) {
    const IpmiBmc bmc("polls: -1\nnetwork: {loss: 3, duplicates: 3, reordered: 3, seed: 5}");
    const auto client = Connected(bmc);

    for (int poll = 0; poll < 60; ++poll) EXPECT_EQ(client->send(kPoll, response, code), 0) << poll;

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientSend, RealSecondsMayPassBetweenPolls) {
    const IpmiBmc bmc("polls: -1");
    const auto client = Connected(bmc);

    for (int poll = 0; poll < 3; ++poll) {
        EXPECT_EQ(client->send(kPoll, response, code), 0);
        std::this_thread::sleep_for(std::chrono::seconds(5));
    }
    EXPECT_EQ(client->send(kPoll, response, code), 0);

    EXPECT_THAT(bmc.Requests("\"netfn\": 58"), SizeIs(4));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

class CloseSessions : public IpmiClientSend {};

TEST_F(CloseSessions, TellsTheBmcsOfAllIdleClients) {
    const IpmiBmc bmc;
    const auto one = Connected(bmc);
    const auto other = Connected(bmc, 3);

    Varnex::CloseIpmiSessions(std::chrono::seconds(1));

    EXPECT_THAT(bmc.Requests("\"close\""), SizeIs(2));
    EXPECT_EQ(one->send(kPoll, response, code), kIpmiNotConnected);
    EXPECT_EQ(one->connect(), 0);
}

TEST_F(CloseSessions, ReturnsInTimeWhereTheBmcIsGoneAndWhereAClientIsWaiting) {
    const IpmiBmc gone("answers: {\"3A 50\": [{gone: true}]}");
    const IpmiBmc slow("answers: {poll: {delay: 4, repeat: true}}", "127.0.0.2");
    const auto idle = Connected(gone);
    EXPECT_EQ(idle->send(kPoll, response, code), 0);
    IpmiClient busy("127.0.0.2", "admin", "secret", slow.Port(), 17);
    ASSERT_EQ(busy.connect(), 0);
    std::thread waiting([&busy] {
        Bytes answer;
        std::uint8_t completion = 0;
        EXPECT_EQ(busy.send(kPoll, answer, completion), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    SessionTimeoutIs("2");
    const auto silencer = Connected(gone);
    EXPECT_EQ(silencer->send({0x50, {}, 0x3A}, response, code), kIpmiNoAnswer);

    const auto start = std::chrono::steady_clock::now();
    Varnex::CloseIpmiSessions(std::chrono::milliseconds(300));

    EXPECT_LT(SecondsSince(start), 1.0);
    waiting.join();
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
