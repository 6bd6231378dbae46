// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <type_traits>

#include "fakes/FakeMemory.h"
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

class FacadeWithoutChannel : public RedfishTest {
protected:
    FacadeWithoutChannel() {
        const fakes::FakeMemory memory;
        ffdc = std::make_unique<KEMFfdc>(conn, uri, Varnex::BMCLOG_MINI_LOG);
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

TEST_F(FacadeWithoutChannel, EveryOperationTakesTheNoneColumn) {
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

TEST_F(FacadeWithoutChannel,
       DestroyingAnObjectWhoseChannelCouldNotBeBuiltLogsTheDestructorLineAndFreesNothing) {
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(kFacade, "Calling constructor of KEMFfdc for redfish channel")));
    log.Clear();

    ffdc.reset();

    EXPECT_THAT(log.Lines(), ElementsAre(Trace(kFacade, "Calling destructor of KEMFfdc")));
}
