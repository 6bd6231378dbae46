// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <sstream>

#include "Servers.h"

// The engine against a web server that others wrote.
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class TextPart : public Rest::MimePart {
public:
    TextPart(const char* name, const char* file, const char* text)
        : m_name(name), m_file(file), m_text(text) {}
    void AddTo(curl_mimepart* part) const override {
        curl_mime_name(part, m_name);
        if (m_file != nullptr) curl_mime_filename(part, m_file);
        curl_mime_data(part, m_text, CURL_ZERO_TERMINATED);
    }

private:
    const char* m_name;
    const char* m_file;
    const char* m_text;
};

class EngineWithHttpbin : public testing::Test {
protected:
    EngineWithHttpbin() { client.SetTimeout(30); }

    static boost::json::value Json(const Rest::Response& response) {
        EXPECT_EQ(200, response.httpCode) << response.curlCode << " " << response.body;
        boost::system::error_code error;
        return boost::json::parse(response.body, error);
    }

    Server server{"httpbin_peer.py"};
    Rest::RestClient client;
};

TEST_F(EngineWithHttpbin, EveryMethodArrives) {
    std::istringstream stream("stream");
    struct {
        Rest::Response response;
        const char* method;
        const char* data;
    } const rows[] = {
        {client.Get(server.Url("/anything")), "GET", ""},
        {client.Post(server.Url("/anything"), "post"), "POST", ""},
        {client.Put(server.Url("/anything"), "put"), "PUT", "put"},
        {client.PutStream(server.Url("/anything"), stream), "PUT", "stream"},
        {client.Patch(server.Url("/anything"), "patch"), "PATCH", "patch"},
        {client.Delete(server.Url("/anything")), "DELETE", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method);
        const boost::json::value seen = Json(row.response);
        EXPECT_EQ(row.method, seen.at("method").as_string());
        EXPECT_EQ(row.data, seen.at("data").as_string());
    }
}

TEST_F(EngineWithHttpbin, APostIsAFormUnlessAHeaderSaysWhatItIs) {
    EXPECT_EQ("1", Json(client.Post(server.Url("/post"), "a=1")).at("form").at("a").as_string());

    client.AppendHeader("Content-Type", "application/json");
    EXPECT_EQ(1, Json(client.Post(server.Url("/post"), "{\"a\":1}")).at("json").at("a").as_int64());
}

TEST_F(EngineWithHttpbin, HeadAndOptionsBringHeaders) {
    const Rest::Response head = client.Head(server.Url("/get"));
    const Rest::Response options = client.Options(server.Url("/get"));

    EXPECT_EQ(200, head.httpCode);
    EXPECT_EQ("", head.body);
    EXPECT_EQ(200, options.httpCode);
    EXPECT_THAT(options.headers.at("Allow"), HasSubstr("OPTIONS"));
}

TEST_F(EngineWithHttpbin, AFormOfSeveralPartsIsTakenApartAsItWasMade) {
    const Rest::MimeParts parts = {std::make_shared<TextPart>("field", nullptr, "text"),
                                   std::make_shared<TextPart>("file", "name.txt", "content")};

    const boost::json::value seen =
        Json(client.PostMultipart(server.Url("/post"), parts, [](curl_off_t, curl_off_t) {}));

    EXPECT_EQ("text", seen.at("form").at("field").as_string());
    EXPECT_EQ("content", seen.at("files").at("file").as_string());
}

TEST_F(EngineWithHttpbin, RedirectsAreNotFollowedUnlessAsked) {
    const Rest::Response response = client.Get(server.Url("/redirect/1"));

    EXPECT_EQ(302, response.httpCode);
    EXPECT_EQ("/get", response.headers.at("Location"));
}

TEST_F(EngineWithHttpbin, RedirectsAreFollowedUpToTheMaximum) {
    client.FollowRedirects(true, 3);

    EXPECT_EQ(200, client.Get(server.Url("/redirect/3")).httpCode);
}

TEST_F(EngineWithHttpbin, ARedirectPastTheMaximumFails) {
    client.FollowRedirects(true, 3);

    const Rest::Response response = client.Get(server.Url("/redirect/4"));

    EXPECT_EQ(47, response.curlCode);
    EXPECT_EQ(-1, response.httpCode);
    EXPECT_EQ("Maximum (3) redirects followed", response.body);
}

TEST_F(EngineWithHttpbin, AMaximumOf0FollowsNoneAndANegativeOneAny) {
    client.FollowRedirects(true, 0);
    EXPECT_EQ(47, client.Get(server.Url("/redirect/1")).curlCode);

    client.FollowRedirects(true, -1);
    EXPECT_EQ(200, client.Get(server.Url("/redirect/15")).httpCode);
}

TEST_F(EngineWithHttpbin, CredentialsGoAlongToAnotherHost) {
    client.FollowRedirects(true, 1);
    client.SetBasicAuth("admin", "secret");
    const std::string elsewhere =
        "http://localhost:" + std::to_string(server.Port()) + "/basic-auth/admin/secret";

    EXPECT_EQ(200, client.Get(server.Url("/redirect-to?url=" + elsewhere)).httpCode);
}

TEST_F(EngineWithHttpbin, BasicAuthenticationIsAcceptedAndRefused) {
    EXPECT_EQ(401, client.Get(server.Url("/basic-auth/admin/secret")).httpCode);

    client.SetBasicAuth("admin", "secret");
    EXPECT_EQ(200, client.Get(server.Url("/basic-auth/admin/secret")).httpCode);

    client.SetBasicAuth("admin", "wrong");
    EXPECT_EQ(401, client.Get(server.Url("/basic-auth/admin/secret")).httpCode);

    client.SetBasicAuth("", "");
    EXPECT_EQ(401, client.Get(server.Url("/basic-auth/admin/secret")).httpCode);
}

TEST_F(EngineWithHttpbin, APasswordMayHoldAColonAndMoreThanAscii) {
    client.SetBasicAuth("admin", "a:b\xC3\xA4");

    EXPECT_EQ(200, client.Get(server.Url("/basic-auth/admin/a:b%C3%A4")).httpCode);
}

TEST_F(EngineWithHttpbin, GzipIsDecodedOnceItIsEnabled) {
    client.EnableGzip();

    const Rest::Response response = client.Get(server.Url("/gzip"));

    EXPECT_EQ(true, Json(response).at("gzipped").as_bool());
    EXPECT_EQ("gzip", Json(response).at("headers").at("Accept-Encoding").as_string());
    EXPECT_EQ("gzip", response.headers.at("Content-Encoding"));
}

TEST_F(EngineWithHttpbin, GzipStaysAsItCameOtherwise) {
    EXPECT_THAT(client.Get(server.Url("/gzip")).body, StartsWith("\x1F\x8B"));
}

TEST_F(EngineWithHttpbin, CookiesOfARedirectAreSentToItsTarget) {
    client.FollowRedirects(true, 1);

    const Rest::Response response = client.Get(server.Url("/cookies/set/name/value"));

    EXPECT_EQ("value", Json(response).at("cookies").at("name").as_string());
    ASSERT_EQ(1U, response.cookies.size());
    EXPECT_THAT(response.cookies.front(), HasSubstr("\tname\tvalue"));
}

}  // namespace
