// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "fakes/FakeMemory.h"
#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Trace;
using fakes::Warning;
using testing::ElementsAre;
using Varnex::KEMFfdcRedfishImpl;

namespace {

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcredfish_impl";
constexpr char kClient[] = "src/common/rest/RedfishClient";

class RedfishConstruction : public RedfishTest {
protected:
    KEMFfdcRedfishImpl& Construct() {
        made = std::make_unique<KEMFfdcRedfishImpl>(conn, uri, Varnex::BMCLOG_MINI_LOG, true);
        return *made;
    }

    // Which of the two places the channel looks for tasks at.
    std::string ProbedPath(KEMFfdcRedfishImpl& channel) {
        web.Answer(404, "{}");
        EXPECT_EQ(0, channel.Connect());
        return LastRequest().url.substr(std::string(kBase).size());
    }
};

constexpr char kNewerProbe[] = "/redfish/v1/TaskService/Tasks/8A6CA3D3EC";
constexpr char kOlderProbe[] = "/redfish/v1/Tasks/Tasks/8A6CA3D3EC";

}  // namespace

TEST_F(RedfishConstruction, AsksForTheVersionWithTheStandingSettings) {
    web.Answer(200, R"({"RedfishVersion":"1.15.0"})");

    Construct();

    ASSERT_EQ(1U, RequestCount());
    EXPECT_EQ("GET", LastRequest().method);
    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/", LastRequest().url);
    EXPECT_THAT(LastRequest().headers,
                ElementsAre("Accept: application/json", "Content-Type: application/json"));
    EXPECT_EQ("admin:secret", LastRequest().userPassword);
    EXPECT_EQ(60, LastRequest().timeout);
    EXPECT_TRUE(LastRequest().followsRedirects);
    EXPECT_EQ(10, LastRequest().maxRedirects);
    EXPECT_FALSE(LastRequest().verifiesPeer);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Trace(kChannel, "Calling constructor of KEMFfdcRedfishImpl"),
                    Trace(kClient, "Redfish GET action on URL: https://10.0.0.5:443/redfish/v1/"),
                    Trace(kChannel, "Given version: 1.6.0, this version: 1.15.0"),
                    Trace(kChannel, "This version is newer.")));
}

TEST_F(RedfishConstruction, BmcVersion159GivesThisVersionIsOlderAndTheOlderForms) {
    web.Answer(200, R"({"RedfishVersion":"1.5.9"})");

    KEMFfdcRedfishImpl& channel = Construct();

    EXPECT_THAT(log.LinesOf(kChannel),
                ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                            Trace("Given version: 1.6.0, this version: 1.5.9"),
                            Trace("This version is older.")));
    EXPECT_EQ(kOlderProbe, ProbedPath(channel));
}

TEST_F(RedfishConstruction, BmcVersions160And1100GiveTheNewerForms10ComparesAsTheNumber10) {
    for (const char* version : {"1.6.0", "1.10.0"}) {
        KEMFfdcRedfishImpl& channel = ChannelFor(version);

        EXPECT_EQ(kNewerProbe, ProbedPath(channel)) << version;
    }
}

TEST_F(RedfishConstruction, Version16TwoPiecesGivesTheExceptionMessageAndTheNewerForms) {
    web.Answer(200, R"({"RedfishVersion":"1.6"})");

    KEMFfdcRedfishImpl& channel = Construct();

    EXPECT_THAT(log.LinesOf(kChannel),
                ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                            Trace("Given version: 1.6.0, this version: 1.6"),
                            Failure("An exception's been thrown, error message: 1.6.0")));
    EXPECT_EQ(kNewerProbe, ProbedPath(channel));
}

TEST_F(RedfishConstruction, EmptyVersionGivesTheExceptionMessageAndTheNewerForms) {
    web.Answer(200, R"({"RedfishVersion":""})");

    KEMFfdcRedfishImpl& channel = Construct();

    EXPECT_THAT(log.LinesOf(kChannel),
                ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                            Trace("Given version: 1.6.0, this version: "),
                            Failure("An exception's been thrown, error message: 1.6.0")));
    EXPECT_EQ(kNewerProbe, ProbedPath(channel));
}

TEST_F(RedfishConstruction, FailedVersionQueryIsAWarningAndLeavesTheNewerForms) {
    web.Answer(500, "oops");

    KEMFfdcRedfishImpl& channel = Construct();

    EXPECT_THAT(
        log.LinesOf(kChannel),
        ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                    Warning("Failed to get redfish version, curlCode: 0, httpCode: 500, body:\n"
                            "oops"),
                    Trace("Given version: 1.6.0, this version: "),
                    Failure("An exception's been thrown, error message: 1.6.0")));
    EXPECT_EQ(kNewerProbe, ProbedPath(channel));
}

TEST_F(RedfishConstruction, AVersionAnsweredWithAStatusFrom300To399IsTaken) {
    for (const long status : {300L, 399L}) {
        web.Answer(status, R"({"RedfishVersion":"1.5.9"})");

        EXPECT_EQ(kOlderProbe, ProbedPath(Construct())) << status;
    }
}

TEST_F(RedfishConstruction, AVersionOfMillionsOfDotsHasNotThreePieces) {
    web.Answer(200, "{\"RedfishVersion\":\"" + std::string(4000000, '.') + "\"}");

    EXPECT_EQ(kNewerProbe, ProbedPath(Construct()));
}

TEST_F(RedfishConstruction, UnreachableBmcIsAWarningWithCurlsCodeAndText) {
    web.Fail(CURLE_COULDNT_CONNECT, "Connection refused");

    Construct();

    EXPECT_THAT(
        log.LinesOf(kChannel),
        ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                    Warning("Failed to get redfish version, curlCode: 7, httpCode: -1, body:\n"
                            "Connection refused"),
                    Trace("Given version: 1.6.0, this version: "),
                    Failure("An exception's been thrown, error message: 1.6.0")));
}

TEST_F(RedfishConstruction, AnswerWithoutTheMemberOrThatIsNoJsonHasNoVersion) {
    for (const char* body : {"{}", "", "<html></html>", "[", R"({"redfishversion":"1.6.0"})"}) {
        web.Answer(200, body);

        Construct();

        EXPECT_THAT(log.LinesOf(kChannel),
                    ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                                Warning("Failed to get redfish version."),
                                Trace("Given version: 1.6.0, this version: "),
                                Failure("An exception's been thrown, error message: 1.6.0")))
            << body;
        made.reset();
        log.Clear();
    }
}

TEST_F(RedfishConstruction, IPv6HostFe801WithPort443GivesTheHostInBrackets) {
    conn.host = "fe80::1";
    conn.connection_ipversion = 1;
    web.Answer(200, R"({"RedfishVersion":"1.15.0"})");

    Construct();

    EXPECT_EQ("https://[fe80::1]:443/redfish/v1/", LastRequest().url);
}

TEST_F(RedfishConstruction, OnlyIpVersion1PutsTheHostInBrackets) {
    for (const int version : {0, 2, 4, 6, -1}) {
        conn.connection_ipversion = version;
        web.Answer(200, R"({"RedfishVersion":"1.15.0"})");

        Construct();

        EXPECT_EQ("https://10.0.0.5:443/redfish/v1/", LastRequest().url) << version;
    }
}

TEST_F(RedfishConstruction, LibcurlThatCannotBeInitialisedIsThrown) {
    web.InitFails();

    try {
        Construct();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("Couldn't initialize curl handle", failure.what());
    }
}

TEST_F(RedfishConstruction, WithoutMemoryForAClientEveryOperationFailsWithoutARequest) {
    const fakes::FakeMemory memory;

    KEMFfdcRedfishImpl& channel = Construct();

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace("Calling constructor of KEMFfdcRedfishImpl"),
                            Failure("Failed to construct rest client point."),
                            Trace("Given version: 1.6.0, this version: "),
                            Failure("An exception's been thrown, error message: 1.6.0")));
    EXPECT_EQ("", channel.GetRedfishVersion());
    EXPECT_EQ(1, channel.Connect());
    EXPECT_EQ(2, channel.Apply());
    EXPECT_EQ(1, channel.DownloadFFDC("/archive", "/local"));
    std::string path = "unchanged?";
    EXPECT_FALSE(channel.IsFFDCLogExist(path));
    EXPECT_EQ("", path);
    EXPECT_EQ(0U, RequestCount());
}

TEST_F(RedfishConstruction, DestructorLogsItsLineAndSendsNothing) {
    Channel();

    made.reset();

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(kChannel, "Calling destructor of KEMFfdcRedfishImpl")));
    EXPECT_EQ(1U, RequestCount());
}

TEST(RedfishCompareVersion, Table) {
    struct Row {
        const char* given;
        const char* thisVersion;
        bool isNewer;
        const char* why;
    };
    constexpr Row kRows[] = {
        {"1.6.0", "1.6.0", true, "equal counts as newer"},
        {"1.6.0", "1.5.9", false, "second piece smaller"},
        {"1.6.0", "1.10.0", true, "numbers, not texts"},
        {"1.6.0", "2.0.0", true, "first piece decides"},
        {"1.6.0", "0.99.99", false, "first piece decides"},
        {"1.6.1", "1.6.0", false, "third piece smaller"},
        {"1.6.0", "1.6.1", true, "third piece greater"},
        {"1.6.0", "1.6.0-beta", true, "a piece that is no number counts as 0"},
        {"1.6.1", "1.6.1-beta", false, "a piece that is no number counts as 0"},
        {"1.6.0", "..", false, "empty pieces are kept and count as 0"},
        {"0.0.0", "..", true, "empty pieces are kept and count as 0"},
        {"1.6.0", "1.-7.0", false, "a negative number is a number"},
        {"1.6.0", "1. 7.0", false, "a blank makes it no number"},
        {"1.6.0", "1.99999999999.0", false, "more than 32 bits is no number"},
        {"1.6.0", "1.2147483647.0", true, "the greatest that is one"},
        {"1.6.0", "1.+7.0", true, "a sign is part of an integer"},
    };
    for (const Row& row : kRows) {
        fakes::FakeLog log;

        EXPECT_EQ(row.isNewer,
                  KEMFfdcRedfishImpl::CompareRedfishVersion(row.given, row.thisVersion))
            << row.thisVersion << ": " << row.why;

        EXPECT_THAT(log.Lines(), ElementsAre(Trace(std::string("Given version: ") + row.given +
                                                   ", this version: " + row.thisVersion),
                                             Trace(row.isNewer ? "This version is newer."
                                                               : "This version is older.")))
            << row.why;
    }
}

TEST(RedfishCompareVersion, ThrowsTheGivenVersionAsTextWhicheverIsMalformed) {
    struct Row {
        const char* given;
        const char* thisVersion;
    };
    constexpr Row kRows[] = {{"1.6.0", "1.6"}, {"1.6.0", ""}, {"1.6.0", "1.6.0.0"},
                             {"1.6", "1.6.0"}, {"", "1.6.0"}, {"1.6.0", "..."}};
    for (const Row& row : kRows) {
        try {
            KEMFfdcRedfishImpl::CompareRedfishVersion(row.given, row.thisVersion);
            FAIL() << "nothing was thrown for " << row.thisVersion;
        } catch (const std::string& text) {
            EXPECT_EQ(row.given, text);
        }
    }
}
