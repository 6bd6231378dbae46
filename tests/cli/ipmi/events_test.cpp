// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Events.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace {

using Kemffdc::Ipmi::EventKind;
using Kemffdc::Ipmi::FileProgress;
using Kemffdc::Ipmi::NotTried;
using Kemffdc::Ipmi::ReadEvent;
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

// As the library and the platform write them.
const RecordRow kRows[] = {
    {1, "platform/src/IpmiClient", "IPMI to 192.0.2.1 port 623: refused; nothing listens",
     EventKind::kSessionTrouble, "IPMI to 192.0.2.1 port 623: refused; nothing listens"},
    {1, "platform/src/KEMAccount", "The BMC gives no account", EventKind::kInBandTrouble,
     "The BMC gives no account"},
    {1, "platform/src/UsbLanCfg", "no interface", EventKind::kInBandTrouble, "no interface"},
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
    {1, kChannel, "the size of response_date is 0, return false", EventKind::kAccountCut, ""},
    {1, kChannel, "Failed getting BMC credential ", EventKind::kNoAccount, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::Connect Success ", EventKind::kConnected, ""},
    {4, kChannel, "Failed to connect ipmi KCS.", EventKind::kNotReconnected, ""},
    {1, kChannel, "Failed getting BMC FFDC data files, error is 67 Authentication failure",
     EventKind::kNotListed, "67 Authentication failure"},
    {1, kChannel, "remote ffdc size = 3", EventKind::kListed, "3"},
    {4, kChannel, "Getting file a b.tgz", EventKind::kGetting, "a b.tgz"},
    {2, "platform/src/file_client",
     "The name \"../x\" of the listing is passed over: it holds a slash.", EventKind::kPassedOver,
     "../x\" of the listing is passed over: it holds a slash"},
    {3, "platform/src/HostKeyCheck", "The host key of b:115, t SHA256:x, is new.",
     EventKind::kHostKey, "The host key of b:115, t SHA256:x, is new."},
    {4, "platform/src/HostKeyCheck", "The host key of b:115, t SHA256:x, is not verified.",
     EventKind::kHostKey, "The host key of b:115, t SHA256:x, is not verified."},
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
    const std::string texts[] = {"host=192.0.2.1", "Exiting KEMFfdcIpmiImpl::CollectFiles().",
                                 "The host key of b:115, t SHA256:x, is known."};
    for (const std::string& text : texts) {
        EXPECT_FALSE(ReadEvent({4, kChannel, 1, text}).has_value()) << text;
        EXPECT_FALSE(ReadEvent({4, "platform/src/HostKeyCheck", 1, text}).has_value()) << text;
    }
    const std::string listed = "remote ffdc size = 3";
    EXPECT_FALSE(ReadEvent({4, kChannel, 1, listed}).has_value()) << "of another level";
    EXPECT_FALSE(ReadEvent({1, "x", 1, listed}).has_value()) << "of another source";
}

TEST(IpmiRunTracker, FilesEndAsTheirTransfersDo) {
    RunTracker tracker(2);
    tracker.Take({EventKind::kListed, "5"});
    tracker.Take({EventKind::kGetting, "a.tgz"});
    tracker.TransferStarted();
    EXPECT_EQ(tracker.Events().files[0].state, State::kRunning);
    EXPECT_EQ(FileProgress(tracker.Events()), "file 1 of 5");
    tracker.TransferEnded({});
    tracker.Take({EventKind::kGetting, "b.log"});
    tracker.TransferStarted();
    tracker.TransferEnded({ENOSPC, std::generic_category()});
    tracker.Take({EventKind::kGetting, "c"});
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
    RunTracker tracker(2);
    tracker.Take({EventKind::kListed, "3"});
    for (const char* name : {"kem_dump", "older.tgz", "log"}) {
        tracker.Take({EventKind::kGetting, name});
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
    RunTracker tracker(3);
    tracker.Take(
        {EventKind::kPassedOver, "../a.TZZ\" of the listing is passed over: it holds a slash"});
    tracker.Take(
        {EventKind::kPassedOver, "../a.log\" of the listing is passed over: it holds a slash"});
    tracker.Take({EventKind::kListed, "2"});
    tracker.Take({EventKind::kGetting, "b.log"});
    tracker.Take({EventKind::kGetting, "c.tzz"});
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

TEST(IpmiRunTracker, ListingBeforeTheGatheringDoesNotCount) {
    RunTracker run(5);
    run.Take({EventKind::kPassedOver, "../x\" of the listing is passed over: it holds a slash"});
    ASSERT_EQ(run.Events().files.size(), 1U);

    run.Take({EventKind::kStarting, ""});

    EXPECT_TRUE(run.Events().files.empty());
}

TEST(IpmiRunTracker, FirstReasonOfALostSessionStays) {
    RunTracker tracker(2);
    tracker.Take({EventKind::kSessionTrouble, "IPMI to b port 623: no answer within 30 seconds"});
    tracker.Take({EventKind::kSessionTrouble,
                  "IPMI: nothing is connected, or the session was lost; connect again"});

    EXPECT_EQ(tracker.Events().sessionTrouble, "IPMI to b port 623: no answer within 30 seconds");
}

TEST(IpmiRunTracker, SameSentenceAboutAHostKeyIsKeptOnce) {
    RunTracker tracker(2);
    for (int transfer = 0; transfer < 3; ++transfer) tracker.Take({EventKind::kHostKey, "one"});
    tracker.Take({EventKind::kHostKey, "another"});

    EXPECT_THAT(tracker.Events().hostKeys, ElementsAre("one", "another"));
}

}  // namespace
