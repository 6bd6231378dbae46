// SPDX-License-Identifier: Apache-2.0
#include "IpmiVerdict.h"
#include "Text.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "IpmiProbe.h"

namespace {

using Kemffdc::Clean;
using Kemffdc::FoldersPassedOver;
using Kemffdc::IpmiAccount;
using Kemffdc::JudgeIpmiCollect;
using Kemffdc::JudgeIpmiConnect;
using Kemffdc::JudgeSilentBmc;
using Kemffdc::Options;
using Kemffdc::Outcome;
using Kemffdc::RemoteFile;
using State = Kemffdc::RemoteFile::State;
using testing::HasSubstr;

RemoteFile File(const std::string& name, State state, const std::string& reason = "") {
    RemoteFile file;
    file.name = name;
    file.state = state;
    file.reason = reason;
    return file;
}

IpmiAccount Listed(std::vector<RemoteFile> files, unsigned listed) {
    IpmiAccount account;
    account.files = std::move(files);
    account.listed = listed;
    return account;
}

const RemoteFile kFetched = File("a.tgz", State::kFetched);
const RemoteFile kFailed = File("b.log", State::kFailed, "cut (varnex.transfer:79)");

void ExpectEnding(const Outcome& outcome, int code, const std::string& text) {
    EXPECT_EQ(outcome.code, code) << text;
    EXPECT_EQ(outcome.reason, text);
}

TEST(JudgeIpmiConnect, TheClientsReasonIsGivenWithWhatToDo) {
    IpmiAccount account;
    Options options;
    account.sessionTrouble = "IPMI to 192.0.2.1 port 623: the BMC does not offer cipher suite 17";

    EXPECT_TRUE(JudgeIpmiConnect(0, account, options).Ok());
    ExpectEnding(JudgeIpmiConnect(1, account, options), 3,
                 "Cannot connect. IPMI to 192.0.2.1 port 623: the BMC does not offer cipher suite "
                 "17. Try --cipher-suite 3.");
    options.cipherSuite = 3;
    EXPECT_THAT(JudgeIpmiConnect(1, account, options).reason, HasSubstr("Try --cipher-suite 17."));
    ExpectEnding(JudgeIpmiConnect(1, {}, options), 3, "Cannot connect. no reason given.");
}

TEST(JudgeIpmiCollect, AllFilesOfAGoodGatheringAreASuccess) {
    EXPECT_TRUE(JudgeIpmiCollect(0, Listed({kFetched}, 1), {}).Ok());
    EXPECT_TRUE(
        JudgeIpmiCollect(0, Listed({kFetched, File("c.log", State::kSkipped)}, 2), {}).Ok());
}

TEST(JudgeIpmiCollect, SomeFilesMissingIsNineAndNoneAtAllIsSeven) {
    ExpectEnding(JudgeIpmiCollect(0, Listed({kFetched, kFailed}, 2), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)).");
    ExpectEnding(JudgeIpmiCollect(8, Listed({kFetched, kFailed}, 4), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)); 2 more files not "
                 "tried after that.");
    ExpectEnding(JudgeIpmiCollect(8, Listed({kFailed}, 1), {}), 7,
                 "None of the BMC's files could be fetched: b.log (cut (varnex.transfer:79)).");
    ExpectEnding(JudgeIpmiCollect(0, Listed({}, 0), {}), 7,
                 "The BMC's folder is empty: there was nothing to fetch.");
    ExpectEnding(JudgeIpmiCollect(0, Listed({kFetched, kFailed, kFailed, kFailed, kFailed}, 5), {}),
                 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)), b.log (cut "
                 "(varnex.transfer:79)), b.log (cut (varnex.transfer:79)) and 1 more.");
}

TEST(JudgeIpmiCollect, FoldersOfTheBmcAreNotMissing) {
    const RemoteFile folder = File("kem_dump", State::kFolder);
    EXPECT_TRUE(JudgeIpmiCollect(0, Listed({kFetched, folder}, 2), {}).Ok());
    ExpectEnding(JudgeIpmiCollect(0, Listed({folder}, 1), {}), 7,
                 "The BMC's folder holds folders alone: there was nothing to fetch.");
    ExpectEnding(JudgeIpmiCollect(0, Listed({kFetched, folder, kFailed}, 3), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)).");
}

TEST(FoldersPassedOver, NamesThem) {
    const RemoteFile folder = File("kem\ndump", State::kFolder);
    EXPECT_EQ(FoldersPassedOver(Listed({kFetched}, 1)), "");
    EXPECT_EQ(FoldersPassedOver(Listed({kFetched, folder}, 2)),
              "Passed over, for being a folder of the BMC: " + Clean("kem\ndump") + ".");
    EXPECT_THAT(FoldersPassedOver(Listed({folder, folder, folder, folder, folder}, 5)),
                testing::EndsWith(" and 2 more."));
}

TEST(JudgeSilentBmc, IsNotConnected) {
    ExpectEnding(JudgeSilentBmc("completion code C3h"), 3,
                 "This machine has an IPMI device, but its BMC does not answer (completion code "
                 "C3h). The BMC may hang or be starting; try again in some minutes.");
}

TEST(JudgeIpmiCollect, FilesOfASpoiltGatheringAreNoSuccess) {
    IpmiAccount account = Listed({kFetched}, 1);
    account.startRefused = true;
    ExpectEnding(JudgeIpmiCollect(0, account, {}), 4,
                 "The BMC refused to start gathering. All the same, 1 file was fetched. They may "
                 "be of an earlier gathering.");

    account = Listed({kFetched, kFailed}, 2);
    account.pollFailed = true;
    account.pollRefused = true;
    ExpectEnding(JudgeIpmiCollect(0, account, {}), 5,
                 "The BMC did not tell whether it has finished gathering (it refused the "
                 "question). 1 file was fetched. Missing: b.log (cut (varnex.transfer:79)). They "
                 "may be old or unfinished.");

    account = Listed({}, 0);
    account.timedOut = true;
    ExpectEnding(JudgeIpmiCollect(0, account, {}), 6,
                 "The BMC has not finished gathering after 900 s. Nothing was fetched: The BMC's "
                 "folder is empty: there was nothing to fetch.");
}

TEST(JudgeIpmiCollect, WhatWentWrongFirstDecides) {
    IpmiAccount account = Listed({kFetched}, 1);
    account.startRefused = true;
    account.pollFailed = true;
    account.timedOut = true;
    EXPECT_EQ(JudgeIpmiCollect(0, account, {}).code, 4);
    account.startRefused = false;
    EXPECT_EQ(JudgeIpmiCollect(0, account, {}).code, 5);
    account.pollFailed = false;
    EXPECT_EQ(JudgeIpmiCollect(0, account, {}).code, 6);
}

TEST(JudgeIpmiCollect, TroubleOfThisMachineDecidesAlways) {
    RemoteFile full = File("c.log", State::kFailed, "No space left on device (generic:28)");
    full.localTrouble = true;
    IpmiAccount account = Listed({kFetched, full}, 2);
    account.startRefused = true;
    EXPECT_EQ(JudgeIpmiCollect(0, account, {}).code, 8);

    IpmiAccount folder;
    folder.noRunFolder = true;
    EXPECT_EQ(JudgeIpmiCollect(7, folder, {}).code, 8);
}

TEST(JudgeIpmiCollect, ALostConnectionIsThree) {
    for (bool IpmiAccount::*when : {&IpmiAccount::startUnsent, &IpmiAccount::pollUnsent,
                                    &IpmiAccount::accountUnsent, &IpmiAccount::notReconnected}) {
        IpmiAccount account;
        account.*when = true;
        account.sessionTrouble = "IPMI to b port 623: no answer";
        const Outcome outcome = JudgeIpmiCollect(1, account, {});
        EXPECT_EQ(outcome.code, 3);
        EXPECT_THAT(outcome.reason, HasSubstr("(IPMI to b port 623: no answer)"));
    }
    IpmiAccount nowhere;
    nowhere.inBandTrouble = "no interface";
    ExpectEnding(JudgeIpmiCollect(6, nowhere, {}), 3,
                 "The BMC's files cannot be reached from this machine (no interface).");
}

TEST(JudgeIpmiCollect, ASessionThatWasFoundAgainIsNotLost) {
    IpmiAccount account = Listed({kFetched}, 1);
    account.pollUnsent = true;
    account.pollFailed = true;
    account.sessionTrouble = "no answer";
    Options options;
    options.mode = 5;

    EXPECT_EQ(JudgeIpmiCollect(0, account, options).code, 5);
}

TEST(JudgeIpmiCollect, NoAccountAndNoListingAreSeven) {
    IpmiAccount account;
    account.noAccount = true;
    ExpectEnding(JudgeIpmiCollect(1, account, {}), 7,
                 "The BMC gives no account for its files (it sent an answer that holds none).");

    IpmiAccount unlisted;
    unlisted.notListed = "78 No such file.";
    ExpectEnding(JudgeIpmiCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: No such file (78). The BMC has no such folder; "
                 "another --mode may be right for it.");
    unlisted.notListed = "the host is no host";
    ExpectEnding(JudgeIpmiCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: the host is no host.");
}

TEST(JudgeIpmiCollect, AFailureWithoutAReasonIsNoSuccess) {
    EXPECT_EQ(JudgeIpmiCollect(1, Listed({kFetched}, 1), {}).code, 7);
}

TEST(ReadDeviceId, TellsFirmwareMakerAndProduct) {
    Kemffdc::BmcFacts facts;

    EXPECT_TRUE(Kemffdc::ReadDeviceId(
        {0x20, 0x81, 0x83, 0x45, 0x02, 0xBF, 0x66, 0x4A, 0x00, 0x02, 0x01}, facts));

    EXPECT_EQ(facts.firmware, "3.45");
    EXPECT_EQ(facts.serviceVersion, "IPMI 2.0");
    EXPECT_EQ(facts.vendor, "enterprise number 19046");
    EXPECT_EQ(facts.product, "product number 258");
    EXPECT_FALSE(Kemffdc::ReadDeviceId({0x20, 0x81}, facts));
}

}  // namespace
