// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "fakes/FakeUri.h"
#include "unit/module/kvs/ffdc/RedfishTest.h"

using fakes::Failure;
using fakes::Milestone;
using fakes::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using Varnex::KEMFfdcRedfishImpl;

namespace {

constexpr char kSessionUrl[] = "https://10.0.0.5:443/redfish/v1/SessionService/Sessions";

class RedfishRequestSession : public RedfishTest {};
class RedfishDownload : public RedfishTest {
protected:
    KEMFfdcRedfishImpl& ChannelWithSession() {
        KEMFfdcRedfishImpl& channel = Channel();
        web.Answer(201, "", {"X-Auth-Token: abc"});
        return channel;
    }
};

}  // namespace

TEST_F(RedfishRequestSession, PostsTheAccountAndKeepsTheToken) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(201, "{}", {"Location: /redfish/v1/SessionService/Sessions/1", "X-Auth-Token: abc"});

    EXPECT_EQ(0, channel.RequestSession());

    EXPECT_EQ("POST", LastRequest().method);
    EXPECT_EQ(kSessionUrl, LastRequest().url);
    EXPECT_EQ(R"({"UserName":"admin","Password":"secret"})", LastRequest().body);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kSessionUrl),
                            Milestone("SaveXAuthToken() completed, token is: X-Auth-Token:abc")));
}

TEST_F(RedfishRequestSession, OlderBmcsSessionsEndInASlash) {
    KEMFfdcRedfishImpl& channel = ChannelFor("1.5.0");
    web.Answer(201, "", {"X-Auth-Token: abc"});

    EXPECT_EQ(0, channel.RequestSession());

    EXPECT_EQ("https://10.0.0.5:443/redfish/v1/SessionService/Sessions/", LastRequest().url);
}

TEST_F(RedfishRequestSession, RefusedSessionReturns2) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(401, "no");

    EXPECT_EQ(2, channel.RequestSession());

    EXPECT_THAT(log.Lines(), ElementsAre(Failure(std::string("Failed post info to ") + kSessionUrl),
                                         Failure("curlCode: 0, httpCode: 401, body:\nno")));
}

TEST_F(RedfishRequestSession, AStatusFrom300To399IsNoFailure) {
    for (const long status : {300L, 302L, 399L}) {
        KEMFfdcRedfishImpl& channel = Channel();
        web.Answer(status, "", {"X-Auth-Token: abc"});

        EXPECT_EQ(0, channel.RequestSession()) << status;
    }
}

TEST_F(RedfishRequestSession, HeaderNameInAnotherLetterCaseIsNoToken) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(201, "", {"x-auth-token: abc"});

    EXPECT_EQ(0, channel.RequestSession());

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kSessionUrl),
                            Failure("Failed to get X-Auth-Token.")));
}

TEST_F(RedfishRequestSession,
       SessionAnswerWithoutAnXAuthTokenHeaderLeavesTheTokenEmptyAndStillReturns0) {
    KEMFfdcRedfishImpl& channel = ChannelWithTask();
    web.Answer(201, "", {"X-Auth-Token: abc"});
    ASSERT_EQ(0, channel.RequestSession());
    log.Clear();
    web.Answer(201);

    EXPECT_EQ(0, channel.RequestSession());

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kSessionUrl),
                            Failure("Failed to get X-Auth-Token.")));
    web.Answer(201);
    EXPECT_EQ(4, channel.DownloadFFDC("/archive", "/local"));
}

TEST_F(RedfishDownload, DownloadsWithTheTokenFromTheConnectionsHostAndPort) {
    KEMFfdcRedfishImpl& channel = ChannelWithSession();

    EXPECT_EQ(0, channel.DownloadFFDC("/download/a.tar.gz", "/var/tmp/a.tar.gz"));

    ASSERT_EQ(1U, files.Downloads().size());
    const fakes::Download download = files.Downloads()[0];
    EXPECT_EQ("https", download.scheme);
    EXPECT_EQ("10.0.0.5", download.host);
    EXPECT_EQ(443, download.port);
    EXPECT_EQ("admin", download.user);
    EXPECT_EQ("secret", download.password);
    EXPECT_EQ("/download/a.tar.gz", download.path);
    EXPECT_EQ("/var/tmp/a.tar.gz", download.localPath);
    EXPECT_EQ(CURLOPT_HTTPHEADER, download.option);
    EXPECT_THAT(download.headerLines,
                ElementsAre("Accept:application/json", "Content-Type:application/json",
                            "X-Auth-Token:abc"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kSessionUrl),
                            Milestone("SaveXAuthToken() completed, token is: X-Auth-Token:abc")));
}

TEST_F(RedfishDownload, IPv6HostGoesToTheUriAsItStands) {
    conn.host = "fe80::1";
    conn.connection_ipversion = 1;
    KEMFfdcRedfishImpl& channel = ChannelWithSession();

    EXPECT_EQ(0, channel.DownloadFFDC("/a", "/local"));

    EXPECT_EQ("fe80::1", files.Downloads()[0].host);
}

TEST_F(RedfishDownload, EmptyPathReturns4WithoutAnyRequest) {
    KEMFfdcRedfishImpl& channel = Channel();

    EXPECT_EQ(4, channel.DownloadFFDC("", "x"));
    EXPECT_EQ(4, channel.DownloadFFDC("x", ""));
    EXPECT_EQ(4, channel.DownloadFFDC("", ""));

    EXPECT_EQ(1U, RequestCount());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RedfishDownload, WithTheSessionPostFailingItReturns2FromRequestSession) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(500, "oops");

    EXPECT_EQ(2, channel.DownloadFFDC("/a", "/local"));

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(Failure(std::string("Failed post info to ") + kSessionUrl),
                    Failure("curlCode: 0, httpCode: 500, body:\noops"),
                    Failure("Call KEMFfdcRedfishImpl::RequestSession() failed, result is 2")));
    EXPECT_THAT(files.Downloads(), IsEmpty());
}

TEST_F(RedfishDownload, WithoutAClientItReturns1FromRequestSession) {
    KEMFfdcRedfishImpl& channel = Channel();
    channel.Disconnect();

    EXPECT_EQ(1, channel.DownloadFFDC("/a", "/local"));

    EXPECT_THAT(log.Lines(), ElementsAre(Failure("Call KEMFfdcRedfishImpl::RequestSession() "
                                                 "failed, result is 1")));
}

TEST_F(RedfishDownload, SessionAnswerWithoutTheTokenHeaderReturns4WithInvalidAuthToken) {
    KEMFfdcRedfishImpl& channel = Channel();
    web.Answer(201);

    EXPECT_EQ(4, channel.DownloadFFDC("/a", "/local"));

    EXPECT_THAT(log.Lines(),
                ElementsAre(Trace(std::string("Successfully post info to ") + kSessionUrl),
                            Failure("Failed to get X-Auth-Token."), Failure("Invalid auth token")));
    EXPECT_THAT(files.Downloads(), IsEmpty());
}

TEST_F(RedfishDownload, UriThatCannotBeFormedReturns2WithItsText) {
    KEMFfdcRedfishImpl& channel = ChannelWithSession();
    fakes::FakeUri::NextThrows(std::make_exception_ptr(std::invalid_argument("no such host")));

    EXPECT_EQ(2, channel.DownloadFFDC("/a", "/local"));

    EXPECT_EQ("Invalid uri no such host", log.Lines().back().text);
    EXPECT_EQ(1, log.Lines().back().level);
}

TEST_F(RedfishDownload, ExceptionWithoutATextIsAnUnknownException) {
    for (const std::exception_ptr& exception :
         {std::make_exception_ptr(std::invalid_argument("")), std::make_exception_ptr(7)}) {
        KEMFfdcRedfishImpl& channel = ChannelWithSession();
        fakes::FakeUri::NextThrows(exception);

        EXPECT_EQ(2, channel.DownloadFFDC("/a", "/local"));

        EXPECT_THAT(log.Lines().back(), Failure("Invalid uri Unknown exception"));
        EXPECT_THAT(files.Downloads(), IsEmpty());
    }
}

TEST_F(RedfishDownload, FailedDownloadReturns2WithCategoryNumberAndMessage) {
    KEMFfdcRedfishImpl& channel = ChannelWithSession();
    files.NextDownloadFails(std::make_error_code(std::errc::no_space_on_device));

    EXPECT_EQ(2, channel.DownloadFFDC("/a", "/local"));

    EXPECT_THAT(log.Lines().back(), Failure("Failed to download ffdc log, error is generic:28 "
                                            "No space left on device"));
}

TEST_F(RedfishDownload, EachDownloadOpensASessionOfItsOwn) {
    KEMFfdcRedfishImpl& channel = ChannelWithSession();
    ASSERT_EQ(0, channel.DownloadFFDC("/a", "/local"));
    web.Answer(201, "", {"X-Auth-Token: def"});

    EXPECT_EQ(0, channel.DownloadFFDC("/b", "/local2"));

    EXPECT_EQ(3U, RequestCount());
    EXPECT_THAT(files.Downloads()[1].headerLines,
                ElementsAre("Accept:application/json", "Content-Type:application/json",
                            "X-Auth-Token:def"));
}
