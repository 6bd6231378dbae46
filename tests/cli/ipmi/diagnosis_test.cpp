// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Diagnosis.h"
#include "cli/terminal/Text.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "IpmiClient.h"
#include "cli/ipmi/CompletionCodes.h"
#include "cli/ipmi/Options.h"
#include "cli/ipmi/Preflight.h"

namespace {

using Kemffdc::Cause;
using Kemffdc::Clean;
using Kemffdc::Options;
using Kemffdc::Outcome;
using Kemffdc::Ipmi::DiagnoseCollect;
using Kemffdc::Ipmi::DiagnoseConnect;
using Kemffdc::Ipmi::DiagnoseFileService;
using Kemffdc::Ipmi::DiagnoseSilentBmc;
using Kemffdc::Ipmi::EventKind;
using Kemffdc::Ipmi::EventSet;
using Kemffdc::Ipmi::FileService;
using Kemffdc::Ipmi::FoldersPassedOver;
using Kemffdc::Ipmi::Listing;
using Kemffdc::Ipmi::Refusal;
using Kemffdc::Ipmi::RemoteFile;
using Kemffdc::Ipmi::RunEvents;
using Kemffdc::Ipmi::WordsFor;
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
    events.listing = Listing{listed, {}, ""};
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
    events.session = {Varnex::IpmiError(kIpmiNoCipherSuite), "That suite is not offered"};

    EXPECT_TRUE(DiagnoseConnect(0, events, options).Ok());
    ExpectEnding(DiagnoseConnect(1, events, options), 3,
                 "Cannot connect. That suite is not offered. Try --cipher-suite 3.");
    options.own.Of<Kemffdc::Ipmi::ChannelOptions>().cipherSuite = 3;
    EXPECT_THAT(DiagnoseConnect(1, events, options).reason, HasSubstr("Try --cipher-suite 17."));
    ExpectEnding(DiagnoseConnect(1, {}, options), 3, "Cannot connect. no reason given.");
}

TEST(IpmiDiagnoseFileService, OneThatCannotBeFetchedFromIsLimitedAndAStrangerIsThree) {
    RunEvents events;
    events.inBand = "no device";

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

TEST(IpmiDiagnoseConnect, EachErrorHasItsCauseAndAdvice) {
    const struct {
        IpmiResult result;
        Cause cause;
        const char* advice;
    } rows[] = {
        {kIpmiRefused, Cause::kUnreachable, "IPMI over LAN is switched on."},
        {kIpmiNoAnswer, Cause::kUnreachable, "IPMI over LAN is switched on."},
        {kIpmiUnknownHost, Cause::kUnknownHost, "or give its address."},
        {kIpmiWrongPassword, Cause::kLoginRefused, "Check --user and the password."},
        {kIpmiUnknownUser, Cause::kLoginRefused, "Check --user."},
        {kIpmiNoPrivilege, Cause::kNotPermitted, "needs the administrator's privilege."},
        {kIpmiFailed, Cause::kUnnamed, "wrong password."},
    };
    for (const auto& row : rows) {
        RunEvents events;
        events.session = {Varnex::IpmiError(row.result), "IPMI: wrong password"};
        const Outcome outcome = DiagnoseConnect(1, events, {});
        EXPECT_EQ(outcome.cause, row.cause) << row.result;
        EXPECT_THAT(outcome.reason, testing::EndsWith(row.advice));
    }
}

TEST(IpmiCompletionCodes, HaveTheirMeaningOrTheirRange) {
    const struct {
        std::uint8_t code;
        const char* words;
    } rows[] = {
        {0xC3, "completion code C3h: it ran out of time over the command"},
        {0xD2, "completion code D2h: it is still starting"},
        {0xFF, "completion code FFh: an error without a name"},
        {0x01, "completion code 01h: a code of its manufacturer's own"},
        {0x7E, "completion code 7Eh: a code of its manufacturer's own"},
        {0x80, "completion code 80h: a code that belongs to this command"},
        {0xBE, "completion code BEh: a code that belongs to this command"},
        {0x7F, "completion code 7Fh: a code without a meaning"},
        {0xD7, "completion code D7h: a code without a meaning"},
    };
    for (const auto& row : rows) EXPECT_EQ(WordsFor(row.code), row.words);
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
    events.seen.Add(EventKind::kStartRefused);
    events.refusals = {{Refusal::Request::kStart, 0xC1}};
    ExpectEnding(DiagnoseCollect(0, events, {}), 4,
                 "The BMC refused to start gathering (completion code C1h: it does not know the "
                 "command). All the same, 1 file was fetched. They may be of an earlier "
                 "gathering.");

    events = Listed({kFetched, kFailed}, 2);
    events.seen = {EventKind::kPollFailed, EventKind::kPollRefused};
    events.refusals = {{Refusal::Request::kPoll, 0xD4}};
    ExpectEnding(DiagnoseCollect(0, events, {}), 5,
                 "The BMC did not tell whether it has finished gathering (it refused the "
                 "question with completion code D4h: the privilege of the user is too low). 1 "
                 "file was fetched. Missing: b.log (cut (varnex.transfer:79)). They may be old or "
                 "unfinished.");

    events = Listed({}, 0);
    events.seen.Add(EventKind::kTimedOut);
    ExpectEnding(DiagnoseCollect(0, events, {}), 6,
                 "The BMC has not finished gathering after 900 s. Nothing was fetched: The BMC's "
                 "folder is empty: there was nothing to fetch.");
}

TEST(IpmiDiagnoseCollect, TheFirstRowThatMatchesCounts) {
    const struct {
        EventSet events;
        int code;
        int exitCode;
        const char* why;
    } rows[] = {
        {{EventKind::kStartRefused, EventKind::kPollFailed, EventKind::kTimedOut},
         0,
         4,
         "what went wrong first"},
        {{EventKind::kPollFailed, EventKind::kTimedOut}, 0, 5, "the question"},
        {{EventKind::kTimedOut}, 0, 6, "the wait"},
        {{EventKind::kStartRefused, EventKind::kPollUnsent, EventKind::kPollFailed},
         1,
         3,
         "a lost connection decides always"},
        {{EventKind::kStartUnsent, EventKind::kNotListed}, 3, 4, "there was one again"},
        {{EventKind::kNoRunFolder, EventKind::kStartUnsent}, 7, 8, "the folder"},
    };
    for (const auto& row : rows) {
        RunEvents events = Listed({kFetched}, 1);
        events.seen = row.events;
        EXPECT_EQ(DiagnoseCollect(row.code, events, {}).code, row.exitCode) << row.why;
    }
}

TEST(IpmiDiagnoseCollect, ARefusalsCodeIsItsCause) {
    const struct {
        std::uint8_t code;
        Cause cause;
    } rows[] = {
        {0xC0, Cause::kBusy},         {0xC1, Cause::kUnsupported}, {0xD2, Cause::kStarting},
        {0xD4, Cause::kNotPermitted}, {0xFF, Cause::kBmcFault},
    };
    for (const auto& row : rows) {
        RunEvents events = Listed({kFetched}, 1);
        events.seen.Add(EventKind::kStartRefused);
        events.refusals = {{Refusal::Request::kStart, row.code}};
        EXPECT_EQ(DiagnoseCollect(0, events, {}).cause, row.cause);
    }
}

TEST(IpmiDiagnoseCollect, TroubleOfThisMachineDecidesAlways) {
    RemoteFile full = File("c.log", State::kFailed, "No space left on device (generic:28)");
    full.localTrouble = true;
    RunEvents events = Listed({kFetched, full}, 2);
    events.seen.Add(EventKind::kStartRefused);
    EXPECT_EQ(DiagnoseCollect(0, events, {}).code, 8);

    RunEvents folder;
    folder.seen.Add(EventKind::kNoRunFolder);
    EXPECT_EQ(DiagnoseCollect(7, folder, {}).code, 8);
}

TEST(IpmiDiagnoseCollect, ALostConnectionIsThree) {
    for (const EventKind when : {EventKind::kStartUnsent, EventKind::kPollUnsent,
                                 EventKind::kAccountUnsent, EventKind::kNotReconnected}) {
        RunEvents events;
        events.seen.Add(when);
        events.session = {Varnex::IpmiError(kIpmiNoAnswer), "no sign of life"};
        const Outcome outcome = DiagnoseCollect(1, events, {});
        EXPECT_EQ(outcome.code, 3);
        EXPECT_EQ(outcome.cause, Cause::kConnectionLost);
        EXPECT_THAT(outcome.reason, HasSubstr("(no sign of life)"));
    }
    RunEvents nowhere;
    nowhere.inBand = "no interface";
    ExpectEnding(DiagnoseCollect(6, nowhere, {}), 3,
                 "The BMC's files cannot be reached from this machine (no interface).");
}

TEST(IpmiDiagnoseCollect, ASessionThatWasFoundAgainIsNotLost) {
    RunEvents events = Listed({kFetched}, 1);
    events.seen.Add(EventKind::kPollUnsent);
    events.seen.Add(EventKind::kPollFailed);
    events.session.reason = "no answer";
    Options options;
    options.own.Of<Kemffdc::Ipmi::ChannelOptions>().mode = 5;

    EXPECT_EQ(DiagnoseCollect(0, events, options).code, 5);
}

TEST(IpmiDiagnoseCollect, NoAccountAndNoListingAreSeven) {
    RunEvents events;
    events.seen.Add(EventKind::kNoAccount);
    ExpectEnding(DiagnoseCollect(1, events, {}), 7,
                 "The BMC gives no account for its files (it sent an answer that holds none).");
    events.seen.Add(EventKind::kAccountRefused);
    events.refusals = {{Refusal::Request::kAccount, 0x83}};
    ExpectEnding(DiagnoseCollect(1, events, {}), 7,
                 "The BMC gives no account for its files (it refused the request with completion "
                 "code 83h: a code that belongs to this command).");

    RunEvents unlisted;
    unlisted.seen.Add(EventKind::kNotListed);
    unlisted.notListed = "78 what the library made of it";
    unlisted.listing = Listing{0, {78, Varnex::TransferCategory()}, "Whatever."};
    ExpectEnding(DiagnoseCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: Whatever (78). The BMC has no such folder; "
                 "another --mode may be right for it.");
    unlisted.listing.reset();
    unlisted.notListed = "the host is no host";
    ExpectEnding(DiagnoseCollect(1, unlisted, {}), 7,
                 "The BMC's files cannot be listed: the host is no host.");
}

TEST(IpmiDiagnoseCollect, AListingsErrorSaysWhatToDoAndNotItsWords) {
    const struct {
        int number;
        const char* advice;
    } rows[] = {
        {7, "(SFTP, TCP port 115) can be reached."},
        {28, "(SFTP, TCP port 115) can be reached."},
        {67, "refuses the account that the BMC itself has given."},
        {78, "another --mode may be right for it."},
        {79, "(79)."},
    };
    for (const auto& row : rows) {
        RunEvents events;
        events.seen.Add(EventKind::kNotListed);
        events.listing =
            Listing{0, {row.number, Varnex::TransferCategory()}, "Authentication failure"};
        EXPECT_THAT(DiagnoseCollect(1, events, {}).reason, testing::EndsWith(row.advice));
    }
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
