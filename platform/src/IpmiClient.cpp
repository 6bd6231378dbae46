// SPDX-License-Identifier: Apache-2.0
#include "IpmiClient.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "GlobalConfig.h"
#include "IpmiConnections.h"
#include "IpmiEvents.h"
#include "IpmiModule.h"
#include "IpmiWithoutSession.h"
#include "Log.h"
#include "ipmi_watchers.h"
#include "shared/FileDescriptor.h"
#include "shared/HostName.h"

namespace {

constexpr char kLogSource[] = "platform/src/IpmiClient";

constexpr std::uint16_t kRmcpPort = 623;
constexpr std::size_t kLongestUser = 16;
constexpr std::size_t kLongestPassword = 20;
constexpr std::size_t kLongestAnswer = 1024;

constexpr int kSessionTimeout = 30;  // seconds
constexpr int kShortestSessionTimeout = 1;
constexpr int kLongestSessionTimeout = 300;

// What a request waits before its first copy, however long the session lives. A BMC that gives the
// session up after some seconds of silence hears of it in time, one that is slow is not flooded.
constexpr std::chrono::milliseconds kFirstWait{1500};

constexpr int kWaitsOfATimeout = 4;  // at the least, for a short session time-out

// How often the set-up of a session is tried when answers of other steps disturb it.
constexpr int kTriesWhenDisturbed = 3;

constexpr std::uint8_t kBadAuthentication = 0x04;  // status codes of RMCP+ (table 13-15)
constexpr std::uint8_t kBadIntegrity = 0x05;
constexpr std::uint8_t kBadConfidentiality = 0x10;
constexpr std::uint8_t kNoMatchingSuite = 0x11;

// Addresses

struct FreeAddresses {
    void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

std::optional<std::uint16_t> ParsePort(const std::string& text) {
    if (text.empty()) return kRmcpPort;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return port == 0 ? kRmcpPort : port;
}

std::string NumberOf(const addrinfo& address) {
    char text[NI_MAXHOST] = "";
    getnameinfo(address.ai_addr, address.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    return text;
}

int SessionTimeout() {
    return std::clamp(GetGlobalConfigValue("IPMI_SESSION_TIMEOUT", kSessionTimeout),
                      kShortestSessionTimeout, kLongestSessionTimeout);
}

// Errors of a socket or a device that say where the fault lies.
int ResultOf(int error) {
    switch (error) {
        case ECONNREFUSED:
            return kIpmiRefused;
        case ENOENT:
        case ENODEV:
        case ENXIO:
            return kIpmiNoDevice;
        case EACCES:
        case EPERM:
            return kIpmiNoPermission;
        default:
            return kIpmiFailed;
    }
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

}  // namespace

struct IpmiClient::Impl {
    int Connect();
    void Disconnect();
    int Send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
             std::uint8_t& completionCode);

    int ConnectLan();
    bool ArgumentsHold();
    int ConnectTo(const addrinfo& found);
    void Keep(const addrinfo& found);
    int OpenSession();
    int OpenSessionOnce(varnex_ipmi_error& error);
    bool StartRelay();
    int WhyRefused();
    std::chrono::milliseconds Timeout() const { return std::chrono::seconds(timeout); }
    int ConnectDevice();
    int FindDevice(std::string& device);
    int Failed(int result, const char* words);

    // Given.
    bool lan = false;
    std::string host;
    std::string user;
    std::string password;
    std::string portText;
    std::uint16_t suite = 0;
    int number = 0;

    // Of the connection that is being made or open.
    const varnex_ipmi_module* module = nullptr;  // null until a connect() has loaded it
    std::uint16_t port = 0;
    int timeout = 0;                         // seconds
    std::chrono::milliseconds firstWait{0};  // before a request's first copy
    addrinfo address{};                      // of the BMC; points to `storage`
    sockaddr_storage storage{};
    IpmiAlgorithms algorithms{};
    std::string numeric;   // the address
    std::string endpoint;  // how the module calls the BMC
    std::string peer;      // how texts call it
    std::string why;       // the last operation failed
    ClientConnection connection;
    IpmiSession& session = connection.session;
};

IpmiClient::IpmiClient(const std::string& host, const std::string& userid,
                       const std::string& password, const std::string& portText,
                       std::uint16_t cipherSuite)
    : m_impl(std::make_unique<Impl>()) {
    m_impl->lan = true;
    m_impl->host = host;
    m_impl->user = userid;
    m_impl->password = password;
    m_impl->portText = portText;
    m_impl->suite = cipherSuite;
}

IpmiClient::IpmiClient(int interfaceNumber) : m_impl(std::make_unique<Impl>()) {
    m_impl->number = interfaceNumber;
}

IpmiClient::~IpmiClient() = default;

int IpmiClient::connect() {
    const std::lock_guard<std::mutex> hold(m_impl->connection.inUse);
    m_impl->why.clear();
    m_impl->numeric.clear();
    const int result = m_impl->Connect();
    if (result != kIpmiDone) Log(1, kLogSource, __LINE__).Stream() << m_impl->why;
    ipmi_watchers::Connected(
        {!m_impl->lan, Varnex::IpmiError(result), m_impl->why, m_impl->numeric});
    return result;
}

void IpmiClient::disconnect() {
    const std::lock_guard<std::mutex> hold(m_impl->connection.inUse);
    m_impl->Disconnect();
}

int IpmiClient::send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                     std::uint8_t& completionCode) {
    const std::lock_guard<std::mutex> hold(m_impl->connection.inUse);
    m_impl->why.clear();
    const int result = m_impl->Send(command, response, completionCode);
    if (result != kIpmiDone) Log(1, kLogSource, __LINE__).Stream() << m_impl->why;
    ipmi_watchers::Exchanged({!m_impl->lan, command.netfn, command.command,
                              Varnex::IpmiError(result),
                              result == kIpmiDone ? completionCode : std::uint8_t{0}, m_impl->why});
    if (result == kIpmiNoAnswer) m_impl->Disconnect();  // the module would never send again
    return result;
}

int IpmiClient::Impl::Connect() {
    Disconnect();
    module = LoadIpmiModule(why);
    if (module == nullptr) return kIpmiNoModule;
    timeout = SessionTimeout();
    return lan ? ConnectLan() : ConnectDevice();
}

void IpmiClient::Impl::Disconnect() { session.Close(); }

int IpmiClient::Impl::Send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                           std::uint8_t& completionCode) {
    if (!session.IsOpen()) {
        why = "IPMI: nothing is connected, or the session was lost; connect again";
        return kIpmiNotConnected;
    }
    std::array<std::uint8_t, kLongestAnswer> answer;
    std::size_t size = 0;
    varnex_ipmi_error error{};
    const int result =
        module->send(session.Get(), command.netfn, command.command, command.data.data(),
                     command.data.size(), answer.data(), answer.size(), &size, &error);
    if (result != kIpmiDone) return Failed(result, error.text);
    response.assign(answer.begin() + 1, answer.begin() + static_cast<std::ptrdiff_t>(size));
    completionCode = answer[0];
    return kIpmiDone;
}

int IpmiClient::Impl::ConnectLan() {
    if (!ArgumentsHold()) return kIpmiBadArgument;

    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(shared::WithoutBrackets(host).c_str(),
                                  std::to_string(port).c_str(), &hints, &found);
    if (error != 0) {
        why = "IPMI: no address for " + Quoted(host) + ": " + gai_strerror(error);
        return kIpmiUnknownHost;
    }

    const Addresses addresses(found);
    for (const addrinfo* one = found;; one = one->ai_next) {
        const int result = ConnectTo(*one);
        // Another address may lead to the same BMC; another password does not.
        const bool unreached =
            result == kIpmiRefused || result == kIpmiNoAnswer || result == kIpmiFailed;
        if (!unreached || one->ai_next == nullptr) return result;
        Log(2, kLogSource, __LINE__).Stream() << why;
    }
}

bool IpmiClient::Impl::ArgumentsHold() {
    const auto unfit = [](const std::string& text, std::size_t longest) {
        return text.size() > longest || text.find('\0') != std::string::npos;
    };
    const std::optional<std::uint16_t> parsed = ParsePort(portText);
    port = parsed.value_or(0);
    if (!parsed) {
        why = "IPMI: " + Quoted(portText) + " is no UDP port";
    } else if (host.empty() || host.find('\0') != std::string::npos) {
        why = "IPMI: there is no host to connect to";
    } else if (unfit(user, kLongestUser)) {
        why = "IPMI: the user name is longer than 16 bytes or holds a NUL";
    } else if (unfit(password, kLongestPassword)) {
        why = "IPMI: the password is longer than 20 bytes or holds a NUL";
    } else if (module->knows_cipher_suite(suite, algorithms.data()) == 0) {
        why = "IPMI: cipher suite " + std::to_string(suite) +
              " is not supported; 3 and 17 are the usual ones";
    }
    return why.empty();
}

int IpmiClient::Impl::ConnectTo(const addrinfo& found) {
    Keep(found);
    numeric = NumberOf(address);
    peer = "IPMI to " + numeric + " port " + std::to_string(port);
    firstWait = std::min(kFirstWait, Timeout() / kWaitsOfATimeout);
    const IpmiProbe probe = ProbeIpmi(address, firstWait, Timeout());
    if (probe.error == EINVAL) {  // what Linux makes of a lost scope
        return Failed(kIpmiBadArgument, "a link-local address needs its scope, as in fe80::1%eth0");
    }
    if (probe.error != 0) {
        return Failed(probe.error == ECONNREFUSED ? kIpmiRefused : kIpmiFailed,
                      std::generic_category().message(probe.error).c_str());
    }
    if (!probe.answerTime) return Failed(kIpmiNoAnswer, "");
    // In the set-up the newest copy's answer alone counts: a quarter more time than the BMC took.
    firstWait = std::max(firstWait, std::min(*probe.answerTime * 5 / 4, Timeout() / 2));
    endpoint = shared::HostAndPort(numeric, port);
    if (numeric.find('%') != std::string::npos && !StartRelay()) {
        return Failed(kIpmiFailed, "a link-local address needs a relay, which cannot be set up");
    }
    const int result = OpenSession();
    if (result != kIpmiDone) session.Close();
    return result;
}

void IpmiClient::Impl::Keep(const addrinfo& found) {
    address = found;
    std::memcpy(&storage, found.ai_addr, found.ai_addrlen);
    address.ai_addr = reinterpret_cast<sockaddr*>(&storage);
    address.ai_next = nullptr;
}

bool IpmiClient::Impl::StartRelay() {
    session.relay = LinkLocalRelay::Start(*address.ai_addr, address.ai_addrlen);
    if (session.relay) endpoint = session.relay->Endpoint();
    return session.relay != nullptr;
}

// Directly first: the relay, which keeps the answers in step, costs a thread for each session.
int IpmiClient::Impl::OpenSession() {
    varnex_ipmi_error error{};
    int result = OpenSessionOnce(error);
    for (int tries = 1; result == VARNEX_IPMI_DISTURBED && tries < kTriesWhenDisturbed; ++tries) {
        if (!StartRelay()) break;
        result = OpenSessionOnce(error);
    }
    if (result == kIpmiDone) return kIpmiDone;
    if (result == VARNEX_IPMI_REFUSED) return WhyRefused();
    return Failed(result == VARNEX_IPMI_DISTURBED ? kIpmiFailed : result, error.text);
}

int IpmiClient::Impl::OpenSessionOnce(varnex_ipmi_error& error) {
    const varnex_ipmi_lan request = {endpoint.c_str(),
                                     user.c_str(),
                                     password.c_str(),
                                     static_cast<std::uint8_t>(suite),
                                     static_cast<std::uint32_t>(Timeout().count()),
                                     static_cast<std::uint32_t>(firstWait.count())};
    varnex_ipmi_session* opened = nullptr;
    const int result = module->open_lan(&request, &opened, &error);
    if (result == kIpmiDone) session.Take(opened, *module, false);
    return result;
}

// FreeIPMI has one error for most of the status codes that a BMC can refuse a session with.
int IpmiClient::Impl::WhyRefused() {
    const std::optional<std::uint8_t> status =
        AskOpenSessionStatus(address, algorithms, firstWait, Timeout());
    switch (status.value_or(0)) {
        case kBadAuthentication:
        case kBadIntegrity:
        case kBadConfidentiality:
        case kNoMatchingSuite:
            return Failed(kIpmiNoCipherSuite, "");
        case 0:  // it refuses a later step
            return Failed(kIpmiFailed, "the BMC refuses the session, and IPMI has no word for why");
        default:
            char text[80];
            (void)std::snprintf(text, sizeof text,
                                "the BMC refuses the session (RMCP+ status %02Xh)",
                                unsigned{*status});
            return Failed(kIpmiFailed, text);
    }
}

int IpmiClient::Impl::ConnectDevice() {
    std::string device;
    if (const int result = FindDevice(device); result != kIpmiDone) return result;
    peer = "IPMI through " + device;
    varnex_ipmi_session* opened = nullptr;
    varnex_ipmi_error error{};
    const int result = module->open_device(device.c_str(), &opened, &error);
    if (result != kIpmiDone) return Failed(result, error.text);
    session.Take(opened, *module, true);
    return kIpmiDone;
}

// Opening it first tells causes apart that the library reports as one.
int IpmiClient::Impl::FindDevice(std::string& device) {
    const std::string suffix = std::to_string(number);
    int error = ENOENT;
    for (const char* prefix : {"/dev/ipmi", "/dev/ipmi/", "/dev/ipmidev/"}) {
        device = prefix + suffix;
        const shared::FileDescriptor file(open(device.c_str(), O_RDWR | O_CLOEXEC));
        if (file.IsOpen()) return kIpmiDone;
        error = errno;
        if (error != ENOENT && error != ENOTDIR) break;
    }
    const int result = error == ENOTDIR ? kIpmiNoDevice : ResultOf(error);
    if (error == ENOENT || error == ENOTDIR) device = "/dev/ipmi" + suffix;
    peer = "IPMI through " + device;
    return Failed(result, std::generic_category().message(error).c_str());
}

// Says why; gives `result` back.
int IpmiClient::Impl::Failed(int result, const char* words) {
    why = peer + ": ";
    switch (result) {
        case kIpmiRefused:
            why += "refused; nothing listens on that UDP port";
            break;
        case kIpmiNoAnswer:
            why += "no answer";
            if (lan) why += " within " + std::to_string(timeout) + " seconds";
            if (session.IsOpen()) why += "; the session is lost";
            break;
        case kIpmiWrongPassword:
            why += "wrong password for user " + Quoted(user);
            break;
        case kIpmiUnknownUser:
            why += "the BMC knows no user " + Quoted(user);
            break;
        case kIpmiNoCipherSuite:
            why += "the BMC does not offer cipher suite " + std::to_string(suite);
            break;
        case kIpmiNoPrivilege:
            why += "user " + Quoted(user) + " may not act as administrator";
            break;
        case kIpmiNoDevice:
            why += "no such device; load the kernel modules ipmi_si and ipmi_devintf";
            break;
        case kIpmiNoPermission:
            why += "no permission; run as root or give this user access to the device";
            break;
        default:
            why += words;
    }
    return result;
}
