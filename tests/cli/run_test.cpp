// SPDX-License-Identifier: Apache-2.0
#include "cli/Run.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "cli/terminal/Secret.h"
#include "support/TempFolder.h"

namespace {

namespace json = boost::json;
using Kemffdc::Command;
using Kemffdc::Options;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// A port of 127.0.0.1 on which nothing listens: bound, so that nobody else gets it.
class ClosedPort {
public:
    ClosedPort() : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(m_socket, reinterpret_cast<sockaddr*>(&address), size);
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
    }
    ~ClosedPort() { close(m_socket); }
    std::uint16_t Port() const { return m_port; }

private:
    int m_socket;
    std::uint16_t m_port = 0;
};

class Run : public testing::Test {
protected:
    Run() {
        for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                 "ALL_PROXY", "SSL_CERT_FILE", "SSL_CERT_DIR", "CURL_CA_BUNDLE"}) {
            unsetenv(name);
        }
        setenv("KEMFFDC_PASSWORD", "a secret word", 1);
        m_options.command = Command::kCheck;
        m_options.via = "redfish";
        m_options.host = "127.0.0.1";
        m_options.port = m_closed.Port();
        m_options.stateDir = m_place / "state";
    }

    int Do() { return Kemffdc::Run(m_options, m_out, m_err); }

    TempFolder m_place;
    ClosedPort m_closed;
    Options m_options;
    std::ostringstream m_out;
    std::ostringstream m_err;
};

TEST_F(Run, ReasonsGoToStandardErrorAndNothingToStandardOutput) {
    EXPECT_EQ(Do(), 3);
    EXPECT_THAT(m_out.str(), IsEmpty());
    EXPECT_THAT(m_err.str(),
                StartsWith("0:00  preflight\nkemffdc: Cannot connect to 127.0.0.1 port "));
    EXPECT_THAT(m_err.str(), HasSubstr("[exit code 3]\n"));
}

TEST_F(Run, JsonIsOneObjectOnStandardOutput) {
    m_options.json = true;
    EXPECT_EQ(Do(), 3);
    const json::object account = json::parse(m_out.str()).as_object();
    EXPECT_EQ(account.at("schema"), 1);
    EXPECT_EQ(account.at("command"), "check");
    EXPECT_EQ(account.at("outcome"), "unreachable");
    EXPECT_EQ(account.at("exit_code"), 3);
    EXPECT_THAT(std::string(account.at("reason").as_string()), StartsWith("Cannot connect to"));
    EXPECT_EQ(account.at("path"), nullptr);
    const json::array& steps = account.at("steps").as_array();
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].at("name"), "preflight");
    EXPECT_EQ(steps[0].at("code"), 2);
    EXPECT_TRUE(steps[0].at("seconds").is_number());
}

TEST_F(Run, ThePasswordLeavesTheEnvironment) {
    const char* before = std::getenv("KEMFFDC_PASSWORD");
    Do();
    EXPECT_EQ(std::getenv("KEMFFDC_PASSWORD"), nullptr);
    EXPECT_EQ(std::string(before, 13), std::string(13, '\0'));
    EXPECT_THAT(m_err.str(), Not(HasSubstr("secret")));
}

TEST_F(Run, NoProxyForgetsTheEnvironmentsProxies) {
    setenv("https_proxy", "http://127.0.0.1:1", 1);
    setenv("ALL_PROXY", "http://127.0.0.1:1", 1);
    m_options.noProxy = true;
    EXPECT_EQ(Do(), 3);
    EXPECT_EQ(std::getenv("https_proxy"), nullptr);
    EXPECT_EQ(std::getenv("ALL_PROXY"), nullptr);
}

TEST_F(Run, UnusableOutputFolderEndsTheRunBeforeTheBmcIsAsked) {
    m_options.command = Command::kCollect;
    m_options.output = "/no/such/folder";
    EXPECT_EQ(Do(), 8);
    EXPECT_EQ(
        m_err.str(),
        "kemffdc: The output folder /no/such/folder does not exist and cannot be made: No such file or directory. [exit code 8]\n");
}

TEST_F(Run, UnreadablePasswordFileIsLocalTrouble) {
    m_options.passwordFile = "/no/such/file";
    EXPECT_EQ(Do(), 8);
    EXPECT_EQ(
        m_err.str(),
        "kemffdc: Cannot open the password file /no/such/file: No such file or directory. [exit code 8]\n");
}

TEST_F(Run, UnwritableLogFileIsLocalTrouble) {
    m_options.logFile = "/no/such/folder/log";
    EXPECT_EQ(Do(), 8);
    EXPECT_THAT(m_err.str(), HasSubstr("kemffdc: Cannot write the log file /no/such/folder/log: "));
}

TEST_F(Run, AnUnusedExportPasswordIsNotAskedFor) {
    m_options.command = Command::kCollect;
    m_options.exportUri = "tftp://127.0.0.1/x";
    EXPECT_EQ(Do(), 3);
}

TEST_F(Run, AWantedExportPasswordMustBeThere) {
    m_options.exportUri = "sftp://127.0.0.1/x";
    m_options.exportUser = "up";
    m_options.exportPasswordFile = "/no/such/file";
    EXPECT_EQ(Do(), 8);
}

struct SecretRow {
    std::string content;
    int code;
    std::string value;
    const char* why;
};

TEST(ReadSecret, AFilesLastLineEndIsNotPartOfThePassword) {
    const SecretRow rows[] = {
        {"word\n", 0, "word", "one line end"},
        {"word\r\n", 0, "word", "the other line end"},
        {"word", 0, "word", "no line end"},
        {"two\nlines\n\n", 0, "two\nlines\n", "only the last one"},
        {" blanks \n", 0, " blanks ", "blanks count"},
        {"", 2, "", "empty"},
        {"\n", 2, "", "an empty line"},
        {std::string("a\0b", 3), 2, "", "a NUL byte"},
        {std::string(64 * 1024, 'x') + "\n", 0, std::string(64 * 1024, 'x'), "as long as allowed"},
        {std::string(64 * 1024 + 1, 'x'), 2, "", "too long"},
    };
    char name[] = "/tmp/kemffdc-secret-XXXXXX";
    close(mkstemp(name));
    for (const SecretRow& row : rows) {
        std::ofstream(name, std::ios::binary) << row.content;
        Kemffdc::Secret secret;
        const auto outcome =
            Kemffdc::ReadSecret({name, "KEMFFDC_PASSWORD", "", "--password-file", {}}, secret);
        EXPECT_EQ(outcome.code, row.code) << row.why;
        EXPECT_EQ(secret.Reveal(), row.value) << row.why;
    }
    unlink(name);
}

}  // namespace
