// SPDX-License-Identifier: Apache-2.0
#include "IpmiRecords.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace {

using Kemffdc::FileProgress;
using Kemffdc::FindIpmiSign;
using Kemffdc::IpmiLedger;
using Kemffdc::IpmiSign;
using Kemffdc::NotTried;
using Kemffdc::RemoteFile;
using State = Kemffdc::RemoteFile::State;
using testing::ElementsAre;
using testing::SizeIs;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcipmi_impl";

struct RecordRow {
    int level;
    const char* source;
    const char* text;
    IpmiSign sign;
    const char* rest;
};

// As the library and the platform write them.
const RecordRow kRows[] = {
    {1, "platform/src/IpmiClient", "IPMI to 192.0.2.1 port 623: refused; nothing listens",
     IpmiSign::kSessionTrouble, "IPMI to 192.0.2.1 port 623: refused; nothing listens"},
    {1, "platform/src/KEMAccount", "The BMC gives no account", IpmiSign::kInBandTrouble,
     "The BMC gives no account"},
    {1, "platform/src/UsbLanCfg", "no interface", IpmiSign::kInBandTrouble, "no interface"},
    {4, kChannel, "Entering KEMFfdcIpmiImpl::CollectFiles.", IpmiSign::kStarting, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.",
     IpmiSign::kStartUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.",
     IpmiSign::kStartRefused, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.",
     IpmiSign::kPollUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.",
     IpmiSign::kPollRefused, ""},
    {4, kChannel, "KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()",
     IpmiSign::kPollFailed, ""},
    {4, kChannel, "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem",
     IpmiSign::kTimedOut, ""},
    {4, kChannel, "Entering KEMFfdcIpmiImpl::GetCredential.", IpmiSign::kAskingAccount, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.",
     IpmiSign::kAccountUnsent, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.",
     IpmiSign::kAccountRefused, ""},
    {1, kChannel, "the size of response_date is 0, return false", IpmiSign::kAccountCut, ""},
    {1, kChannel, "Failed getting BMC credential ", IpmiSign::kNoAccount, ""},
    {4, kChannel, "KEMFfdcIpmiImpl::Connect Success ", IpmiSign::kConnected, ""},
    {4, kChannel, "Failed to connect ipmi KCS.", IpmiSign::kNotReconnected, ""},
    {1, kChannel, "Failed getting BMC FFDC data files, error is 67 Authentication failure",
     IpmiSign::kNotListed, "67 Authentication failure"},
    {1, kChannel, "remote ffdc size = 3", IpmiSign::kListed, "3"},
    {4, kChannel, "Getting file a b.tgz", IpmiSign::kGetting, "a b.tgz"},
    {2, "platform/src/file_client",
     "The name \"../x\" of the listing is passed over: it holds a slash.", IpmiSign::kPassedOver,
     "../x\" of the listing is passed over: it holds a slash"},
    {3, "platform/src/HostKeyCheck", "The host key of b:115, t SHA256:x, is new.",
     IpmiSign::kHostKey, "The host key of b:115, t SHA256:x, is new."},
    {4, "platform/src/HostKeyCheck", "The host key of b:115, t SHA256:x, is not verified.",
     IpmiSign::kHostKey, "The host key of b:115, t SHA256:x, is not verified."},
    {1, kChannel, "Failed to create FFDC output path /x", IpmiSign::kNoRunFolder, "/x"},
};

TEST(FindIpmiSign, EveryRecordThatTellsSomethingIsKnown) {
    for (const RecordRow& row : kRows) {
        const std::string text = row.text;
        const auto finding = FindIpmiSign({row.level, row.source, 1, text});
        ASSERT_TRUE(finding.has_value()) << text;
        EXPECT_EQ(finding->sign, row.sign) << text;
        EXPECT_EQ(finding->text, row.rest) << text;
    }
}

TEST(FindIpmiSign, OthersTellNothing) {
    const std::string texts[] = {"host=192.0.2.1", "Exiting KEMFfdcIpmiImpl::CollectFiles().",
                                 "The host key of b:115, t SHA256:x, is known."};
    for (const std::string& text : texts) {
        EXPECT_FALSE(FindIpmiSign({4, kChannel, 1, text}).has_value()) << text;
        EXPECT_FALSE(FindIpmiSign({4, "platform/src/HostKeyCheck", 1, text}).has_value()) << text;
    }
    const std::string listed = "remote ffdc size = 3";
    EXPECT_FALSE(FindIpmiSign({4, kChannel, 1, listed}).has_value()) << "of another level";
    EXPECT_FALSE(FindIpmiSign({1, "x", 1, listed}).has_value()) << "of another source";
}

TEST(IpmiLedger, FilesEndAsTheirTransfersDo) {
    IpmiLedger ledger(2);
    ledger.Take({IpmiSign::kListed, "5"});
    ledger.Take({IpmiSign::kGetting, "a.tgz"});
    ledger.TransferStarted();
    EXPECT_EQ(ledger.Account().files[0].state, State::kRunning);
    EXPECT_EQ(FileProgress(ledger.Account()), "file 1 of 5");
    ledger.TransferEnded({});
    ledger.Take({IpmiSign::kGetting, "b.log"});
    ledger.TransferStarted();
    ledger.TransferEnded({ENOSPC, std::generic_category()});
    ledger.Take({IpmiSign::kGetting, "c"});
    ledger.TransferStarted();
    ledger.TransferEnded({ENAMETOOLONG, std::generic_category()});

    const auto& files = ledger.Account().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].state, State::kFetched);
    EXPECT_EQ(files[1].state, State::kFailed);
    EXPECT_TRUE(files[1].localTrouble);
    EXPECT_EQ(files[1].reason, "No space left on device (generic:28)");
    EXPECT_FALSE(files[2].localTrouble) << "the BMC's name is at fault, not this machine";
    EXPECT_EQ(NotTried(ledger.Account()), 2u);
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

TEST(IpmiLedger, FoldersOfTheBmcArePassedOverAndNotMissing) {
    const FolderCategory category;
    IpmiLedger ledger(2);
    ledger.Take({IpmiSign::kListed, "3"});
    for (const char* name : {"kem_dump", "older.tgz", "log"}) {
        ledger.Take({IpmiSign::kGetting, name});
        ledger.TransferStarted();
        ledger.TransferEnded(std::string(name) == "log"
                                 ? std::error_code(EISDIR, std::generic_category())
                                 : std::error_code(79, category));
    }

    const auto& files = ledger.Account().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].state, State::kFolder);
    EXPECT_EQ(files[0].reason, "");
    EXPECT_EQ(files[1].state, State::kFailed) << "the library's run ends at an archive";
    EXPECT_EQ(files[2].state, State::kFailed) << "a folder of this machine is in the way";
}

TEST(IpmiLedger, NamesThatModeThreeDoesNotAskForAreSkipped) {
    IpmiLedger ledger(3);
    ledger.Take(
        {IpmiSign::kPassedOver, "../a.TZZ\" of the listing is passed over: it holds a slash"});
    ledger.Take(
        {IpmiSign::kPassedOver, "../a.log\" of the listing is passed over: it holds a slash"});
    ledger.Take({IpmiSign::kListed, "2"});
    ledger.Take({IpmiSign::kGetting, "b.log"});
    ledger.Take({IpmiSign::kGetting, "c.tzz"});
    ledger.TransferStarted();
    ledger.TransferEnded({});

    const auto& files = ledger.Account().files;
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].name, "../a.TZZ");
    EXPECT_EQ(files[0].state, State::kPassedOver);
    EXPECT_EQ(files[0].reason, "it holds a slash");
    EXPECT_EQ(files[1].state, State::kSkipped);
    EXPECT_EQ(files[2].state, State::kFetched);
    EXPECT_EQ(NotTried(ledger.Account()), 0u);
    EXPECT_EQ(FileProgress(ledger.Account()), "file 2 of 2");
}

TEST(IpmiLedger, FirstReasonOfALostSessionStays) {
    IpmiLedger ledger(2);
    ledger.Take({IpmiSign::kSessionTrouble, "IPMI to b port 623: no answer within 30 seconds"});
    ledger.Take({IpmiSign::kSessionTrouble,
                 "IPMI: nothing is connected, or the session was lost; connect again"});

    EXPECT_EQ(ledger.Account().sessionTrouble, "IPMI to b port 623: no answer within 30 seconds");
}

TEST(IpmiLedger, SameSentenceAboutAHostKeyIsKeptOnce) {
    IpmiLedger ledger(2);
    for (int transfer = 0; transfer < 3; ++transfer) ledger.Take({IpmiSign::kHostKey, "one"});
    ledger.Take({IpmiSign::kHostKey, "another"});

    EXPECT_THAT(ledger.Account().hostKeys, ElementsAre("one", "another"));
}

}  // namespace
