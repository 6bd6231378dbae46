// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <stdexcept>
#include <type_traits>

#include "fakes/FakeCim.h"
#include "fakes/FakeIpmi.h"
#include "fakes/FakeMemory.h"
#include "fakes/Journal.h"
#include "unit/module/kvs/ffdc/RedfishTest.h"
#include "varnex/KEMFfdc.h"

using fakes::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using Varnex::KEMFfdc;

static_assert(sizeof(KEMFfdc) == 3 * sizeof(void*), "three owning pointers, nothing else");
static_assert(!std::is_polymorphic<KEMFfdc>::value, "no table of virtual functions");
static_assert(!std::is_copy_constructible<KEMFfdc>::value, "owns raw channel objects");
static_assert(!std::is_copy_assignable<KEMFfdc>::value, "owns raw channel objects");
static_assert(
    std::is_same<decltype(std::declval<KEMFfdc&>().GetFFDCPath()), const std::string>::value,
    "given signature");

namespace {

constexpr char kFacade[] = "src/module/kvs/ffdc/ffdc";

class FacadeForRedfish : public RedfishTest {
protected:
    FacadeForRedfish() {
        web.Answer(200, R"({"RedfishVersion":"1.15.0"})");
        ffdc = std::make_unique<KEMFfdc>(conn, uri, Varnex::BMCLOG_MINI_LOG);
    }
    std::unique_ptr<KEMFfdc> ffdc;
};

class CountingCallBack : public Varnex::LogMessageCallBack {
public:
    void LogMessage(const std::string&) override { ++count; }
    int count = 0;
};

class FacadeForCim : public RedfishTest {
protected:
    FacadeForCim() {
        conn.connection_case = 2;
        uri.filestore_uri_ = "tftp://10.0.0.9/in";
        ffdc = std::make_unique<KEMFfdc>(conn, uri, true);
    }
    fakes::FakeCim cim;
    std::unique_ptr<KEMFfdc> ffdc;
};

class FacadeForIpmi : public RedfishTest {
protected:
    FacadeForIpmi() {
        conn.connection_case = 1;
        ffdc = std::make_unique<KEMFfdc>(conn, "/dev/null/", 2);
    }
    fakes::FakeIpmi bmc;
    std::unique_ptr<KEMFfdc> ffdc;
};

// Built by each constructor while memory is short.
class FacadeWithoutChannel : public RedfishTest, public testing::WithParamInterface<const char*> {
protected:
    FacadeWithoutChannel() {
        const fakes::FakeMemory memory;
        if (std::string(GetParam()) == "CIM") {
            ffdc = std::make_unique<KEMFfdc>(conn, uri, true);
        } else if (std::string(GetParam()) == "IPMI") {
            ffdc = std::make_unique<KEMFfdc>(conn, "/out/", 2);
        } else {
            ffdc = std::make_unique<KEMFfdc>(conn, uri, Varnex::BMCLOG_MINI_LOG);
        }
    }
    std::unique_ptr<KEMFfdc> ffdc;
};

}  // namespace

TEST_F(FacadeForRedfish, ConstructorLogsItsLineBeforeTheChannelIsBuilt) {
    const auto lines = log.Lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(lines[0], Trace(kFacade, "Calling constructor of KEMFfdc for redfish channel"));
    EXPECT_THAT(lines[1], Trace("src/module/kvs/ffdc/ffdcredfish_impl",
                                "Calling constructor of KEMFfdcRedfishImpl"));
}

TEST_F(FacadeForRedfish, ConnectLogsItsLineAndReturnsTheChannelsResult) {
    log.Clear();
    web.Answer(404);
    web.Fail(CURLE_COULDNT_CONNECT);

    EXPECT_EQ(0, ffdc->Connect());
    EXPECT_EQ(1, ffdc->Connect());

    EXPECT_THAT(log.LinesOf(kFacade), ElementsAre(Trace("Calling implRedfish_ptr_ Connect"),
                                                  Trace("Calling implRedfish_ptr_ Connect")));
}

TEST_F(FacadeForRedfish, GetConnectStatusMakesAFreshAttemptAndLogsNothingInTheFacade) {
    log.Clear();
    web.Answer(404);

    EXPECT_EQ(0, ffdc->GetConnectStatus());

    EXPECT_EQ(2U, RequestCount());
    EXPECT_THAT(log.LinesOf(kFacade), IsEmpty());
}

TEST_F(FacadeForRedfish, OperationsAreForwardedWithoutALineOfTheFacade) {
    log.Clear();
    web.Answer(202, R"({"Id":"42"})");
    EXPECT_EQ(0, ffdc->Apply());
    EXPECT_EQ(R"({"InitializationNeeded":true,"DataCollectionType":"Mini-log"})",
              LastRequest().body);

    ffdc->SetTrialCount(2);
    ffdc->SetTrialInterval(7);
    web.Answer(200, R"({"TaskState":"Running"})");
    web.Answer(200, R"({"TaskState":"Completed",
                        "Oem":{"Tavrin":{"FFDCForDownloading":{"Path":"/a"}}}})");
    std::string path;
    EXPECT_TRUE(ffdc->IsFFDCLogExist(path));
    EXPECT_EQ("/a", path);
    EXPECT_THAT(clock.Slept(), ElementsAre(std::chrono::seconds(7)));

    web.Answer(201, "", {"X-Auth-Token: abc"});
    EXPECT_EQ(0, ffdc->DownloadFFDC(path, "/local"));
    EXPECT_EQ("/local", files.Downloads()[0].localPath);

    web.Answer(404);
    EXPECT_EQ(0, ffdc->ResetConn(conn));

    ffdc->Disconnect();
    EXPECT_EQ(2, ffdc->Apply());
    EXPECT_THAT(log.LinesOf(kFacade), IsEmpty());
}

TEST_F(FacadeForRedfish, AFacadeBuiltForTheRedfishChannelIgnoresSetLogCallBack) {
    CountingCallBack callBack;
    ffdc->SetLogCallBack(&callBack);
    web.Answer(202, R"({"Id":"42"})");
    ffdc->Apply();
    web.Answer(200, R"({"TaskState":"Running"})");
    std::string path;
    ffdc->IsFFDCLogExist(path);

    EXPECT_EQ(0, callBack.count);
}

TEST_F(FacadeForRedfish, GetFFDCPathIsEmptyOnAnObjectWithoutTheIpmiChannel) {
    EXPECT_EQ("", ffdc->GetFFDCPath());
}

TEST_F(FacadeForRedfish, DestructorLogsItsLineAndThenDestroysTheChannel) {
    log.Clear();

    ffdc.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling destructor of KEMFfdc"),
                                         Trace("src/module/kvs/ffdc/ffdcredfish_impl",
                                               "Calling destructor of KEMFfdcRedfishImpl")));
}

TEST_F(FacadeForRedfish, ExceptionWhileTheChannelIsConstructedPropagatesAndFreesTheChannel) {
    web.InitFails();

    EXPECT_THROW(KEMFfdc(conn, uri, Varnex::BMCLOG_MINI_LOG), std::runtime_error);
}

TEST_F(FacadeForCim, ConstructorLogsItsLineBeforeTheChannelIsBuilt) {
    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling constructor of KEMFfdc"),
                                         Trace("src/module/kvs/ffdc/ffdc_impl",
                                               "Calling constructor of KEMFfdcImpl")));
}

TEST_F(FacadeForCim, ConnectLogsItsLineAndGetConnectStatusBypassesIt) {
    log.Clear();

    EXPECT_EQ(0, ffdc->Connect());
    EXPECT_THAT(log.LinesOf(kFacade), ElementsAre(Trace("Calling impl_ptr_ Connect")));

    EXPECT_EQ(0, ffdc->GetConnectStatus());
    EXPECT_THAT(log.LinesOf(kFacade), ElementsAre(Trace("Calling impl_ptr_ Connect")));
}

TEST_F(
    FacadeForCim,
    AFacadeBuiltForTheCimChannelReturnsMinus1FromDownloadFFDCAndFalseFromIsFFDCLogExistAndIgnoresTheSetters) {
    log.Clear();
    CountingCallBack callBack;

    EXPECT_EQ(-1, ffdc->DownloadFFDC("/a", "/local"));
    std::string path = "untouched";
    EXPECT_FALSE(ffdc->IsFFDCLogExist(path));
    EXPECT_EQ("untouched", path);
    ffdc->SetTrialCount(3);
    ffdc->SetTrialInterval(3);
    ffdc->SetLogCallBack(&callBack);
    EXPECT_EQ("", ffdc->GetFFDCPath());

    EXPECT_EQ(0, callBack.count);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FacadeForCim, OperationsAreForwarded) {
    EXPECT_EQ(0, ffdc->ResetConn(conn));
    cim.Enumerate({fakes::MakeInstance("ZOR_FFDCService", "S")});
    cim.Enumerate({fakes::MakeInstance("ZOR_FFDCData", "1", "1")});
    cim.Return(Pegasus::CIMValue(Pegasus::Uint32(5)));
    EXPECT_EQ(5, ffdc->Apply());
    ffdc->Disconnect();
    EXPECT_EQ(1, ffdc->Apply());
}

TEST_F(FacadeForCim, DestructorLogsItsLineAndThenDestroysTheChannel) {
    log.Clear();

    ffdc.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling destructor of KEMFfdc"),
                                         Trace("src/module/kvs/ffdc/ffdc_impl",
                                               "Calling destructor of KEMFfdcImpl")));
}

TEST_F(FacadeForIpmi, ConstructorLogsItsLineBeforeTheChannelIsBuilt) {
    EXPECT_THAT(log.Lines()[0], Trace(kFacade, "Calling constructor of KEMFfdc for Ipmi channel"));
    EXPECT_THAT(log.Lines()[1], Trace("src/module/kvs/ffdc/ffdcipmi_impl",
                                      "Calling constructor of KEMFfdcIpmiImpl"));
}

TEST_F(FacadeForIpmi, GetConnectStatusOnAConnectedObjectMakesANewAttemptWithoutTheFacadesLines) {
    log.Clear();
    bmc.NextConnect(0);
    bmc.NextConnect(1);

    EXPECT_EQ(0, ffdc->Connect());
    EXPECT_THAT(log.LinesOf(kFacade), ElementsAre(Trace("Calling implIpmi_ptr_ Connect"),
                                                  Trace("After call implIpmi_ptr_ Connect")));
    log.Clear();

    EXPECT_EQ(1, ffdc->GetConnectStatus());
    EXPECT_THAT(log.LinesOf(kFacade), IsEmpty());
    EXPECT_THAT(fakes::Journal::Take(), ElementsAre("lan 10.0.0.5 admin secret 443 0", "connect",
                                                    "lan 10.0.0.5 admin secret 443 0", "connect"));
}

TEST_F(
    FacadeForIpmi,
    AFacadeBuiltForTheIpmiChannelReturnsMinus1FromDownloadFFDCFalseFromIsFFDCLogExistAndIgnoresTheTwoTrialSetters) {
    log.Clear();

    EXPECT_EQ(-1, ffdc->DownloadFFDC("/a", "/local"));
    std::string path = "untouched";
    EXPECT_FALSE(ffdc->IsFFDCLogExist(path));
    EXPECT_EQ("untouched", path);
    ffdc->SetTrialCount(3);
    ffdc->SetTrialInterval(3);

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FacadeForIpmi, OperationsAreForwarded) {
    EXPECT_EQ("", ffdc->GetFFDCPath());
    EXPECT_EQ(0, ffdc->ResetConn(conn));
    bmc.Answer(0x49, 0, {});
    EXPECT_EQ(7, ffdc->Apply()) << "no folder below a device";
    EXPECT_EQ("/dev/null/KEMFFDC", ffdc->GetFFDCPath().substr(0, 17));
    ffdc->Disconnect();
    EXPECT_EQ("disconnect", fakes::Journal::Take().back());
}

TEST_F(FacadeForIpmi, SetLogCallBackIsStoredByTheChannel) {
    CountingCallBack callBack;
    KEMFfdc other(conn, "/tmp/varnex-callback-", 2);
    other.SetLogCallBack(&callBack);
    bmc.Answer(0x49, 0, {});
    bmc.Answer(0x4D, 0, {1});
    bmc.Answer(0x79, 0xC1, {});
    other.Connect();

    EXPECT_EQ(1, other.Apply());

    EXPECT_EQ(2, callBack.count);
    EXPECT_EQ(0, rmdir(other.GetFFDCPath().c_str()));
}

TEST_F(FacadeForIpmi, DestructorLogsItsLineAndThenDestroysTheChannel) {
    log.Clear();

    ffdc.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling destructor of KEMFfdc"),
                                         Trace("src/module/kvs/ffdc/ffdcipmi_impl",
                                               "Calling destructor of KEMFfdcIpmiImpl")));
}

TEST(Facade, ABareIntegerAfterAnUploadingUriMeansCim) {
    fakes::FakeLog log;
    const Varnex::VarnexConnection::ConnectionInfo conn;
    const Varnex::KEMFfdcUploadingUri uri;

    const KEMFfdc ffdc(conn, uri, 1);

    EXPECT_EQ("Calling constructor of KEMFfdc", log.Lines()[0].text);
}

TEST_P(FacadeWithoutChannel, EveryOperationTakesTheNoneColumn) {
    log.Clear();

    EXPECT_EQ(-1, ffdc->Apply());
    EXPECT_EQ(-1, ffdc->Connect());
    EXPECT_EQ(-1, ffdc->GetConnectStatus());
    ffdc->Disconnect();
    EXPECT_EQ(-1, ffdc->ResetConn(conn));
    EXPECT_EQ(-1, ffdc->DownloadFFDC("/a", "/local"));
    std::string path = "untouched";
    EXPECT_FALSE(ffdc->IsFFDCLogExist(path));
    EXPECT_EQ("untouched", path);
    EXPECT_EQ("", ffdc->GetFFDCPath());
    ffdc->SetLogCallBack(nullptr);
    ffdc->SetTrialCount(3);
    ffdc->SetTrialInterval(3);

    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(0U, RequestCount());
}

TEST_P(FacadeWithoutChannel,
       DestroyingAnObjectWhoseChannelCouldNotBeBuiltLogsTheDestructorLineAndFreesNothing) {
    EXPECT_THAT(log.Lines(), testing::SizeIs(1)) << "the constructor's line alone";
    log.Clear();

    ffdc.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling destructor of KEMFfdc")));
}

INSTANTIATE_TEST_SUITE_P(Of, FacadeWithoutChannel, testing::Values("CIM", "IPMI", "Redfish"),
                         [](const auto& channel) { return std::string(channel.param); });
