// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Diagnosis.h"
#include "cli/terminal/Text.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "cli/ipmi/Options.h"
#include "cli/ipmi/Preflight.h"

namespace {

using Kemffdc::Clean;
using Kemffdc::Options;
using Kemffdc::Outcome;
using Kemffdc::Ipmi::DiagnoseCollect;
using Kemffdc::Ipmi::DiagnoseConnect;
using Kemffdc::Ipmi::DiagnoseFileService;
using Kemffdc::Ipmi::DiagnoseSilentBmc;
using Kemffdc::Ipmi::FileService;
using Kemffdc::Ipmi::FoldersPassedOver;
using Kemffdc::Ipmi::RemoteFile;
using Kemffdc::Ipmi::RunEvents;
using State = Kemffdc::Ipmi::RemoteFile::State;
using testing::HasSubstr;

RemoteFile File(const std::string& name, State state, const std::string& reason = "") {
    RemoteFile file;
    file.name = name;
    file.state = state;
    file.reason = reason;
    return file;
}

RunEvents Listed(std::vector<RemoteFile> files, unsigned listed) {
    RunEvents events;
    events.files = std::move(files);
    events.listed = listed;
    return events;
}

const RemoteFile kFetched = File("a.tgz", State::kFetched);
const RemoteFile kFailed = File("b.log", State::kFailed, "cut (varnex.transfer:79)");

void ExpectEnding(const Outcome& outcome, int code, const std::string& text) {
    EXPECT_EQ(outcome.code, code) << text;
    EXPECT_EQ(outcome.reason, text);
}

TEST(IpmiDiagnoseConnect, TheClientsReasonIsGivenWithWhatToDo) {
    RunEvents events;
    Options options;
    events.sessionTrouble = "IPMI to 192.0.2.1 port 623: the BMC does not offer cipher suite 17";

    EXPECT_TRUE(DiagnoseConnect(0, events, options).Ok());
    ExpectEnding(DiagnoseConnect(1, events, options), 3,
                 "Cannot connect. IPMI to 192.0.2.1 port 623: the BMC does not offer cipher suite "
                 "17. Try --cipher-suite 3.");
    options.own.Of<Kemffdc::Ipmi::ChannelOptions>().cipherSuite = 3;
    EXPECT_THAT(DiagnoseConnect(1, events, options).reason, HasSubstr("Try --cipher-suite 17."));
    ExpectEnding(DiagnoseConnect(1, {}, options), 3, "Cannot connect. no reason given.");
}

TEST(IpmiDiagnoseFileService, OneThatCannotBeFetchedFromIsLimitedAndAStrangerIsThree) {
    RunEvents events;
    events.inBandTrouble = "no device";

    EXPECT_TRUE(DiagnoseFileService({}, "bmc7", events).Ok());
    ExpectEnding(
        DiagnoseFileService({FileService::State::kUnusable, "refused (7)"}, "bmc7", events), 10,
        "The BMC's file service (SFTP, bmc7 port 115) cannot be used: refused (7). The BMC "
        "was not told to gather: its files could not be fetched. Check that it is switched "
        "on and not behind a firewall.");
    ExpectEnding(
        DiagnoseFileService({FileService::State::kNoLogin, "denied (67)"}, "bmc7", events), 10,
        "The BMC's file service (SFTP, bmc7 port 115) refuses the login: denied (67). In "
        "this mode an account comes from this machine's own BMC, else --user and the "
        "password hold (no device). The BMC was not told to gather: its files could not be "
        "fetched.");
    ExpectEnding(
        DiagnoseFileService({FileService::State::kUntrusted, "another (60)"}, "bmc7", {}), 3,
        "The BMC's file service (SFTP, bmc7 port 115) is not to be trusted: another (60).");
}

TEST(IpmiDiagnoseCollect, AllFilesOfAGoodGatheringAreASuccess) {
    EXPECT_TRUE(DiagnoseCollect(0, Listed({kFetched}, 1), {}).Ok());
    EXPECT_TRUE(DiagnoseCollect(0, Listed({kFetched, File("c.log", State::kSkipped)}, 2), {}).Ok());
}

TEST(IpmiDiagnoseCollect, SomeFilesMissingIsNineAndNoneAtAllIsSeven) {
    ExpectEnding(DiagnoseCollect(0, Listed({kFetched, kFailed}, 2), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)).");
    ExpectEnding(DiagnoseCollect(8, Listed({kFetched, kFailed}, 4), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)); 2 more files not "
                 "tried after that.");
    ExpectEnding(DiagnoseCollect(8, Listed({kFailed}, 1), {}), 7,
                 "None of the BMC's files could be fetched: b.log (cut (varnex.transfer:79)).");
    ExpectEnding(DiagnoseCollect(0, Listed({}, 0), {}), 7,
                 "The BMC's folder is empty: there was nothing to fetch.");
    ExpectEnding(DiagnoseCollect(0, Listed({kFetched, kFailed, kFailed, kFailed, kFailed}, 5), {}),
                 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)), b.log (cut "
                 "(varnex.transfer:79)), b.log (cut (varnex.transfer:79)) and 1 more.");
}

TEST(IpmiDiagnoseCollect, FoldersOfTheBmcAreNotMissing) {
    const RemoteFile folder = File("kem_dump", State::kFolder);
    EXPECT_TRUE(DiagnoseCollect(0, Listed({kFetched, folder}, 2), {}).Ok());
    ExpectEnding(DiagnoseCollect(0, Listed({folder}, 1), {}), 7,
                 "The BMC's folder holds folders alone: there was nothing to fetch.");
    ExpectEnding(DiagnoseCollect(0, Listed({kFetched, folder, kFailed}, 3), {}), 9,
                 "1 file was fetched. Missing: b.log (cut (varnex.transfer:79)).");
}

TEST(IpmiFoldersPassedOver, NamesThem) {
    const RemoteFile folder = File("kem\ndump", State::kFolder);
    EXPECT_EQ(FoldersPassedOver(Listed({kFetched}, 1)), "");
    EXPECT_EQ(FoldersPassedOver(Listed({kFetched, folder}, 2)),
              "Passed over, for being a folder of the BMC: " + Clean("kem\ndump") + ".");
    EXPECT_THAT(FoldersPassedOver(Listed({folder, folder, folder, folder, folder}, 5)),
                testing::EndsWith(" and 2 more."));
}

TEST(IpmiDiagnoseSilentBmc, IsNotConnected) {
    ExpectEnding(DiagnoseSilentBmc("completion code C3h"), 3,
                 "This machine has an IPMI device, but its BMC does not answer (completion code "
                 "C3h). The BMC may hang or be starting; try again in some minutes.");
}

TEST(IpmiDiagnoseCollect, FilesOfASpoiltGatheringAreNoSuccess) {
    RunEvents events = Listed({kFetched}, 1);
    events.startRefused = true;
    ExpectEnding(DiagnoseCollect(0, events, {}), 4,
                 "The BMC refused to start gathering. All the same, 1 file was fetched. They may "
                 "be of an earlier gathering.");

    events = Listed({kFetched, kFailed}, 2);
    events.pollFailed = true;
    events.pollRefused = true;
    ExpectEnding(DiagnoseCollect(0, events, {}), 5,
                 "The BMC did not tell whether it has finished gathering (it refused the "
                 "question). 1 file was fetched. Missing: b.log (cut (varnex.transfer:79)). They "
                 "may be old or unfinished.");

    events = Listed({}, 0);
    events.timedOut = true;
    ExpectEnding(DiagnoseCollect(0, events, {}), 6,
                 "The BMC has not finished gathering after 900 s. Nothing was fetched: The BMC's "
                 "folder is empty: there was nothing to fetch.");
}

TEST(IpmiDiagnoseCollect, WhatWentWrongFirstDecides) {
    RunEvents events = Listed({kFetched}, 1);
    events.startRefused = true;
    events.pollFailed = true;
    events.timedOut = true;
    EXPECT_EQ(DiagnoseCollect(0, events, {}).code, 4);
    events.startRefused = false;
    EXPECT_EQ(DiagnoseCollect(0, events, {}).code, 5);
    events.pollFailed = false;
    EXPECT_EQ(DiagnoseCollect(0, events, {}).code, 6);
}

TEST(IpmiDiagnoseCollect, TroubleOfThisMachineDecidesAlways) {
    RemoteFile full = File("c.log", State::kFailed, "No space left on device (generic:28)");
    full.localTrouble = true;
    RunEvents events = Listed({kFetched, full}, 2);
    events.startRefused = true;
    EXPECT_EQ(DiagnoseCollect(0, events, {}).code, 8);

    RunEvents folder;
    folder.noRunFolder = true;
    EXPECT_EQ(DiagnoseCollect(7, folder, {}).code, 8);
}

TEST(IpmiDiagnoseCollect, ALostConnectionIsThree) {
    for (bool RunEvents::*when : {&RunEvents::startUnsent, &RunEvents::pollUnsent,
                                  &RunEvents::accountUnsent, &RunEvents::notReconnected}) {
        RunEvents events;
        events.*when = true;
        events.sessionTrouble = "IPMI to b port 623: no answer";
        const Outcome outcome = DiagnoseCollect(1, events, {});
        EXPECT_EQ(outcome.code, 3);
        EXPECT_THAT(outcome.reason, HasSubstr("(IPMI to b port 623: no answer)"));
    }
    RunEvents nowhere;
    nowhere.inBandTrouble = "no interface";
    ExpectEnding(DiagnoseCollect(6, nowhere, {}), 3,
                 "The BMC's files cannot be reached from this machine (no interface).");
}

TEST(IpmiDiagnoseCollect, ASessionThatWasFoundAgainIsNotLost) {
    RunEvents events = Listed({kFetched}, 1);
    events.pollUnsent = true;
    events.pollFailed = true;
    events.sessionTrouble = "no answer";
    Options options;
    options.own.Of<Kemffdc::Ipmi::ChannelOptions>().mode = 5;

    EXPECT_EQ(DiagnoseCollect(0, events, options).code, 5);
}

TEST(IpmiDiagnoseCollect, NoAccountAndNoListingAreSeven) {
    RunEvents events;
    events.noAccount = true;
    ExpectEnding(DiagnoseCollect(1, events, {}), 7,
                 "The BMC gives no account for its files (it sent an answer that holds none).");

    RunEvents unlisted;
    unlisted.notListed = "78 No such file.";
    ExpectEnding(DiagnoseCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: No such file (78). The BMC has no such folder; "
                 "another --mode may be right for it.");
    unlisted.notListed = "the host is no host";
    ExpectEnding(DiagnoseCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: the host is no host.");
}

TEST(IpmiDiagnoseCollect, AFailureWithoutAReasonIsNoSuccess) {
    EXPECT_EQ(DiagnoseCollect(1, Listed({kFetched}, 1), {}).code, 7);
}

TEST(IpmiReadDeviceId, TellsFirmwareMakerAndProduct) {
    Kemffdc::BmcFacts facts;

    EXPECT_TRUE(Kemffdc::Ipmi::ReadDeviceId(
        {0x20, 0x81, 0x83, 0x45, 0x02, 0xBF, 0x66, 0x4A, 0x00, 0x02, 0x01}, facts));

    EXPECT_EQ(facts.firmware, "3.45");
    EXPECT_EQ(facts.serviceVersion, "IPMI 2.0");
    EXPECT_EQ(facts.vendor, "enterprise number 19046");
    EXPECT_EQ(facts.product, "product number 258");
    EXPECT_FALSE(Kemffdc::Ipmi::ReadDeviceId({0x20, 0x81}, facts));
}

}  // namespace
