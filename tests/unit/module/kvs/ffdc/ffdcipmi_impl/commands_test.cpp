// SPDX-License-Identifier: Apache-2.0
#include "unit/module/kvs/ffdc/IpmiTest.h"

using fakes::Failure;
using fakes::Journal;
using fakes::Trace;
using testing::ElementsAre;
using Varnex::KEMFfdcIpmiImpl;

namespace {

class IpmiCollectFiles : public IpmiTest {};
class IpmiIsCollectionFinished : public IpmiTest {};
class IpmiGetCredential : public IpmiTest {
protected:
    // The result, and what became of the two strings.
    bool Get(const std::vector<std::uint8_t>& data) {
        bmc.Answer(kCredential, 0, data);
        return ConnectedChannel(2).GetCredential(user, password);
    }

    std::string user = "earlier user";
    std::string password = "earlier password";
};

constexpr std::uint8_t kCompletionCodes[] = {0xC1, 0xD4, 0xFF, 0x01};

}  // namespace

TEST_F(IpmiCollectFiles, SendsItsBytesAndLooksAtNoData) {
    bmc.Answer(kCollect, 0, {0xFF});

    EXPECT_TRUE(ConnectedChannel(2).CollectFiles());

    EXPECT_THAT(Journal::Take(), ElementsAre("send 3A 49 01"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(kChannel, "Entering KEMFfdcIpmiImpl::CollectFiles."),
                            Trace(kChannel, "Exiting KEMFfdcIpmiImpl::CollectFiles().")));
}

TEST_F(IpmiCollectFiles, SendThatFailsIsAFailure) {
    bmc.SendFails(kCollect);

    EXPECT_FALSE(ConnectedChannel(2).CollectFiles());

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                            Trace("KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.")));
}

TEST_F(IpmiCollectFiles,
       CompletionCodeOfC1OrAnyNonZeroYieldsThe2TextAndTheFailureWhateverDataCameBack) {
    for (const std::uint8_t code : kCompletionCodes) {
        fakes::FakeIpmi refusing;
        refusing.Answer(kCollect, code, {0x01});

        EXPECT_FALSE(ConnectedChannel(2).CollectFiles());

        EXPECT_THAT(
            log.Lines(),
            ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                        Trace("KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.")));
    }
}

TEST_F(IpmiCollectFiles, WithoutAClientItFailsAsOneThatCouldNotBeSent) {
    EXPECT_FALSE(Channel(2).CollectFiles());

    EXPECT_THAT(Journal::Take(), ElementsAre());
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                            Trace("KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.")));
}

TEST_F(IpmiIsCollectionFinished, Byte1MeansFinished) {
    bmc.Answer(kPoll, 0, {0x01, 0x00});

    EXPECT_EQ(1, ConnectedChannel(2).IsCollectionFinished());

    EXPECT_THAT(Journal::Take(), ElementsAre("send 3A 4D 01"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                            Trace("Exiting KEMFfdcIpmiImpl::IsCollectionFinished().")));
}

TEST_F(IpmiIsCollectionFinished, ResponseByte02OrAnyValueBut01Yields0NotMinus1) {
    for (const std::uint8_t byte : std::vector<std::uint8_t>{0x02, 0x00, 0xFF, 0x81}) {
        fakes::FakeIpmi gathering;
        gathering.Answer(kPoll, 0, {byte});

        EXPECT_EQ(0, ConnectedChannel(2).IsCollectionFinished()) << int{byte};
    }
}

TEST_F(IpmiIsCollectionFinished, CompletionCode00AndNoDataYieldsMinus1AfterLoggingTheExitText) {
    bmc.Answer(kPoll, 0, {});

    EXPECT_EQ(-1, ConnectedChannel(2).IsCollectionFinished());

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                            Trace("Exiting KEMFfdcIpmiImpl::IsCollectionFinished().")));
}

TEST_F(IpmiIsCollectionFinished, SendThatFailsYieldsMinus1) {
    bmc.SendFails(kPoll);

    EXPECT_EQ(-1, ConnectedChannel(2).IsCollectionFinished());

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                    Trace("KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.")));
}

TEST_F(IpmiIsCollectionFinished,
       CompletionCodeOfC1OrAnyNonZeroYieldsThe2TextAndTheFailureWhateverDataCameBack) {
    for (const std::uint8_t code : kCompletionCodes) {
        fakes::FakeIpmi refusing;
        refusing.Answer(kPoll, code, {0x01});

        EXPECT_EQ(-1, ConnectedChannel(2).IsCollectionFinished());

        EXPECT_THAT(
            log.Lines(),
            ElementsAre(
                Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                Trace("KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.")));
    }
}

TEST_F(IpmiGetCredential, Response04Root03AbcYieldsUserRootPasswordAbcAndTheLogHasTheMask) {
    EXPECT_TRUE(Get({0x04, 'r', 'o', 'o', 't', 0x03, 'a', 'b', 'c'}));

    EXPECT_EQ("root", user);
    EXPECT_EQ("abc", password);
    EXPECT_THAT(Journal::Take(), ElementsAre("send 3A 79 01"));
    EXPECT_THAT(log.Lines(), ElementsAre(Trace("Entering KEMFfdcIpmiImpl::GetCredential."),
                                         Trace("Exiting KEMFfdcIpmiImpl::GetCredential()."),
                                         Trace("user name=root,password=xxxxx"),
                                         Trace("Exiting TKEMFFDC::GetCredential().")));
}

TEST_F(IpmiGetCredential, Response0000YieldsTrueWithAnEmptyUserNameAndAnEmptyPassword) {
    EXPECT_TRUE(Get({0x00, 0x00}));

    EXPECT_EQ("", user);
    EXPECT_EQ("", password);
    EXPECT_TRUE(Logged("user name=,password=xxxxx"));
}

TEST_F(IpmiGetCredential, BytesAfterThePasswordAreIgnored) {
    EXPECT_TRUE(Get({0x01, 'u', 0x01, 'p', 0x09, 'x'}));

    EXPECT_EQ("u", user);
    EXPECT_EQ("p", password);
}

TEST_F(IpmiGetCredential, LongestTextsAndBytesBeyondAsciiAreTakenAsTheyCome) {
    std::vector<std::uint8_t> data = {255};
    data.insert(data.end(), 255, 0xE9);
    data.push_back(255);
    data.insert(data.end(), 255, 0x00);

    EXPECT_TRUE(Get(data));

    EXPECT_EQ(std::string(255, '\xE9'), user);
    EXPECT_EQ(std::string(255, '\0'), password);
}

TEST_F(IpmiGetCredential, EmptyAnswerIsAFailureWithItsText) {
    EXPECT_FALSE(Get({}));

    EXPECT_EQ("earlier user", user);
    EXPECT_EQ("earlier password", password);
    EXPECT_THAT(log.Lines(), ElementsAre(Trace("Entering KEMFfdcIpmiImpl::GetCredential."),
                                         Trace("Exiting KEMFfdcIpmiImpl::GetCredential()."),
                                         Failure("the size of response_date is 0, return false")));
}

TEST_F(IpmiGetCredential, LengthsThatOverrunTheAnswerAreAFailureWithTheSameText) {
    const std::vector<std::uint8_t> answers[] = {
        {0x01},                 // no user
        {0x01, 'u'},            // no length of the password
        {0x02, 'u'},            // user cut
        {0x01, 'u', 0x01},      // no password
        {0x01, 'u', 0x02, 'p'}  // password cut
        ,
        {0xFF, 'u', 0x01, 'p'}  // user reaches far beyond
    };
    for (const auto& answer : answers) {
        fakes::FakeIpmi overrunning;
        overrunning.Answer(kCredential, 0, answer);

        EXPECT_FALSE(ConnectedChannel(2).GetCredential(user, password));

        EXPECT_EQ("earlier user", user);
        EXPECT_EQ("earlier password", password);
        EXPECT_THAT(log.Lines().back(), Failure("the size of response_date is 0, return false"));
    }
}

TEST_F(IpmiGetCredential, SendThatFailsIsAFailure) {
    bmc.SendFails(kCredential);

    EXPECT_FALSE(ConnectedChannel(2).GetCredential(user, password));

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("Entering KEMFfdcIpmiImpl::GetCredential."),
                    Trace("KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.")));
}

TEST_F(IpmiGetCredential,
       CompletionCodeOfC1OrAnyNonZeroYieldsThe2TextAndTheFailureWhateverDataCameBack) {
    for (const std::uint8_t code : kCompletionCodes) {
        fakes::FakeIpmi refusing;
        refusing.Answer(kCredential, code, {0x01, 'u', 0x01, 'p'});

        EXPECT_FALSE(ConnectedChannel(2).GetCredential(user, password));

        EXPECT_EQ("earlier user", user);
        EXPECT_THAT(
            log.Lines(),
            ElementsAre(Trace("Entering KEMFfdcIpmiImpl::GetCredential."),
                        Trace("KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.")));
    }
}
