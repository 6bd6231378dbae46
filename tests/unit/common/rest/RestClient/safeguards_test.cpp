// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"
#include "unit/common/rest/Calls.h"

// The options that are ours alone, each for a danger of its own.
namespace {

using fakes::Transfer;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class RestClientSafeguards : public testing::Test {
protected:
    Calls CallsOfGet(const std::string& url) {
        web.TakeCalls();
        web.Answer(200);
        client.Get(url);
        return web.TakeCalls();
    }

    fakes::FakeCurl web;
    Rest::RestClient client;
};

TEST_F(RestClientSafeguards, StandTogetherImmediatelyBeforeThePerform) {
    const Calls calls = CallsOfGet("https://bmc/");

    const auto perform = std::find(calls.begin(), calls.end(), "curl_easy_perform");
    ASSERT_NE(calls.end(), perform);
    EXPECT_THAT(
        Calls(perform - 4, perform),
        ElementsAre("CURLOPT_ERRORBUFFER pointer", "CURLOPT_HTTP_VERSION 2",
                    "CURLOPT_REDIR_PROTOCOLS_STR https", "CURLOPT_OPENSOCKETFUNCTION function"));
}

// libcurl would otherwise choose HTTP/2, which delivers header names in lower case.
TEST_F(RestClientSafeguards, Http11IsAskedForWhateverTheScheme) {
    EXPECT_THAT(CallsOfGet("https://bmc/"), Contains("CURLOPT_HTTP_VERSION 2"));
    EXPECT_THAT(CallsOfGet("http://bmc/"), Contains("CURLOPT_HTTP_VERSION 2"));
}

// Else the credentials would leave in clear.
TEST_F(RestClientSafeguards, FromHttpsRedirectsLeadToHttpsAlone) {
    for (const char* url : {"https://bmc/", "HTTPS://bmc/", "Https:bmc"}) {
        EXPECT_THAT(CallsOfGet(url), Contains("CURLOPT_REDIR_PROTOCOLS_STR https")) << url;
    }
}

TEST_F(RestClientSafeguards, FromOtherSchemesRedirectsLeadWhereLibcurlLetsThem) {
    for (const char* url : {"http://bmc/", "bmc/https:", "httpsx://bmc/", "https", ""}) {
        EXPECT_THAT(CallsOfGet(url), Not(Contains(StartsWith("CURLOPT_REDIR_PROTOCOLS")))) << url;
    }
}

// Else every child of the host's process would hold the connection.
TEST_F(RestClientSafeguards, SocketsAreClosedWhenAChildRunsAnotherProgram) {
    web.Play([](Transfer& transfer) {
        const auto open = transfer.Callback<curl_opensocket_callback>(CURLOPT_OPENSOCKETFUNCTION);
        curl_sockaddr address{};
        address.family = AF_INET;
        address.socktype = SOCK_STREAM;
        const curl_socket_t made = open(nullptr, CURLSOCKTYPE_IPCXN, &address);
        EXPECT_GE(made, 0);
        EXPECT_EQ(FD_CLOEXEC, fcntl(made, F_GETFD));
        int type = 0;
        socklen_t size = sizeof type;
        EXPECT_EQ(0, getsockopt(made, SOL_SOCKET, SO_TYPE, &type, &size));
        EXPECT_EQ(SOCK_STREAM, type);
        close(made);
        return CURLE_OK;
    });

    client.Get("https://bmc/");
}

TEST_F(RestClientSafeguards, ASocketThatCannotBeMadeIsNone) {
    web.Play([](Transfer& transfer) {
        const auto open = transfer.Callback<curl_opensocket_callback>(CURLOPT_OPENSOCKETFUNCTION);
        curl_sockaddr address{};
        address.family = -1;
        EXPECT_EQ(CURL_SOCKET_BAD, open(nullptr, CURLSOCKTYPE_IPCXN, &address));
        return CURLE_COULDNT_CONNECT;
    });

    client.Get("https://bmc/");
}

TEST_F(RestClientSafeguards, AnAddressOf64KibibytesIsAskedForAndALongerOneIsNot) {
    const std::string longest = "https://bmc/" + std::string(64 * 1024 - 12, 'a');
    EXPECT_THAT(CallsOfGet(longest), Contains("curl_easy_perform"));
    web.TakeCalls();

    const Rest::Response response = client.Delete(longest + "a");

    EXPECT_EQ(3, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("Address too long: more than 65536 bytes", response.body);
    EXPECT_THAT(web.TakeCalls(), ElementsAre("CURLOPT_CUSTOMREQUEST DELETE", "curl_easy_reset"));
}

}  // namespace
