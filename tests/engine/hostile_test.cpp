// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnex/KEMFfdc.h>

#include <boost/json.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>

#include "Servers.h"
#include "common/rest/RedfishClient.h"
#include "support/TempFolder.h"

// The engine and its hosts against a server that means harm. Run under the address sanitizer, these
// are about the heap too.
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class HostileServer {
public:
    explicit HostileServer(std::vector<std::string> script = {})
        : m_server("hostile_peer.py", Arguments(m_folder.Path(), std::move(script))) {}

    int Port() const { return m_server.Port(); }
    std::string Url(const std::string& kind) const {
        return "https://127.0.0.1:" + std::to_string(Port()) + "/" + kind;
    }

    // A method and a path for each request that came.
    std::vector<std::string> Received() const {
        std::ifstream file(m_folder / "received");
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    }

private:
    static std::vector<std::string> Arguments(const std::string& folder,
                                              std::vector<std::string> script) {
        script.insert(script.begin(), folder);
        return script;
    }

    TempFolder m_folder;
    Server m_server;
};

class EngineHostile : public testing::Test {
protected:
    EngineHostile() {
        client.SetSkipSslVerify(true);
        client.SetBasicAuth("admin", "secret");
        client.SetTimeout(60);
        client.FollowRedirects(true, 10);
    }

    Rest::Response Get(const std::string& kind) { return client.Get(server.Url(kind)); }

    static std::int64_t Connection(const Rest::Response& response) {
        return boost::json::parse(response.body).at("connection").as_int64();
    }

    HostileServer server;
    FullClient client;
};

TEST_F(EngineHostile, AFirstHeaderLineThatBeginsWithABlankHarmsNoLaterRequest) {
    const std::int64_t first = Connection(Get("ok"));

    for (int i = 0; i < 3; ++i) {
        const Rest::Response bad = Get("blank");
        EXPECT_EQ(43, bad.curlCode);
        EXPECT_EQ(-1, bad.httpCode);
    }

    const Rest::Response good = Get("ok");
    EXPECT_EQ(200, good.httpCode);
    EXPECT_NE(first, Connection(good));
}

TEST_F(EngineHostile, RequestsShareOneConnectionTlsSessionsAndCookies) {
    const std::int64_t first = Connection(Get("ok"));
    EXPECT_THAT(Get("cookies").cookies, SizeIs(50));

    const Rest::Response next = Get("ok");

    EXPECT_EQ(first, Connection(next));
    EXPECT_THAT(next.cookies, SizeIs(50));
}

TEST_F(EngineHostile, ARedfishClientOutlivesItToo) {
    Rest::RedfishClient redfish;
    redfish.SetSkipSslVerify(true);
    EXPECT_EQ(200, redfish.Get(server.Url("ok")).httpCode);

    EXPECT_EQ(43, redfish.Get(server.Url("blank")).curlCode);
    EXPECT_EQ(43, redfish.Post(server.Url("blank"), "{}").curlCode);

    EXPECT_EQ(200, redfish.Get(server.Url("ok")).httpCode);
}

// Every operation of a host meets it: as the answer to request 2, 3, 4 and 5 of its object.
TEST(EngineHostileHost, AHostOutlivesABlankAtAnyRequest) {
    for (int good = 1; good <= 4; ++good) {
        SCOPED_TRACE(good);
        const HostileServer bmc({std::to_string(good), "blank"});
        Varnex::VarnexConnection::ConnectionInfo conn;
        conn.host = "127.0.0.1";
        conn.port = static_cast<std::uint16_t>(bmc.Port());
        conn.userid = "admin";
        conn.password = "secret";

        Varnex::KEMFfdc ffdc(conn, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
        ffdc.Connect();
        const int applied = ffdc.Apply();
        std::string path;
        ffdc.SetTrialInterval(0);
        ffdc.IsFFDCLogExist(path);
        const int downloaded = ffdc.DownloadFFDC("/a", "/nowhere/a");

        EXPECT_EQ(good >= 3 ? 0 : 2, applied);
        EXPECT_EQ(2, downloaded);
        EXPECT_THAT(bmc.Received(), SizeIs(5));
    }
}

TEST_F(EngineHostile, WhatIsTooLargeEndsTheExchangeEarly) {
    struct {
        const char* kind;
        const char* text;
    } const rows[] = {
        {"body/3221225472", "Answer too large: more than 16777216 bytes of body"},
        {"endless", "Answer too large: more than 16777216 bytes of body"},
        {"headers", "Answer too large: more than 262144 bytes of header lines"},
        {"header", "Answer too large: one header line without an end"},
        {"status", "Answer too large: one header line without an end"},
        {"interim", "Answer too large: more than 262144 bytes of header lines"},
        {"trailers", "Answer too large: more than 262144 bytes of header lines"},
        {"bomb", "Answer too large: more than 16777216 bytes of body"},
    };
    client.EnableGzip();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.kind);

        const Rest::Response response = Get(row.kind);

        EXPECT_EQ(23, response.curlCode);
        EXPECT_EQ(-1, response.httpCode);
        EXPECT_EQ(row.text, response.body);
        EXPECT_EQ(200, Get("ok").httpCode);
    }
}

TEST_F(EngineHostile, CookiesThatBecomeTooManyFailOneExchangeAndAreForgotten) {
    Rest::Response response = Get("cookies");
    int good = 0;
    while (response.curlCode == 0 && good < 100) {
        ++good;
        response = Get("cookies");
    }

    EXPECT_EQ(5, good);  // 200 KiB each
    EXPECT_EQ(23, response.curlCode);
    EXPECT_EQ("Answer too large: more than 1048576 bytes of cookies", response.body);
    EXPECT_THAT(response.cookies, IsEmpty());
    EXPECT_THAT(Get("ok").cookies, IsEmpty());
}

TEST_F(EngineHostile, CookiesOfAnswersThatAreCutDoNotPileUp) {
    for (int i = 0; i < 9; ++i) EXPECT_NE(0, Get("cut-cookies").curlCode);

    const Rest::Response next = Get("ok");  // fails when more than a mebibyte is held
    EXPECT_EQ(200, next.httpCode);
    EXPECT_THAT(next.cookies, SizeIs(150));
}

TEST_F(EngineHostile, FromHttpsARedirectLeadsToHttpsAlone) {
    const Server plain("plain_peer.py");
    const std::string port = std::to_string(plain.Port());
    for (const char* scheme : {"http", "ftp", "ftps"}) {
        SCOPED_TRACE(scheme);

        const Rest::Response response = Get(std::string("to/") + scheme + "/" + port);

        EXPECT_EQ(1, response.curlCode);
        EXPECT_THAT(response.body, HasSubstr(std::string("Protocol \"") + scheme + "\""));
    }
    EXPECT_EQ(1,
              boost::json::parse(client.Get(plain.Url("/echo")).body).at("connection").as_int64());

    EXPECT_EQ(200, Get("to/https/" + std::to_string(server.Port())).httpCode);
}

// What a child of this process holds, as readlink shows it.
std::vector<std::string> HeldByAChild() {
    std::vector<std::string> held;
    FILE* list = popen("ls -l /proc/self/fd", "r");
    char line[4096];
    while (std::fgets(line, sizeof line, list) != nullptr) held.emplace_back(line);
    pclose(list);
    return held;
}

TEST_F(EngineHostile, AChildOfTheProcessInheritsNoConnection) {
    const std::vector<std::string> before = HeldByAChild();
    ASSERT_EQ(200, Get("ok").httpCode);
    ASSERT_EQ(200, Get("ok").httpCode);
    Rest::RedfishClient other;
    other.SetSkipSslVerify(true);
    ASSERT_EQ(200, other.Get(server.Url("ok")).httpCode);

    const std::vector<std::string> after = HeldByAChild();

    EXPECT_THAT(after, SizeIs(before.size()));
    EXPECT_THAT(after, Not(Contains(HasSubstr("socket:"))));
}

}  // namespace
