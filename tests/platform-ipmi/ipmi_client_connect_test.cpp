// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "CapturedLog.h"
#include "IpmiBmc.h"
#include "IpmiClient.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kNameOfTwo[] = "two-addresses.example";  // 127.0.0.2, then 127.0.0.1

// Before the C library's own, because the program comes before its libraries.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** found) {
    static const auto real =
        reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));  // NOLINT
    if (name == nullptr || std::string(name) != kNameOfTwo) {
        return real(name, service, hints, found);
    }
    const int error = real("127.0.0.2", service, hints, found);
    return error != 0 ? error : real("127.0.0.1", service, hints, &(*found)->ai_next);
}

namespace {

const IPMICOMMAND kPoll{0x4D, {0x01}, 0x3A};

// A UDP port of 127.0.0.1 that takes everything and answers nothing.
class SilentPort {
public:
    SilentPort() : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr*>(&address), length), 0);
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = std::to_string(ntohs(address.sin_port));
    }
    ~SilentPort() { close(m_socket); }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    std::string Port() const { return m_port; }

private:
    int m_socket;
    std::string m_port;
};

// Of this process, by number.
std::vector<int> InheritedSockets() {
    std::vector<int> inherited;
    for (int file = 3; file < 1024; ++file) {
        struct stat what {};
        const int flags = fcntl(file, F_GETFD);
        if (flags < 0 || (flags & FD_CLOEXEC) != 0) continue;
        if (fstat(file, &what) == 0 && S_ISSOCK(what.st_mode)) inherited.push_back(file);
    }
    return inherited;
}

std::string DeadPort() { return SilentPort().Port(); }

double SecondsOf(IpmiClient& client, int& result) {
    const auto start = std::chrono::steady_clock::now();
    result = client.connect();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class IpmiClientConnect : public testing::Test {
protected:
    // Text, in seconds.
    void SessionTimeoutIs(const char* seconds) {
        setenv("VARNEX_IPMI_SESSION_TIMEOUT", seconds, 1);
    }

    // What a connect() with these arguments returns; its session ends with it.
    int Connect(const std::string& host, const std::string& port, std::uint16_t suite = 17,
                const std::string& user = "admin", const std::string& password = "secret") {
        IpmiClient client(host, user, password, port, suite);
        return client.connect();
    }

    // Whether a request goes through, too.
    bool Works(const std::string& host, const std::string& port, std::uint16_t suite) {
        IpmiClient client(host, "admin", "secret", port, suite);
        std::vector<std::uint8_t> response;
        std::uint8_t code = 0xEE;
        return client.connect() == 0 && client.send(kPoll, response, code) == 0 && code == 0 &&
               response == std::vector<std::uint8_t>{0x00};
    }

    CapturedLog log;
};

TEST_F(IpmiClientConnect, OverIpv4AtCipherSuite3Works) {
    const IpmiBmc bmc;

    EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 3));

    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(bmc.Requests("\"event\""),
                ElementsAre(HasSubstr("\"open\", \"user\": \"admin\", \"cipher_suite\": 3}"),
                            HasSubstr("\"close\", \"user\": \"admin\", \"cipher_suite\": 3}")));
}

TEST_F(IpmiClientConnect, OverIpv4AtCipherSuite17Works) {
    const IpmiBmc bmc;

    EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 17));

    EXPECT_THAT(bmc.Requests("\"event\""),
                ElementsAre(HasSubstr("\"open\", \"user\": \"admin\", \"cipher_suite\": 17}"),
                            HasSubstr("\"close\", \"user\": \"admin\", \"cipher_suite\": 17}")));
}

TEST_F(IpmiClientConnect, OverIpv6WorksBareAndInBracketsAtBothCipherSuites) {
    const IpmiBmc bmc("polls: -1", "::1");

    EXPECT_TRUE(Works("::1", bmc.Port(), 3));
    EXPECT_TRUE(Works("[::1]", bmc.Port(), 3));
    EXPECT_TRUE(Works("::1", bmc.Port(), 17));
    EXPECT_TRUE(Works("[::1]", bmc.Port(), 17));

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientConnect, ByNameTriesEveryAddress) {
    const IpmiBmc bmc;  // at the second address alone

    EXPECT_TRUE(Works(kNameOfTwo, bmc.Port(), 17));

    EXPECT_THAT(log.Lines(),
                ElementsAre("2 platform/src/IpmiClient: IPMI to 127.0.0.2 port " + bmc.Port() +
                            ": refused; nothing listens on that UDP port"));
}

TEST_F(IpmiClientConnect, ByNameTriesNoOtherAddressWhereThePasswordIsWrong) {
    const IpmiBmc bmc("", "127.0.0.2");

    EXPECT_EQ(Connect(kNameOfTwo, bmc.Port(), 17, "admin", "wrong"), kIpmiWrongPassword);

    EXPECT_THAT(log.Lines(), SizeIs(1));
}

TEST_F(IpmiClientConnect, RefusedPortIsNoticedAtOnce) {
    const std::string port = DeadPort();
    SessionTimeoutIs("20");
    IpmiClient client("127.0.0.1", "admin", "secret", port, 17);

    int result = 0;
    EXPECT_LT(SecondsOf(client, result), 10.0);

    EXPECT_EQ(result, kIpmiRefused);
    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                         port + ": refused; nothing listens on that UDP port"));
}

TEST_F(IpmiClientConnect, SilentPortCostsTheSessionTimeout) {
    const SilentPort silent;
    SessionTimeoutIs("1");
    IpmiClient client("127.0.0.1", "admin", "secret", silent.Port(), 17);

    int result = 0;
    const double seconds = SecondsOf(client, result);

    EXPECT_GE(seconds, 1.0);
    EXPECT_LT(seconds, 6.0);  // 30 by default
    EXPECT_EQ(result, kIpmiNoAnswer);
    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                         silent.Port() + ": no answer within 1 seconds"));
}

TEST_F(IpmiClientConnect, SessionTimeoutBelowASecondCountsAsOne) {
    const SilentPort silent;
    SessionTimeoutIs("-5");

    EXPECT_EQ(Connect("127.0.0.1", silent.Port()), kIpmiNoAnswer);

    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("no answer within 1 seconds")));
}

TEST_F(IpmiClientConnect, WrongPasswordSaysSoAtBothCipherSuites) {
    const IpmiBmc bmc;

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3, "admin", "wrong"), kIpmiWrongPassword);
    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 17, "admin", "wrong"), kIpmiWrongPassword);

    const std::string line = "1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " + bmc.Port() +
                             ": wrong password for user \"admin\"";
    EXPECT_THAT(log.Lines(), ElementsAre(line, line));
}

TEST_F(IpmiClientConnect, UnknownUserSaysSo) {
    const IpmiBmc bmc;

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 17, "nobody", "secret"), kIpmiUnknownUser);

    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                         bmc.Port() + ": the BMC knows no user \"nobody\""));
}

TEST_F(IpmiClientConnect, CipherSuiteThatTheBmcDoesNotOfferSaysSo) {
    const IpmiBmc bmc("cipher_suites: [17]");

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3), kIpmiNoCipherSuite);

    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                         bmc.Port() + ": the BMC does not offer cipher suite 3"));
}

TEST_F(IpmiClientConnect, SuiteThatTheBmcRefusesWithAnyOfTheCodesForItSaysSo) {
    for (const char* status : {"0x04", "0x05", "0x10", "0x11"}) {
        const IpmiBmc bmc(std::string("cipher_suites: [17]\nrefusal: ") + status);

        EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3), kIpmiNoCipherSuite) << status;

        EXPECT_EQ(log.Lines().back(), "1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                          bmc.Port() + ": the BMC does not offer cipher suite 3");
    }
    EXPECT_THAT(log.Lines(), SizeIs(4));
}

TEST_F(IpmiClientConnect, SessionThatTheBmcRefusesForAnotherReasonShowsTheCode) {
    const IpmiBmc bmc("cipher_suites: [17]\nrefusal: 0x12");

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3), kIpmiFailed);

    EXPECT_THAT(log.Lines(),
                ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " + bmc.Port() +
                            ": the BMC refuses the session (RMCP+ status 12h)"));
}

TEST_F(IpmiClientConnect, BmcWithoutRoomForASessionSaysSo) {
    const IpmiBmc bmc("cipher_suites: [17]\nrefusal: 0x01");

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3), kIpmiFailed);

    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " +
                                         bmc.Port() + ": BMC busy"));
}

TEST_F(IpmiClientConnect, DatagramsThatAllComeTwiceDisturbNothing) {
    const IpmiBmc bmc("polls: -1\nnetwork: {duplicates: 100}");

    EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 3));
    EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 17));

    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(bmc.Requests("netfn"), SizeIs(2)) << "a copy was taken for a request";
}

TEST_F(IpmiClientConnect, DatagramsThatOvertakeEachOtherDisturbNothing) {
    const IpmiBmc bmc("polls: -1\nnetwork: {duplicates: 50, reordered: 40, seed: 7}");

    for (int n = 0; n < 10; ++n) EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 17)) << n;

    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(IpmiClientConnect, SetUpWithABmcThatTakesItsTimeForEachStepWorks) {
    const IpmiBmc bmc("polls: -1\nanswer_time: 1.8");  // longer than a request waits at first

    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Works("127.0.0.1", bmc.Port(), 17));

    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), 25.0) << "each step was answered in vain twice";
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_THAT(bmc.Requests("\"open\""), SizeIs(1));
}

TEST_F(IpmiClientConnect, SocketsAreClosedInProgramsThatTheHostStarts) {
    const IpmiBmc bmc;
    IpmiClient client("127.0.0.1", "admin", "secret", bmc.Port(), 17);
    const int hosts = socket(AF_INET, SOCK_DGRAM, 0);  // the host's own, which is left alone

    ASSERT_EQ(client.connect(), 0);

    EXPECT_THAT(InheritedSockets(), ElementsAre(hosts));
    close(hosts);
}

TEST_F(IpmiClientConnect, UserWithoutTheAdministratorsPrivilegeIsNamed) {
    const IpmiBmc bmc("privilege: 3");

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 17), kIpmiNoPrivilege);

    EXPECT_THAT(log.Lines(),
                ElementsAre("1 platform/src/IpmiClient: IPMI to 127.0.0.1 port " + bmc.Port() +
                            ": user \"admin\" may not act as administrator"));
}

TEST_F(IpmiClientConnect, CipherSuitesThatNobodyImplementsAreRefusedWithoutARequest) {
    for (const std::uint16_t suite :
         std::vector<std::uint16_t>{4, 5, 13, 18, 255, 256 + 17, 65535}) {
        EXPECT_EQ(Connect("127.0.0.1", "1", suite), kIpmiBadArgument) << suite;
    }
    EXPECT_THAT(log.Lines(), SizeIs(7));
    EXPECT_EQ(
        log.Lines().front(),
        "1 platform/src/IpmiClient: IPMI: cipher suite 4 is not supported; 3 and 17 are the usual ones");
}

TEST_F(IpmiClientConnect, TextsThatAreNoPortAreRefused) {
    for (const char* port : {"x", "65536", "-1", " 623", "6 23", "0x26f", "623,"}) {
        EXPECT_EQ(Connect("127.0.0.1", port), kIpmiBadArgument) << port;
    }
    EXPECT_EQ(log.Lines().front(), "1 platform/src/IpmiClient: IPMI: \"x\" is no UDP port");
}

TEST_F(IpmiClientConnect, NoPortMeansTheUsualOne) {
    if (Connect("127.0.0.1", "623") != kIpmiRefused) GTEST_SKIP() << "something is on port 623";

    EXPECT_EQ(Connect("127.0.0.1", ""), kIpmiRefused);
    EXPECT_EQ(Connect("127.0.0.1", "0"), kIpmiRefused);

    const std::string line =
        "1 platform/src/IpmiClient: IPMI to 127.0.0.1 port 623: refused; nothing listens on that UDP port";
    EXPECT_THAT(log.Lines(), ElementsAre(line, line, line));
}

TEST_F(IpmiClientConnect, HostUserAndPasswordThatIpmiCannotCarryAreRefused) {
    const std::string nul("a\0b", 3);

    EXPECT_EQ(Connect("", "623"), kIpmiBadArgument);
    EXPECT_EQ(Connect(nul, "623"), kIpmiBadArgument);
    EXPECT_EQ(Connect("127.0.0.1", "1", 17, std::string(17, 'u')), kIpmiBadArgument);
    EXPECT_EQ(Connect("127.0.0.1", "1", 17, nul), kIpmiBadArgument);
    EXPECT_EQ(Connect("127.0.0.1", "1", 17, "u", std::string(21, 'p')), kIpmiBadArgument);
    EXPECT_EQ(Connect("127.0.0.1", "1", 17, "u", nul), kIpmiBadArgument);

    const std::string start = "1 platform/src/IpmiClient: IPMI: ";
    const std::string noHost = start + "there is no host to connect to";
    const std::string badUser = start + "the user name is longer than 16 bytes or holds a NUL";
    const std::string badPassword = start + "the password is longer than 20 bytes or holds a NUL";
    EXPECT_THAT(log.Lines(),
                ElementsAre(noHost, noHost, badUser, badUser, badPassword, badPassword));
}

TEST_F(IpmiClientConnect, LongestUserAndPasswordAreTaken) {
    const std::string user(16, 'u');
    const std::string password(20, 'p');
    const IpmiBmc bmc("users: {" + user + ": " + password + "}");

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 17, user, password), 0);
    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 3, user, password), 0);

    EXPECT_EQ(Connect("127.0.0.1", bmc.Port(), 17, user, password.substr(1)), kIpmiWrongPassword);
}

TEST_F(IpmiClientConnect, HostWithoutAnAddressSaysSo) {
    EXPECT_EQ(Connect("[127.0.0.1", "623"), kIpmiUnknownHost);

    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("IPMI: no address for \"[127.0.0.1\": ")));
}

TEST_F(IpmiClientConnect, LinkLocalAddressWithoutItsScopeSaysSo) {
    EXPECT_EQ(Connect("fe80::1", "623"), kIpmiBadArgument);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI to fe80::1 port 623: a link-local address needs its scope, as in fe80::1%eth0"));
}

TEST_F(IpmiClientConnect, OnAConnectedObjectStartsAfresh) {
    const IpmiBmc bmc;
    IpmiClient client("127.0.0.1", "admin", "secret", bmc.Port(), 17);

    EXPECT_EQ(client.connect(), 0);
    EXPECT_EQ(client.connect(), 0);
    client.disconnect();
    client.disconnect();

    EXPECT_THAT(bmc.Requests("\"event\""), ElementsAre(HasSubstr("open"), HasSubstr("close"),
                                                       HasSubstr("open"), HasSubstr("close")));
}

TEST_F(IpmiClientConnect, DestructorEndsTheSession) {
    const IpmiBmc bmc;

    { EXPECT_EQ(Connect("127.0.0.1", bmc.Port()), 0); }

    EXPECT_THAT(bmc.Requests("\"close\""), SizeIs(1));
}

TEST_F(IpmiClientConnect, PasswordIsInNoLine) {
    const IpmiBmc bmc("cipher_suites: [3]");

    Connect("127.0.0.1", bmc.Port(), 3, "admin", "Tr0ub4dor");
    Connect("127.0.0.1", bmc.Port(), 17, "admin", "Tr0ub4dor");
    Connect("127.0.0.1", bmc.Port(), 3, "nobody", "Tr0ub4dor");
    Connect("127.0.0.1", DeadPort(), 3, "admin", "Tr0ub4dor");

    EXPECT_THAT(log.Lines(), SizeIs(4));
    for (const std::string& line : log.Lines()) EXPECT_EQ(line.find("Tr0ub"), std::string::npos);
}

}  // namespace
