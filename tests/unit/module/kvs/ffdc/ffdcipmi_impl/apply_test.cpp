// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <limits>
#include <stdexcept>

#include "fakes/FakeUri.h"
#include "unit/module/kvs/ffdc/IpmiTest.h"

using fakes::Failure;
using fakes::Journal;
using fakes::Milestone;
using fakes::Trace;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Varnex::KEMFfdcIpmiImpl;

using namespace std::chrono_literals;

namespace fs = boost::filesystem;

namespace {

const std::error_code kCut(79, std::generic_category());

class Recorder : public Varnex::LogMessageCallBack {
public:
    void LogMessage(const std::string& message) override { texts.push_back(message); }
    std::vector<std::string> texts;
};

class IpmiApply : public IpmiTest {
protected:
    std::vector<std::string> DownloadedNames() const {
        std::vector<std::string> names;
        for (const fakes::Download& download : files.Downloads()) {
            names.push_back(fs::path(download.localPath).filename().string());
        }
        return names;
    }

    std::ptrdiff_t Polls() {
        const auto journal = Journal::Take();
        return std::count(journal.begin(), journal.end(), "send 3A 4D 01");
    }
};

}  // namespace

TEST_F(IpmiApply, Mode2AsksTheOpenSessionForTheAccountAndFetchesEveryFile) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.log"});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);

    EXPECT_EQ(0, channel.Apply());

    EXPECT_EQ(runFolder, channel.GetFFDCPath());
    EXPECT_TRUE(fs::is_directory(runFolder));
    EXPECT_THAT(Journal::Take(),
                ElementsAre("send 3A 49 01", "send 3A 4D 01", "send 3A 79 01",
                            "list /download/ffdc/", "download /download/ffdc/a.tgz",
                            "download /download/ffdc/b.log", "disconnect"));
    const fakes::FileRequest listing = files.Listings().at(0);
    EXPECT_EQ("sftp", listing.scheme);
    EXPECT_EQ("10.0.0.5", listing.host);
    EXPECT_EQ(115, listing.port);
    EXPECT_EQ("root", listing.user);
    EXPECT_EQ("abc", listing.password);
    ASSERT_THAT(files.Downloads(), SizeIs(2));
    EXPECT_EQ(runFolder + "/a.tgz", files.Downloads()[0].localPath);
    EXPECT_EQ("root", files.Downloads()[0].user);
    EXPECT_EQ(0, files.Downloads()[0].option) << "no extra option";
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                    Trace("Exiting KEMFfdcIpmiImpl::CollectFiles()."),
                    Trace("KEMFfdcIpmiImpl m_strFFDCOutputPath_ = " + runFolder),
                    Milestone("Create m_strFFDCOutputPath " + runFolder),
                    Milestone("Create m_strFFDCOutputPath " + runFolder + " successfully."),
                    Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                    Trace("Exiting KEMFfdcIpmiImpl::IsCollectionFinished()."),
                    Trace("KEMFfdcIpmiImpl Apply  invoking IsCollectionFinished() successful"),
                    Trace("Entering KEMFfdcIpmiImpl::GetCredential."),
                    Trace("Exiting KEMFfdcIpmiImpl::GetCredential()."),
                    Trace("user name=root,password=xxxxx"),
                    Trace("Exiting TKEMFFDC::GetCredential()."), Failure("remote ffdc size = 2"),
                    Trace("Getting file a.tgz"), Trace("Getting file b.log"),
                    Trace("Exiting KEMFfdcIpmiImpl::Apply().")));
}

TEST_F(IpmiApply, OtherModesAskInBandAndReplaceTheClient) {
    BmcIsReady();
    files.ListingIs({"a.log"});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(5);

    EXPECT_EQ(0, channel.Apply());

    EXPECT_THAT(
        Journal::Take(),
        ElementsAre("send 3A 49 01", "send 3A 4D 01", "disconnect", "account of node 2",
                    "lan 10.0.0.5 admin secret 623 17", "connect", "list /download/ffdc/kem_dump/",
                    "download /download/ffdc/kem_dump/a.log", "disconnect"));
    EXPECT_EQ("inband", files.Listings().at(0).user);
    EXPECT_EQ("xyz", files.Listings().at(0).password);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                    Trace("Exiting KEMFfdcIpmiImpl::CollectFiles()."),
                    Trace("KEMFfdcIpmiImpl m_strFFDCOutputPath_ = " + runFolder),
                    Milestone("Create m_strFFDCOutputPath " + runFolder),
                    Milestone("Create m_strFFDCOutputPath " + runFolder + " successfully."),
                    Trace("Entering TKEMFFDC::IsCollectionFinished()."),
                    Trace("Exiting KEMFfdcIpmiImpl::IsCollectionFinished()."),
                    Trace("KEMFfdcIpmiImpl Apply  invoking IsCollectionFinished() successful"),
                    Trace("Enter KEMFfdcIpmiImpl::Connect"), Trace("Connect in IPMI LAN"),
                    Trace("KEMFfdcIpmiImpl::Connect Success "), Failure("remote ffdc size = 1"),
                    Trace("Getting file a.log"), Trace("Exiting KEMFfdcIpmiImpl::Apply().")));
}

TEST_F(IpmiApply, WithoutAnInBandAccountTheRunGoesOnWithAnEmptyOne) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {1});

    EXPECT_EQ(0, ConnectedChannel(5).Apply());

    EXPECT_EQ("", files.Listings().at(0).user);
    EXPECT_EQ("", files.Listings().at(0).password);
}

TEST_F(IpmiApply, CollectionThatCannotBeStartedDoesNotStopTheRun) {
    BmcIsReady();
    fakes::FakeIpmi refusing;
    refusing.Answer(kCollect, 0xC1, {});
    refusing.Answer(kPoll, 0, {1});
    refusing.Answer(kCredential, 0, {0, 0});

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_THAT(log.Lines()[2], Trace("Failed collecting BMC FFDC data for node: ."));
}

TEST_F(IpmiApply, OutputPathWithNoTrailingSeparatorGivesARunFolderNamedThatPlusKemffdcAndTheStamp) {
    BmcIsReady();
    outputPath = folder + "/C:\\out";

    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    EXPECT_EQ(0, channel.Apply());

    EXPECT_EQ(folder + "/C:\\outKEMFFDC20260307080905", channel.GetFFDCPath());
    EXPECT_TRUE(fs::is_directory(channel.GetFFDCPath()));
}

TEST_F(IpmiApply, MissingParentsOfTheRunFolderAreMade) {
    BmcIsReady();
    outputPath = folder + "/a/b/c/";

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_TRUE(fs::is_directory(folder + "/a/b/c/KEMFFDC20260307080905"));
}

TEST_F(IpmiApply, RunFolderThatIsThereAlreadyIsUsed) {
    BmcIsReady();
    fs::create_directories(runFolder);

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_THAT(log.Lines()[3], Milestone("m_strFFDCOutputPath " + runFolder + " already exist"));
}

TEST_F(IpmiApply, RunFolderThatCannotBeMadeReturns7AndLeavesTheSessionOpen) {
    BmcIsReady();
    std::ofstream(folder + "/file") << "no folder";
    outputPath = folder + "/file/";

    EXPECT_EQ(7, ConnectedChannel(2).Apply());

    EXPECT_THAT(Journal::Take(), ElementsAre("send 3A 49 01"));
    EXPECT_THAT(log.Lines().back(), Failure("Failed to create FFDC output path " + folder +
                                            "/file/KEMFFDC20260307080905"));
}

TEST_F(IpmiApply, PollsEveryFiveSecondsUntilTheBmcHasFinished) {
    BmcIsReady();
    fakes::FakeIpmi gathering;
    gathering.Answer(kCollect, 0, {});
    gathering.Answer(kPoll, 0, {0});
    gathering.Answer(kPoll, 0, {0});
    gathering.Answer(kPoll, 0, {1});
    gathering.Answer(kCredential, 0, {0, 0});

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_EQ(3, Polls());
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s, 5s));
}

TEST_F(IpmiApply,
       ABmcThatAnswersThePollWith00For15MinutesEndsTheLoopAfterThe180thPollAndTheRunGoesOn) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {0});
    bmc.Answer(kCredential, 0, {0, 0});

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_EQ(180, Polls());
    EXPECT_THAT(clock.Slept(), SizeIs(180));
    EXPECT_EQ(900s, clock.SleptInAll());
    EXPECT_THAT(log.Lines(),
                Contains(Trace(
                    "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem")));
    EXPECT_THAT(files.Listings(), SizeIs(1));
}

TEST_F(IpmiApply, SleepsBeforeEachPoll) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {0});
    bmc.Answer(kPoll, 0, {1});
    bmc.Answer(kCredential, 0, {0, 0});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    clock.OnSleep([](std::chrono::milliseconds time) {
        Journal::Append("sleep " + std::to_string(time.count()));
    });

    EXPECT_EQ(0, channel.Apply());

    EXPECT_THAT(Journal::Take(), ElementsAre("send 3A 49 01", "sleep 5000", "send 3A 4D 01",
                                             "sleep 5000", "send 3A 4D 01", "send 3A 79 01",
                                             "list /download/ffdc/", "disconnect"));
}

TEST_F(IpmiApply, APollThatFailsOnceEndsTheLoopAtOnceAndTheRunGoesOn) {
    bmc.Answer(kCollect, 0, {});
    bmc.SendFails(kPoll);
    bmc.Answer(kCredential, 0, {0, 0});

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_EQ(1, Polls());
    EXPECT_THAT(log.Lines(),
                Contains(Trace("KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()")));
    EXPECT_THAT(files.Listings(), SizeIs(1));
}

TEST_F(IpmiApply, TellsTheCallBackOnceThatItIsInProgressAndThenADotAPoll) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {0});
    bmc.Answer(kPoll, 0, {1});
    bmc.Answer(kCredential, 0, {0, 0});
    Recorder recorder;
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    channel.SetLogCallBack(&recorder);

    EXPECT_EQ(0, channel.Apply());

    EXPECT_THAT(recorder.texts, ElementsAre("In progress", ".", "."));
}

TEST_F(IpmiApply, CallBackIsReadAfreshOnEveryPass) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {0});
    bmc.Answer(kCredential, 0, {0, 0});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    class Once : public Recorder {
    public:
        explicit Once(KEMFfdcIpmiImpl& from) : m_from(from) {}
        void LogMessage(const std::string& message) override {
            Recorder::LogMessage(message);
            if (message == ".") m_from.SetLogCallBack(nullptr);
        }

    private:
        KEMFfdcIpmiImpl& m_from;
    } once(channel);
    channel.SetLogCallBack(&once);

    EXPECT_EQ(0, channel.Apply());

    EXPECT_THAT(once.texts, ElementsAre("In progress", "."));
    EXPECT_EQ(180, Polls());
}

TEST_F(IpmiApply, StandardOutputIsFlushedAfterEachDot) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {0});
    bmc.Answer(kPoll, 0, {1});
    bmc.Answer(kCredential, 0, {0, 0});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    const std::string file = folder + "/stdout";
    class Printing : public Varnex::LogMessageCallBack {
    public:
        explicit Printing(const std::string& file) : m_file(file) {}
        void LogMessage(const std::string& message) override {
            arrived.push_back(fs::file_size(m_file));
            std::fputs(message.c_str(), stdout);
        }
        std::vector<std::uintmax_t> arrived;

    private:
        std::string m_file;
    };
    std::fflush(stdout);
    const int terminal = dup(STDOUT_FILENO);
    const int target = open(file.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(target, STDOUT_FILENO);
    Printing printing(file);
    channel.SetLogCallBack(&printing);

    const int result = channel.Apply();

    std::fflush(stdout);
    dup2(terminal, STDOUT_FILENO);
    close(terminal);
    close(target);
    EXPECT_EQ(0, result);
    EXPECT_THAT(printing.arrived, ElementsAre(0U, 0U, 12U)) << "the dot and what came before it";
}

TEST_F(IpmiApply, Mode2WithoutACredentialReturns1AndDisconnects) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {1});
    bmc.Answer(kCredential, 0xD4, {});

    EXPECT_EQ(1, ConnectedChannel(2).Apply());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("send 3A 49 01", "send 3A 4D 01", "send 3A 79 01", "disconnect"));
    EXPECT_THAT(log.Lines().back(), Failure("Failed getting BMC credential "));
}

TEST_F(IpmiApply, OtherModesThatCannotReconnectReturn1AndDisconnect) {
    BmcIsReady();
    KEMFfdcIpmiImpl& channel = ConnectedChannel(3);
    bmc.NextConnect(1);

    EXPECT_EQ(1, channel.Apply());

    EXPECT_THAT(Journal::Take(),
                ElementsAre("send 3A 49 01", "send 3A 4D 01", "disconnect", "account of node 2",
                            "lan 10.0.0.5 admin secret 623 17", "connect", "disconnect"));
    EXPECT_THAT(log.Lines().back(), Trace("Failed to connect ipmi KCS."));
}

TEST_F(IpmiApply, AnEmptyHostAndAUsbLanNodeWithTheAddressFe801GiveTheHostInBracketsInTheUri) {
    BmcIsReady();
    conn.host = "";
    bmc.UsbLanIs(0, {{"fe80::1", "usb0"}, {"fe80::2", "usb1"}});

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_EQ("[fe80::1]", files.Listings().at(0).host);
    EXPECT_THAT(Journal::Take(), Contains("usb lan instance 0 false"));
}

TEST_F(IpmiApply, IPv6HostIsWrittenInBrackets) {
    BmcIsReady();
    conn.host = "2001:db8::5";

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_EQ("[2001:db8::5]", files.Listings().at(0).host);
}

TEST_F(IpmiApply, WithoutAHostItReturns6AndLeavesTheSessionOpen) {
    conn.host = "";
    struct Row {
        int result;
        UsbLanNodeList nodes;
    };
    for (const Row& row : {Row{1, {{"fe80::1", "usb0"}}}, Row{0, {}}}) {
        BmcIsReady();
        bmc.UsbLanIs(row.result, row.nodes);

        EXPECT_EQ(6, ConnectedChannel(2).Apply());

        EXPECT_THAT(Journal::Take(),
                    ElementsAre("send 3A 49 01", "send 3A 4D 01", "send 3A 79 01",
                                "usb lan instance 0 false", "usb lan query false"));
        EXPECT_THAT(log.Lines().back(), Trace("Exiting TKEMFFDC::GetCredential()."));
        clock.SetLocalTime({});
    }
}

TEST_F(IpmiApply, Mode2ListsOnlyOnceAndReturns1) {
    BmcIsReady();
    files.NextListingFails(kCut);

    EXPECT_EQ(1, ConnectedChannel(2).Apply());

    EXPECT_THAT(files.Listings(), SizeIs(1));
    EXPECT_THAT(log.Lines().back(),
                Failure("Failed getting BMC FFDC data files, error is 79 " + kCut.message()));
    EXPECT_EQ("disconnect", Journal::Take().back());
}

TEST_F(IpmiApply, OtherModesListOnceMoreWithTheConnectionsOwnCredential) {
    BmcIsReady();
    files.NextListingFails(kCut);
    files.ListingIs({"a.tgz"});

    EXPECT_EQ(0, ConnectedChannel(5).Apply());

    ASSERT_THAT(files.Listings(), SizeIs(2));
    EXPECT_EQ("inband", files.Listings()[0].user);
    EXPECT_EQ("admin", files.Listings()[1].user);
    EXPECT_EQ("secret", files.Listings()[1].password);
    EXPECT_EQ("admin", files.Downloads().at(0).user);
    EXPECT_EQ("secret", files.Downloads().at(0).password);
}

TEST_F(IpmiApply, SecondListingThatFailsReturns1WithItsOwnError) {
    BmcIsReady();
    files.NextListingFails(kCut);
    files.NextListingFails(std::make_error_code(std::errc::permission_denied));

    EXPECT_EQ(1, ConnectedChannel(3).Apply());

    EXPECT_THAT(log.Lines().back(),
                Failure("Failed getting BMC FFDC data files, error is 13 Permission denied"));
    EXPECT_EQ("disconnect", Journal::Take().back());
}

TEST_F(IpmiApply, UriThatCannotBeFormedReturns1WithItsTextAndDisconnects) {
    BmcIsReady();
    fakes::FakeUri::NextThrows(std::make_exception_ptr(std::invalid_argument("no such host")));

    EXPECT_EQ(1, ConnectedChannel(2).Apply());

    EXPECT_THAT(log.Lines().back(),
                Failure("Failed getting BMC FFDC data files, error is no such host"));
    EXPECT_EQ("disconnect", Journal::Take().back());
}

TEST_F(IpmiApply, MemoryThatRunsOutLeavesTheOperation) {
    BmcIsReady();
    fakes::FakeUri::NextThrows(std::make_exception_ptr(std::bad_alloc()));

    EXPECT_THROW(ConnectedChannel(2).Apply(), std::bad_alloc);
}

TEST_F(IpmiApply, Mode3WithAListingOfATZZAndBTxtDownloadsOnlyATZZ) {
    BmcIsReady();
    files.ListingIs({"a.TZZ", "b.txt"});

    EXPECT_EQ(0, ConnectedChannel(3).Apply());

    EXPECT_THAT(DownloadedNames(), ElementsAre("a.TZZ"));
    EXPECT_THAT(log.Lines(), Contains(Trace("Getting file b.txt")));
}

TEST_F(IpmiApply, Mode2WithAFailingDownloadOfXTGZReturns8AtOnce) {
    BmcIsReady();
    files.ListingIs({"x.TGZ", "y.log"});
    files.DownloadFailsOf("x.TGZ", kCut);

    EXPECT_EQ(8, ConnectedChannel(2).Apply());

    EXPECT_THAT(DownloadedNames(), ElementsAre("x.TGZ"));
    EXPECT_THAT(log.Lines().back(),
                Failure("Failed to download file \"x.TGZ\", error is 79 " + kCut.message()));
    EXPECT_EQ("disconnect", Journal::Take().back());
}

TEST_F(IpmiApply, AFailingXLogIsOnlyLoggedAndTheResultStays0) {
    BmcIsReady();
    files.ListingIs({"x.log", "y.tgz"});
    files.DownloadFailsOf("x.log", kCut);

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_THAT(DownloadedNames(), ElementsAre("x.log", "y.tgz"));
    EXPECT_THAT(log.Lines(), Contains(Failure("Failed to download file \"x.log\", error is 79 " +
                                              kCut.message())));
}

TEST_F(IpmiApply, Mode5WithFailingDownloadsOfATgzAndBTzzGives8) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.tzz", "c.log"});
    files.DownloadFailsOf("a.tgz", kCut);
    files.DownloadFailsOf("b.tzz", kCut);

    EXPECT_EQ(8, ConnectedChannel(5).Apply());

    EXPECT_THAT(DownloadedNames(), ElementsAre("a.tgz", "b.tzz", "c.log"));
    EXPECT_THAT(log.Lines(), Not(Contains(Trace("Exiting KEMFfdcIpmiImpl::Apply()."))));
    EXPECT_EQ("disconnect", Journal::Take().back());
}

TEST_F(IpmiApply,
       Mode5WithAFailingATGZTogetherWithBTzzGives0BecauseTheEndOfRunTestIsCaseSensitive) {
    BmcIsReady();
    files.ListingIs({"a.TGZ", "b.tzz"});
    files.DownloadFailsOf("a.TGZ", kCut);
    files.DownloadFailsOf("b.tzz", kCut);

    EXPECT_EQ(0, ConnectedChannel(5).Apply());
}

TEST_F(IpmiApply, Mode5WithOneKindOfArchiveMissingGives0) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.tgz", "c.tzz"});
    files.DownloadFailsOf(".tgz", kCut);

    EXPECT_EQ(0, ConnectedChannel(5).Apply());

    EXPECT_THAT(log.Lines().back(), Trace("Exiting KEMFfdcIpmiImpl::Apply()."));
}

TEST_F(IpmiApply, Mode3WithAFailingTzzFetchesTheOthersAndGives0) {
    BmcIsReady();
    files.ListingIs({"a.tzz", "b.TZZ", "c.tzz"});
    files.DownloadFailsOf("a.tzz", kCut);
    files.DownloadFailsOf("b.TZZ", kCut);

    EXPECT_EQ(0, ConnectedChannel(3).Apply());

    EXPECT_THAT(DownloadedNames(), ElementsAre("a.tzz", "b.TZZ", "c.tzz"));
    EXPECT_THAT(log.Lines().back(), Trace("Exiting KEMFfdcIpmiImpl::Apply()."));
}

TEST_F(IpmiApply,
       Mode5WithAFailingATgzTogetherWithBTZZGives0BecauseTheEndOfRunTestIsCaseSensitive) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.TZZ"});
    files.DownloadFailsOf("a.tgz", kCut);
    files.DownloadFailsOf("b.TZZ", kCut);

    EXPECT_EQ(0, ConnectedChannel(5).Apply());
}

class IpmiApplyAnyOtherMode : public IpmiApply, public testing::WithParamInterface<int> {};

TEST_P(IpmiApplyAnyOtherMode, AsksInBandAndFetchesEveryFile) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.log", "c.tzz"});
    files.DownloadFailsOf("a.tgz", kCut);

    EXPECT_EQ(0, ConnectedChannel(GetParam()).Apply());

    EXPECT_THAT(
        Journal::Take(),
        ElementsAre("send 3A 49 01", "send 3A 4D 01", "disconnect", "account of node 2",
                    "lan 10.0.0.5 admin secret 623 17", "connect", "list /download/ffdc/kem_dump/",
                    "download /download/ffdc/kem_dump/a.tgz",
                    "download /download/ffdc/kem_dump/b.log",
                    "download /download/ffdc/kem_dump/c.tzz", "disconnect"));
    EXPECT_EQ("inband", files.Listings().at(0).user);
}

INSTANTIATE_TEST_SUITE_P(Mode, IpmiApplyAnyOtherMode,
                         testing::Values(0, 1, 4, -1, -2, -3, std::numeric_limits<int>::min()));

TEST_F(IpmiApply, SecondRunHasAFolderOfItsOwn) {
    BmcIsReady();
    files.ListingIs({"a.log"});
    KEMFfdcIpmiImpl& channel = ConnectedChannel(2);
    EXPECT_EQ(0, channel.Apply());
    EXPECT_EQ(runFolder, channel.GetFFDCPath());
    std::tm later{};
    later.tm_year = 127;
    later.tm_mday = 1;
    clock.SetLocalTime(later);
    BmcIsReady();

    EXPECT_EQ(0, channel.Apply());

    const std::string second = outputPath + "KEMFFDC20270101000000";
    EXPECT_EQ(second, channel.GetFFDCPath());
    EXPECT_TRUE(fs::is_directory(second));
    EXPECT_EQ(second + "/a.log", files.Downloads().back().localPath);
}

TEST_F(IpmiApply, RunFolderWhoseStatusCannotBeToldCountsAsAbsent) {
    BmcIsReady();
    outputPath = folder + "/" + std::string(250, 'n');  // with the stamp too long for a name
    const std::string tooLong = outputPath + "KEMFFDC20260307080905";

    EXPECT_EQ(7, ConnectedChannel(2).Apply());

    EXPECT_THAT(log.Lines(), ElementsAre(Trace("Entering KEMFfdcIpmiImpl::CollectFiles."),
                                         Trace("Exiting KEMFfdcIpmiImpl::CollectFiles()."),
                                         Trace("KEMFfdcIpmiImpl m_strFFDCOutputPath_ = " + tooLong),
                                         Milestone("Create m_strFFDCOutputPath " + tooLong),
                                         Failure("Failed to create FFDC output path " + tooLong)));
}

// The order of the disconnection and the line about it.
class IpmiApplyEnds : public IpmiApply {
protected:
    // What a run writes and does from `line` on, and right before it.
    std::vector<std::string> End(KEMFfdcIpmiImpl& channel, const std::string& line, int result) {
        log.OnLine([](const fakes::LogLine& written) { Journal::Append("log " + written.text); });
        EXPECT_EQ(result, channel.Apply());
        std::vector<std::string> all = Journal::Take();
        const auto found = std::find(all.begin(), all.end(), "log " + line);
        EXPECT_NE(found, all.end());
        return {found == all.begin() ? found : found - 1, all.end()};
    }
};

TEST_F(IpmiApplyEnds, WithoutACredentialTheLineComesFirst) {
    bmc.Answer(kCollect, 0, {});
    bmc.Answer(kPoll, 0, {1});
    bmc.Answer(kCredential, 0, {});

    EXPECT_THAT(End(ConnectedChannel(2), "Failed getting BMC credential ", 1),
                ElementsAre("log the size of response_date is 0, return false",
                            "log Failed getting BMC credential ", "disconnect"));
}

TEST_F(IpmiApplyEnds, WithoutASecondConnectionTheLineComesFirst) {
    BmcIsReady();
    KEMFfdcIpmiImpl& channel = ConnectedChannel(5);
    bmc.NextConnect(1);

    EXPECT_THAT(End(channel, "Failed to connect ipmi KCS.", 1),
                ElementsAre("connect", "log Failed to connect ipmi KCS.", "disconnect"));
}

TEST_F(IpmiApplyEnds, WithoutAListingTheDisconnectionComesFirst) {
    BmcIsReady();
    files.NextListingFails(kCut);
    const std::string line = "Failed getting BMC FFDC data files, error is 79 " + kCut.message();

    EXPECT_THAT(End(ConnectedChannel(2), line, 1), ElementsAre("disconnect", "log " + line));
}

TEST_F(IpmiApplyEnds, WithoutAnArchiveTheLineComesFirst) {
    BmcIsReady();
    files.ListingIs({"a.tgz", "b.log"});
    files.DownloadFailsOf("a.tgz", kCut);
    const std::string line = "Failed to download file \"a.tgz\", error is 79 " + kCut.message();

    EXPECT_THAT(End(ConnectedChannel(2), line, 8),
                ElementsAre("download /download/ffdc/a.tgz", "log " + line, "disconnect"));
}

TEST_F(IpmiApplyEnds, AfterTheLastFileTheDisconnectionComesFirst) {
    BmcIsReady();
    files.ListingIs({"a.log"});

    EXPECT_THAT(End(ConnectedChannel(2), "Exiting KEMFfdcIpmiImpl::Apply().", 0),
                ElementsAre("disconnect", "log Exiting KEMFfdcIpmiImpl::Apply()."));
}

TEST_F(IpmiApply, AnEmptyFolderOnTheBmcIsDone) {
    BmcIsReady();

    EXPECT_EQ(0, ConnectedChannel(2).Apply());

    EXPECT_THAT(log.Lines(), Contains(Failure("remote ffdc size = 0")));
    EXPECT_THAT(files.Downloads(), IsEmpty());
}

TEST_F(IpmiApply, WithoutAClientMode2Returns1) {
    EXPECT_EQ(1, Channel(2).Apply());

    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_THAT(log.Lines().back(), Failure("Failed getting BMC credential "));
}

TEST_F(IpmiApply, PasswordsNeverReachTheLog) {
    BmcIsReady();
    conn.password = "connection-secret";
    fakes::FakeIpmi secretive;
    secretive.Answer(kCollect, 0, {});
    secretive.Answer(kPoll, 0, {1});
    secretive.Answer(kCredential, 0, {1, 'u', 6, 'S', 'E', 'C', 'R', 'E', 'T'});
    files.ListingIs({"a.tgz"});
    files.DownloadFailsOf("a.tgz", kCut);
    KEMFfdcIpmiImpl channel(conn, outputPath, 2);
    channel.Connect();

    channel.Apply();

    for (const fakes::LogLine& line : log.Lines()) {
        EXPECT_EQ(std::string::npos, line.text.find("connection-secret")) << line.text;
        EXPECT_EQ(std::string::npos, line.text.find("SECRET")) << line.text;
    }
}
