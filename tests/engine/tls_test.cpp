// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <memory>

#include "Servers.h"
#include "support/TempFolder.h"

// The engine against nginx: certificates, and a server that would rather speak HTTP/2.
namespace {

class EngineWithTls : public testing::Test {
protected:
    void SetUp() override {
        if (Peers().empty()) GTEST_SKIP() << "VARNEX_PEERS names no unpacked daemons";
        server = std::make_unique<Server>("daemon_peer.py",
                                          std::vector<std::string>{"nginx", folder.Path()});
        client.SetTimeout(30);
    }

    std::string UrlOf(const std::string& name) const {
        return "https://127.0.0.1:" + std::to_string(server->Port(name)) + "/";
    }

    void ExpectRefused(const std::string& name, int curlCode) {
        const Rest::Response response = client.Get(UrlOf(name));
        EXPECT_EQ(curlCode, response.curlCode) << response.body;
        EXPECT_EQ(-1, response.httpCode);
        EXPECT_NE("", response.body);
        EXPECT_EQ(-2, client.CheckResponse(response));
    }

    TempFolder folder;
    std::unique_ptr<Server> server;
    FullClient client;
};

TEST_F(EngineWithTls, ACertificateOfAnUnknownCaIsRefused) { ExpectRefused("good", 60); }

TEST_F(EngineWithTls, ACertificateOfTheCaInTheFileIsTaken) {
    client.SetCAInfoFilePath(folder / "ca.pem");

    EXPECT_EQ(200, client.Get(UrlOf("good")).httpCode);
}

TEST_F(EngineWithTls, ACertificateOfAnotherCaIsRefused) {
    client.SetCAInfoFilePath(folder / "other-ca.pem");

    ExpectRefused("good", 60);
}

TEST_F(EngineWithTls, ACertificateForAnotherHostIsRefused) {
    client.SetCAInfoFilePath(folder / "ca.pem");

    ExpectRefused("stranger", 60);
}

TEST_F(EngineWithTls, AnExpiredCertificateIsRefused) {
    client.SetCAInfoFilePath(folder / "ca.pem");

    ExpectRefused("expired", 60);
}

TEST_F(EngineWithTls, AMissingCaFileIsTroubleWithTheCertificate) {
    client.SetCAInfoFilePath(folder / "missing.pem");

    ExpectRefused("good", 77);
}

TEST_F(EngineWithTls, AnyCertificateIsTakenWhenVerificationIsSkipped) {
    client.SetSkipSslVerify(true);

    EXPECT_EQ(200, client.Get(UrlOf("good")).httpCode);
    EXPECT_EQ(200, client.Get(UrlOf("stranger")).httpCode);
    EXPECT_EQ(200, client.Get(UrlOf("expired")).httpCode);
}

TEST_F(EngineWithTls, ACaPathTogetherWithSkipTlsVerificationStillVerifies) {
    client.SetSkipSslVerify(true);
    client.SetCAInfoFilePath(folder / "other-ca.pem");

    ExpectRefused("good", 60);
}

TEST_F(EngineWithTls, AConnectionThatWasNotVerifiedIsNotUsedOnceVerificationIsOn) {
    client.SetSkipSslVerify(true);
    EXPECT_EQ(200, client.Get(UrlOf("good")).httpCode);
    client.SetSkipSslVerify(false);

    ExpectRefused("good", 60);
}

TEST_F(EngineWithTls, AClientCertificateIsShownToAServerThatWantsOne) {
    client.SetCAInfoFilePath(folder / "ca.pem");
    EXPECT_EQ(400, client.Get(UrlOf("wants_client")).httpCode);

    client.SetClientCertificate(folder / "client.pem", "PEM");
    client.SetClientKey(folder / "client-key.pem", "secret");

    EXPECT_EQ(200, client.Get(UrlOf("wants_client")).httpCode);
}

TEST_F(EngineWithTls, AClientKeyWithAWrongPasswordIsTroubleWithTheCertificate) {
    client.SetCAInfoFilePath(folder / "ca.pem");
    client.SetClientCertificate(folder / "client.pem", "PEM");
    client.SetClientKey(folder / "client-key.pem", "wrong");

    ExpectRefused("wants_client", 58);
}

TEST_F(EngineWithTls, SpeaksHttp11SoThatHeaderNamesKeepTheirCase) {
    client.SetSkipSslVerify(true);

    const Rest::Response response = client.Get(UrlOf("good"));

    EXPECT_EQ("HTTP/1.1", response.body);
    EXPECT_EQ("good", response.headers.at("X-Auth-Token"));
}

// What the test before this one guards against.
TEST_F(EngineWithTls, ABareHandleWouldHaveSpokenHttp2) {
    std::string body;
    CURL* bare = curl_easy_init();
    curl_easy_setopt(bare, CURLOPT_URL, UrlOf("good").c_str());
    curl_easy_setopt(bare, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(bare, CURLOPT_SSL_VERIFYHOST, 0L);
    const curl_write_callback keep = [](char* data, std::size_t size, std::size_t count,
                                        void* target) {
        static_cast<std::string*>(target)->append(data, size * count);
        return size * count;
    };
    curl_easy_setopt(bare, CURLOPT_WRITEFUNCTION, keep);
    curl_easy_setopt(bare, CURLOPT_WRITEDATA, &body);

    EXPECT_EQ(CURLE_OK, curl_easy_perform(bare));
    curl_easy_cleanup(bare);

    EXPECT_EQ("HTTP/2.0", body);
}

}  // namespace
