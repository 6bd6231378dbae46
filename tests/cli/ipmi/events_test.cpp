// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Events.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace {

using Kemffdc::Ipmi::CodeOf;
using Kemffdc::Ipmi::Event;
using Kemffdc::Ipmi::EventKind;
using Kemffdc::Ipmi::FileProgress;
using Kemffdc::Ipmi::NotTried;
using Kemffdc::Ipmi::ReadEvent;
using Kemffdc::Ipmi::Refusal;
using Kemffdc::Ipmi::RemoteFile;
using Kemffdc::Ipmi::RunTracker;
using State = Kemffdc::Ipmi::RemoteFile::State;
using testing::ElementsAre;
using testing::SizeIs;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcipmi_impl";

struct RecordRow {
    int level;
    const char* source;
    const char* text;
    EventKind kind;
    const char* rest;
};

// As the library writes them.
const RecordRow kRows[] = {
    {4, kChannel, "Entering KEMFfdcIpmiImpl::CollectFiles.", EventKind::kStarting, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.",
     EventKind::kStartUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.",
     EventKind::kStartRefused, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.",
     EventKind::kPollUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.",
     EventKind::kPollRefused, ""},
    {4, kChannel, "KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()",
     EventKind::kPollFailed, ""},
    {4, kChannel, "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem",
     EventKind::kTimedOut, ""},
    {4, kChannel, "Entering KEMFfdcIpmiImpl::GetCredential.", EventKind::kAskingAccount, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.",
     EventKind::kAccountUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.",
     EventKind::kAccountRefused, ""},
    {1, kChannel, "Failed getting BMC credential ", EventKind::kNoAccount, ""},
    {4, kChannel, "Failed to connect ipmi KCS.", EventKind::kNotReconnected, ""},
    {1, kChannel, "Failed getting BMC FFDC data files, error is 67 Authentication failure",
     EventKind::kNotListed, "67 Authentication failure"},
    {4, kChannel, "Getting file a b.tgz", EventKind::kGetting, "a b.tgz"},
    {1, kChannel, "Failed to create FFDC output path /x", EventKind::kNoRunFolder, "/x"},
};

TEST(IpmiReadEvent, EveryRecordThatTellsSomethingIsKnown) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        const auto event = ReadEvent({row.level, row.source, 1, text});
        ASSERT_TRUE(event.has_value()) << text;
        EXPECT_EQ(event->kind, row.kind) << text;
        EXPECT_EQ(event->text, row.rest) << text;
    }
}

TEST(IpmiReadEvent, OthersTellNothing) {
    for (const std::string text : {"host=192.0.2.1", "Exiting KEMFfdcIpmiImpl::CollectFiles()."}) {
        EXPECT_FALSE(ReadEvent({4, kChannel, 1, text}).has_value()) << text;
    }
    const std::string refused = "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.";
    EXPECT_FALSE(ReadEvent({1, kChannel, 1, refused}).has_value()) << "of another level";
    EXPECT_FALSE(ReadEvent({4, "x", 1, refused}).has_value()) << "of another source";
}

TEST(IpmiReadEvent, WhatThePlatformWritesIsNotRead) {
    for (const RecordRow& row : kRows) {
        for (const char* source :
             {"platform/src/IpmiClient", "platform/src/KEMAccount", "platform/src/UsbLanCfg",
              "platform/src/file_client", "platform/src/HostKeyCheck", "platform/src/SshSession"}) {
            const std::string text = row.text;
            EXPECT_FALSE(ReadEvent({row.level, source, 1, text}).has_value()) << text;
        }
    }
}

// What the platform tells, with the texts that only people read.
const std::string kWords = "words";
const std::string kNone;
const std::string kFolder = "/download/ffdc/";

Varnex::IpmiExchange Answered(std::uint8_t code, bool inBand = false) {
    return {inBand, 0x3A, 0x49, {}, code, kWords};
}
Varnex::IpmiExchange Unanswered(IpmiResult result, const std::string& reason, bool inBand = false) {
    return {inBand, 0x3A, 0x49, Varnex::IpmiError(result), 0, reason};
}
Varnex::ListingResult ListingOf(std::size_t names) { return {kFolder, names, {}}; }

TEST(IpmiRunTracker, FilesEndAsTheirTransfersDo) {
    RunTracker tracker(2, false);
    tracker.Take(ListingOf(5));
    tracker.Take(Event{EventKind::kGetting, "a.tgz"});
    tracker.TransferStarted();
    EXPECT_EQ(tracker.Events().files[0].state, State::kRunning);
    EXPECT_EQ(FileProgress(tracker.Events()), "file 1 of 5");
    tracker.TransferEnded({});
    tracker.Take(Event{EventKind::kGetting, "b.log"});
    tracker.TransferStarted();
    tracker.TransferEnded({ENOSPC, std::generic_category()});
    tracker.Take(Event{EventKind::kGetting, "c"});
    tracker.TransferStarted();
    tracker.TransferEnded({ENAMETOOLONG, std::generic_category()});

    const auto& files = tracker.Events().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].state, State::kFetched);
    EXPECT_EQ(files[1].state, State::kFailed);
    EXPECT_TRUE(files[1].localTrouble);
    EXPECT_EQ(files[1].reason, "No space left on device (generic:28)");
    EXPECT_FALSE(files[2].localTrouble) << "the BMC's name is at fault, not this machine";
    EXPECT_EQ(NotTried(tracker.Events()), 2u);
}

// As file_client's: a number that only sometimes means a folder.
class FolderCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "varnex.transfer"; }
    std::string message(int) const override { return "is a folder"; }
    std::error_condition default_error_condition(int) const noexcept override {
        return std::errc::is_a_directory;
    }
};

TEST(IpmiRunTracker, FoldersOfTheBmcArePassedOverAndNotMissing) {
    const FolderCategory category;
    RunTracker tracker(2, false);
    tracker.Take(ListingOf(3));
    for (const char* name : {"kem_dump", "older.tgz", "log"}) {
        tracker.Take(Event{EventKind::kGetting, name});
        tracker.TransferStarted();
        tracker.TransferEnded(std::string(name) == "log"
                                  ? std::error_code(EISDIR, std::generic_category())
                                  : std::error_code(79, category));
    }

    const auto& files = tracker.Events().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].state, State::kFolder);
    EXPECT_EQ(files[0].reason, "");
    EXPECT_EQ(files[1].state, State::kFailed) << "the library's run ends at an archive";
    EXPECT_EQ(files[2].state, State::kFailed) << "a folder of this machine is in the way";
}

TEST(IpmiRunTracker, NamesThatModeThreeDoesNotAskForAreSkipped) {
    RunTracker tracker(3, false);
    const std::string archive = "../a.TZZ";
    const std::string log = "../a.log";
    tracker.Take(Varnex::PassedOverName{kFolder, archive, Varnex::NameFault::kSlash});
    tracker.Take(Varnex::PassedOverName{kFolder, log, Varnex::NameFault::kSlash});
    tracker.Take(ListingOf(2));
    tracker.Take(Event{EventKind::kGetting, "b.log"});
    tracker.Take(Event{EventKind::kGetting, "c.tzz"});
    tracker.TransferStarted();
    tracker.TransferEnded({});

    const auto& files = tracker.Events().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].name, "../a.TZZ");
    EXPECT_EQ(files[0].state, State::kPassedOver);
    EXPECT_EQ(files[0].reason, "it holds a slash");
    EXPECT_EQ(files[1].state, State::kSkipped);
    EXPECT_EQ(files[2].state, State::kFetched);
    EXPECT_EQ(NotTried(tracker.Events()), 0u);
    EXPECT_EQ(FileProgress(tracker.Events()), "file 2 of 2");
}

TEST(IpmiRunTracker, EveryFaultOfANameHasItsWords) {
    using Varnex::NameFault;
    RunTracker tracker(2, false);
    for (const NameFault fault :
         {NameFault::kEmpty, NameFault::kSlash, NameFault::kNulByte, NameFault::kLineEnd}) {
        tracker.Take(Varnex::PassedOverName{kFolder, kWords, fault});
    }

    std::vector<std::string> reasons;
    for (const RemoteFile& file : tracker.Events().files) reasons.push_back(file.reason);
    EXPECT_THAT(reasons, ElementsAre("it is empty", "it holds a slash", "it holds a NUL byte",
                                     "it holds a line end"));
}

TEST(IpmiRunTracker, WhatWasLookedAtBeforeTheGatheringIsForgotten) {
    RunTracker tracker(5, false);
    tracker.Take(Varnex::PassedOverName{kFolder, kWords, Varnex::NameFault::kSlash});
    tracker.Take(ListingOf(4));

    tracker.Take(Event{EventKind::kStarting, ""});

    EXPECT_THAT(tracker.Events().files, SizeIs(0));
    EXPECT_FALSE(tracker.Events().listing.has_value());
}

TEST(IpmiRunTracker, WhatBrokeTheSessionStays) {
    RunTracker tracker(2, false);
    tracker.Take(Unanswered(kIpmiNoAnswer, "silence"));
    tracker.Take(Unanswered(kIpmiNotConnected, "no session"));

    EXPECT_EQ(tracker.Events().session.reason, "silence");
    EXPECT_EQ(tracker.Events().session.error, std::errc::timed_out);

    tracker.Take(Varnex::IpmiConnection{false, Varnex::IpmiError(kIpmiRefused), kWords, kWords});
    EXPECT_EQ(tracker.Events().session.error, std::errc::connection_refused);
}

TEST(IpmiRunTracker, AnAccountsConnectionIsNotTheSession) {
    const std::string noDevice = "no device";
    RunTracker overLan(5, false);
    overLan.Take(Varnex::IpmiConnection{true, Varnex::IpmiError(kIpmiNoDevice), noDevice, kNone});
    EXPECT_FALSE(overLan.Events().session.error);
    EXPECT_EQ(overLan.Events().inBand, "no device");

    RunTracker inBand(5, true);
    inBand.Take(Varnex::IpmiConnection{true, Varnex::IpmiError(kIpmiNoDevice), noDevice, kNone});
    EXPECT_EQ(inBand.Events().session.error, std::errc::no_such_device);
}

TEST(IpmiRunTracker, LookUpsInBandTellTheirReason) {
    const std::string none;
    RunTracker tracker(5, false);
    tracker.Take(Varnex::AccountLookupResult{Varnex::AccountLookup::kRefused, 0xC1, kWords});
    EXPECT_EQ(tracker.Events().inBand, "words");
    tracker.Take(Varnex::AccountLookupResult{Varnex::AccountLookup::kNoInterface, 0, none});
    EXPECT_EQ(tracker.Events().inBand, "words") << "the connection has told it";
    tracker.Take(Varnex::UsbLanLookupResult{Varnex::UsbLanLookup::kNoTable, kFolder});
    EXPECT_EQ(tracker.Events().inBand, kFolder);
}

TEST(IpmiRunTracker, ARefusalHasTheCodeOfTheAnswerBeforeIt) {
    RunTracker tracker(2, false);
    tracker.Take(Answered(0xC1));
    tracker.Take(Event{EventKind::kStartRefused, ""});
    tracker.Take(Answered(0x00));
    tracker.Take(Answered(0xD5));
    tracker.Take(Event{EventKind::kPollRefused, ""});
    tracker.Take(Answered(0x83));
    tracker.Take(Event{EventKind::kAccountRefused, ""});

    EXPECT_EQ(CodeOf(tracker.Events(), Refusal::Request::kStart), 0xC1);
    EXPECT_EQ(CodeOf(tracker.Events(), Refusal::Request::kPoll), 0xD5);
    EXPECT_EQ(CodeOf(tracker.Events(), Refusal::Request::kAccount), 0x83);
}

TEST(IpmiRunTracker, SameSentenceAboutAHostKeyIsKeptOnce) {
    RunTracker tracker(2, false);
    const std::string host = "[b]:115";
    const std::string print = "SHA256:x";
    const auto judged = [&](Varnex::HostKeyDecision decision, bool accepted,
                            const std::string& text) {
        return Varnex::HostKeyResult{decision, accepted, host, kWords, print, kFolder, 0, {}, text};
    };
    const std::string one = "one";
    const std::string another = "another";

    EXPECT_TRUE(tracker.Take(judged(Varnex::HostKeyDecision::kFirstSeen, true, one)));
    EXPECT_FALSE(tracker.Take(judged(Varnex::HostKeyDecision::kFirstSeen, true, one)));
    EXPECT_FALSE(tracker.Take(judged(Varnex::HostKeyDecision::kKnown, true, kWords)));
    EXPECT_FALSE(tracker.Take(judged(Varnex::HostKeyDecision::kChanged, false, kWords)))
        << "the transfer's error says it";
    EXPECT_TRUE(tracker.Take(judged(Varnex::HostKeyDecision::kNotRemembered, true, another)));

    EXPECT_THAT(tracker.Events().hostKeys, ElementsAre("one", "another"));
    EXPECT_EQ(tracker.Events().hostKey, "SHA256:x");
}

}  // namespace
