// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <boost/json/parse.hpp>
#include <chrono>
#include <thread>

#include "journeys/JourneyTest.h"
#include "support/Peer.h"

using testing::ElementsAre;
using Varnex::KEMFfdc;

using namespace std::chrono_literals;

namespace {

class RedfishJourney : public JourneyTest {
protected:
    // From the constructor to the file, which is compared with the BMC's own.
    void CollectAndDownload(Varnex::BMCLogOption option, const char* archive) {
        KEMFfdc ffdc(conn, uri, option);
        ffdc.SetTrialCount(10);
        EXPECT_EQ(0, ffdc.Connect());
        ASSERT_EQ(0, ffdc.Apply());
        std::string path;
        ASSERT_TRUE(ffdc.IsFFDCLogExist(path));
        const std::string file = folder + "/archive.tar.gz";
        ASSERT_EQ(0, ffdc.DownloadFFDC(path, file));
        ffdc.Disconnect();
        ExpectSameBytes(bmc->Text(archive), file);
        EXPECT_FALSE(boost::filesystem::exists(file + ".part"));
    }
};

constexpr char kStates[] = "redfish:\n  task_states: [New, Starting, Running, Completed]\n";

}  // namespace

TEST_F(RedfishJourney, DownloadsTheFullArchive) {
    Start(kStates);

    CollectAndDownload(Varnex::BMCLOG_PROCESSOR_DUMP, "/archives/full/file");

    ExpectLog("redfish/download");
    ExpectRequests("redfish/download");
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s, 5s));
    ExpectNowhereInLog("secret");
}

TEST_F(RedfishJourney, OlderBmcGivesItsMiniLog) {
    Start("redfish:\n  version: 1.5.0\n  task_states: [Running, Completed]\n");

    CollectAndDownload(Varnex::BMCLOG_MINI_LOG, "/archives/mini/file");

    ExpectLog("redfish/older");
    ExpectRequests("redfish/older");
}

TEST_F(RedfishJourney, WaitsForABmcThatIsStillStarting) {
    Start(R"(
redfish:
  task_states: [Completed]
  answers:
    "GET /redfish/v1/": [{status: 503, body: "starting"}, {status: 503, body: "starting"}, {}]
)");

    CollectAndDownload(Varnex::BMCLOG_PROCESSOR_DUMP, "/archives/full/file");

    ExpectLog("redfish/starting");
    EXPECT_THAT(clock.Slept(), ElementsAre(5s, 5s));
}

TEST_F(RedfishJourney, TaskThatIsKilledEndsTheWait) {
    Start("redfish:\n  task_states: [Running, Killed]\n");
    KEMFfdc ffdc(conn, uri, Varnex::BMCLOG_PROCESSOR_DUMP);
    ffdc.SetTrialCount(10);
    EXPECT_EQ(0, ffdc.Connect());
    ASSERT_EQ(0, ffdc.Apply());
    std::string path = "untouched";

    EXPECT_FALSE(ffdc.IsFFDCLogExist(path));

    EXPECT_EQ("", path);
    ExpectLog("redfish/killed");
}

TEST_F(RedfishJourney, WrongPasswordIsNotConnected) {
    Start("");
    conn.password = "wrong";

    KEMFfdc ffdc(conn, uri, Varnex::BMCLOG_PROCESSOR_DUMP);

    EXPECT_EQ(1, ffdc.Connect());
    EXPECT_EQ(2, ffdc.Apply());
    EXPECT_EQ(2, ffdc.DownloadFFDC("/download/x", folder + "/x"));
    EXPECT_TRUE(boost::filesystem::is_empty(folder));
}

TEST_F(RedfishJourney, BmcThatUploadsByItselfReportsTheExportUri) {
    const Peer store({"/usr/bin/python3", VARNEX_SFTP_STORE, folder});
    uri.filestore_uri_ =
        "sftp://127.0.0.1:" + std::to_string(std::stoi(store.Line())) + "/a.tar.gz";
    uri.filestore_user_ = "store";
    uri.filestore_password_ = "store-secret";
    Start("redfish:\n  task_states: [Running, Completed]\n");
    KEMFfdc ffdc(conn, uri, Varnex::BMCLOG_PROCESSOR_DUMP);
    // The upload takes its time, which the fake clock does not give it.
    ffdc.SetTrialCount(1);
    ASSERT_EQ(0, ffdc.Apply());
    std::string path;
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!ffdc.IsFFDCLogExist(path) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(50ms);
    }

    EXPECT_EQ(uri.filestore_uri_, path);
    ExpectSameBytes(bmc->Text("/archives/full/file"), folder + "/a.tar.gz");
    ExpectNowhereInLog("store-secret");
}

TEST_F(RedfishJourney, RunsOverIPv6) {
    Start(kStates, {"--bind", "::1"});
    conn.connection_ipversion = 1;

    CollectAndDownload(Varnex::BMCLOG_PROCESSOR_DUMP, "/archives/full/file");
}

TEST_F(RedfishJourney, RunsThroughAFrontThatSpeaksHttp2) {
    if (Peers().empty()) GTEST_SKIP() << "no nghttpx: VARNEX_PEERS is not set";
    Start(kStates);
    const Peer front({VARNEX_HTTP2_FRONT, conn.host, std::to_string(conn.port)});
    conn.port =
        static_cast<std::uint16_t>(boost::json::parse(front.Line()).at("port").to_number<int>());

    CollectAndDownload(Varnex::BMCLOG_PROCESSOR_DUMP, "/archives/full/file");
}

TEST_F(RedfishJourney, EightObjectsInEightThreadsDoNotDisturbEachOther) {
    Start("redfish:\n  task_states: [Completed]\n");
    std::atomic<int> downloaded{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this, i, &downloaded] {
            KEMFfdc ffdc(conn, uri, Varnex::BMCLOG_PROCESSOR_DUMP);
            std::string path;
            if (ffdc.Connect() == 0 && ffdc.Apply() == 0 && ffdc.IsFFDCLogExist(path) &&
                ffdc.DownloadFFDC(path, folder + "/" + std::to_string(i)) == 0) {
                ++downloaded;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(8, downloaded);
    for (int i = 0; i < 8; ++i) {
        ExpectSameBytes(bmc->Text("/archives/full/file"), folder + "/" + std::to_string(i));
    }
}
