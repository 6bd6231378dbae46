// SPDX-License-Identifier: Apache-2.0
#include "IpmiClient.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "../ipmi/module.h"
#include "GlobalConfig.h"
#include "IpmiSessions.h"
#include "IpmiWithoutSession.h"
#include "LinkLocalRelay.h"
#include "Log.h"

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

// The module

std::string ModulePath() {
    Dl_info here{};
    if (dladdr(kLogSource, &here) == 0 || here.dli_fname == nullptr) return {};
    const std::unique_ptr<char, decltype(&std::free)> file(realpath(here.dli_fname, nullptr),
                                                           &std::free);
    if (!file) return {};
    const std::string library(file.get());
    return library.substr(0, library.rfind('/') + 1) + VARNEX_IPMI_MODULE;
}

// Found while the library is loaded: its own name may be relative, and the host may later change
// its current folder. Never destroyed: the last connect() may come late.
const auto& g_modulePath = *new std::string(ModulePath());

const varnex_ipmi_module* OpenModule(const std::string& path) {
    // An empty name would be the host itself.
    void* library = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI is not available: the module " << path
            << (access(path.c_str(), F_OK) == 0
                    ? " cannot be loaded; it needs the package libfreeipmi17: "
                    : " is missing; it is built with -DVARNEX_IPMI=ON from libfreeipmi-dev: ")
            << (reason != nullptr ? reason : "no reason given");
        return nullptr;
    }
    const auto entry =
        reinterpret_cast<varnex_ipmi_module_entry>(dlsym(library, VARNEX_IPMI_MODULE_ENTRY));
    if (entry != nullptr && entry()->version == VARNEX_IPMI_MODULE_VERSION) return entry();
    Log(1, kLogSource, __LINE__).Stream() << "IPMI is not available: the module " << path
                                          << " is of another version than this library";
    dlclose(library);
    return nullptr;
}

// Loaded once and for good; a failure is tried again by the next connect().
const varnex_ipmi_module* Module() {
    static std::mutex mutex;
    static const varnex_ipmi_module* module = nullptr;
    const std::lock_guard<std::mutex> lock(mutex);
    if (module == nullptr) module = OpenModule(g_modulePath);
    return module;
}

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

std::string WithoutBrackets(const std::string& host) {
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
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

struct CloseSession {
    const varnex_ipmi_module* module;
    void operator()(varnex_ipmi_session* ended) const { module->close(ended); }
};

struct Session {
    void Close() {
        open.reset();
        relay.reset();
    }

    std::unique_ptr<LinkLocalRelay> relay;
    std::unique_ptr<varnex_ipmi_session, CloseSession> open{nullptr, CloseSession{nullptr}};
};

// The session of a client, as the whole process sees it.
struct Connection {
    Connection();
    ~Connection();

    std::mutex inUse;  // held while an operation of the client is at work
    Session session;
};

// For CloseIpmiSessions. Never destroyed: clients may be of static storage.
struct Connections {
    std::mutex lock;
    std::set<Connection*> all;
};

Connections& TheConnections() {
    static auto* const connections = new Connections;
    return *connections;
}

Connection::Connection() {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    connections.all.insert(this);
}

Connection::~Connection() {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    connections.all.erase(this);
}

}  // namespace

struct IpmiClient::Impl {
    int Connect();
    void Disconnect();
    int Send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
             std::uint8_t& completionCode);

    int ConnectLan();
    bool ArgumentsHold();
    bool TakePort();
    int ConnectTo(const addrinfo& found, std::string& why);
    void Keep(const addrinfo& found);
    int OpenSession(std::string& why);
    int OpenSessionOnce(varnex_ipmi_error& error);
    bool StartRelay();
    int WhyRefused(std::string& why) const;
    std::chrono::milliseconds Timeout() const { return std::chrono::seconds(timeout); }
    int ConnectDevice();
    int FindDevice(std::string& device) const;
    std::string WhyNot(int result, const char* words) const;

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
    std::string endpoint;  // how the module calls the BMC
    std::string peer;      // how texts call it
    Connection connection;
    Session& session = connection.session;
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
    return m_impl->Connect();
}

void IpmiClient::disconnect() {
    const std::lock_guard<std::mutex> hold(m_impl->connection.inUse);
    m_impl->Disconnect();
}

int IpmiClient::send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                     std::uint8_t& completionCode) {
    const std::lock_guard<std::mutex> hold(m_impl->connection.inUse);
    return m_impl->Send(command, response, completionCode);
}

int IpmiClient::Impl::Connect() {
    Disconnect();
    module = Module();
    if (module == nullptr) return kIpmiNoModule;
    timeout = SessionTimeout();
    return lan ? ConnectLan() : ConnectDevice();
}

void IpmiClient::Impl::Disconnect() { session.Close(); }

int IpmiClient::Impl::Send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                           std::uint8_t& completionCode) {
    if (!session.open) {
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI: nothing is connected, or the session was lost; connect again";
        return kIpmiNotConnected;
    }
    std::array<std::uint8_t, kLongestAnswer> answer;
    std::size_t size = 0;
    varnex_ipmi_error error{};
    const int result =
        module->send(session.open.get(), command.netfn, command.command, command.data.data(),
                     command.data.size(), answer.data(), answer.size(), &size, &error);
    if (result != kIpmiDone) {
        Log(1, kLogSource, __LINE__).Stream() << WhyNot(result, error.text);
        if (result == kIpmiNoAnswer) Disconnect();  // the library would never send again
        return result;
    }
    response.assign(answer.begin() + 1, answer.begin() + static_cast<std::ptrdiff_t>(size));
    completionCode = answer[0];
    return kIpmiDone;
}

int IpmiClient::Impl::ConnectLan() {
    if (!TakePort() || !ArgumentsHold()) return kIpmiBadArgument;

    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(WithoutBrackets(host).c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0) {
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI: no address for " << Quoted(host) << ": " << gai_strerror(error);
        return kIpmiUnknownHost;
    }

    const Addresses addresses(found);
    for (const addrinfo* one = found;; one = one->ai_next) {
        std::string why;
        const int result = ConnectTo(*one, why);
        if (result == kIpmiDone) return result;
        // Another address may lead to the same BMC; another password does not.
        const bool unreached =
            result == kIpmiRefused || result == kIpmiNoAnswer || result == kIpmiFailed;
        const bool last = !unreached || one->ai_next == nullptr;
        Log(last ? 1 : 2, kLogSource, __LINE__).Stream() << why;
        if (last) return result;
    }
}

bool IpmiClient::Impl::TakePort() {
    const std::optional<std::uint16_t> parsed = ParsePort(portText);
    if (parsed) {
        port = *parsed;
    } else {
        Log(1, kLogSource, __LINE__).Stream() << "IPMI: " << Quoted(portText) << " is no UDP port";
    }
    return parsed.has_value();
}

bool IpmiClient::Impl::ArgumentsHold() {
    const auto unfit = [](const std::string& text, std::size_t longest) {
        return text.size() > longest || text.find('\0') != std::string::npos;
    };
    const char* why = nullptr;
    if (host.empty() || host.find('\0') != std::string::npos) {
        why = "there is no host to connect to";
    } else if (unfit(user, kLongestUser)) {
        why = "the user name is longer than 16 bytes or holds a NUL";
    } else if (unfit(password, kLongestPassword)) {
        why = "the password is longer than 20 bytes or holds a NUL";
    }
    if (why != nullptr) {
        Log(1, kLogSource, __LINE__).Stream() << "IPMI: " << why;
        return false;
    }
    if (module->knows_cipher_suite(suite, algorithms.data()) != 0) return true;
    Log(1, kLogSource, __LINE__).Stream()
        << "IPMI: cipher suite " << suite << " is not supported; 3 and 17 are the usual ones";
    return false;
}

int IpmiClient::Impl::ConnectTo(const addrinfo& found, std::string& why) {
    Keep(found);
    const std::string numeric = NumberOf(address);
    peer = "IPMI to " + numeric + " port " + std::to_string(port);
    firstWait = std::min(kFirstWait, Timeout() / kWaitsOfATimeout);
    const IpmiProbe probe = ProbeIpmi(address, firstWait, Timeout());
    if (probe.error == EINVAL) {  // what Linux makes of a lost scope
        why = WhyNot(kIpmiBadArgument, "a link-local address needs its scope, as in fe80::1%eth0");
        return kIpmiBadArgument;
    }
    if (probe.error != 0 || !probe.answerTime) {
        const int result = probe.error == 0              ? kIpmiNoAnswer
                           : probe.error == ECONNREFUSED ? kIpmiRefused
                                                         : kIpmiFailed;
        why = WhyNot(result, std::generic_category().message(probe.error).c_str());
        return result;
    }
    // In the set-up the newest copy's answer alone counts: a quarter more time than the BMC took.
    firstWait = std::max(firstWait, std::min(*probe.answerTime * 5 / 4, Timeout() / 2));
    endpoint = (address.ai_family == AF_INET6 ? "[" + numeric + "]" : numeric) + ":" +
               std::to_string(port);
    if (numeric.find('%') != std::string::npos && !StartRelay()) {
        why = WhyNot(kIpmiFailed, "a link-local address needs a relay, which cannot be set up");
        return kIpmiFailed;
    }
    const int result = OpenSession(why);
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
int IpmiClient::Impl::OpenSession(std::string& why) {
    varnex_ipmi_error error{};
    int result = OpenSessionOnce(error);
    for (int tries = 1; result == VARNEX_IPMI_DISTURBED && tries < kTriesWhenDisturbed; ++tries) {
        if (!StartRelay()) break;
        result = OpenSessionOnce(error);
    }
    if (result == VARNEX_IPMI_REFUSED) return WhyRefused(why);
    if (result == VARNEX_IPMI_DISTURBED) result = kIpmiFailed;
    if (result != kIpmiDone) why = WhyNot(result, error.text);
    return result;
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
    if (result == kIpmiDone) session.open = {opened, CloseSession{module}};
    return result;
}

// FreeIPMI has one error for most of the status codes that a BMC can refuse a session with.
int IpmiClient::Impl::WhyRefused(std::string& why) const {
    const std::optional<std::uint8_t> status =
        AskOpenSessionStatus(address, algorithms, firstWait, Timeout());
    switch (status.value_or(0)) {
        case kBadAuthentication:
        case kBadIntegrity:
        case kBadConfidentiality:
        case kNoMatchingSuite:
            why = WhyNot(kIpmiNoCipherSuite, "");
            return kIpmiNoCipherSuite;
        case 0:  // it refuses a later step
            why = WhyNot(kIpmiFailed, "the BMC refuses the session, and IPMI has no word for why");
            return kIpmiFailed;
        default:
            char text[80];
            (void)std::snprintf(text, sizeof text,
                                "the BMC refuses the session (RMCP+ status %02Xh)",
                                unsigned{*status});
            why = WhyNot(kIpmiFailed, text);
            return kIpmiFailed;
    }
}

int IpmiClient::Impl::ConnectDevice() {
    std::string device;
    if (const int result = FindDevice(device); result != kIpmiDone) return result;
    peer = "IPMI through " + device;
    varnex_ipmi_session* opened = nullptr;
    varnex_ipmi_error error{};
    const int result = module->open_device(device.c_str(), &opened, &error);
    if (result == kIpmiDone) {
        session.open = {opened, CloseSession{module}};
    } else {
        Log(1, kLogSource, __LINE__).Stream() << WhyNot(result, error.text);
    }
    return result;
}

// Opening it first tells causes apart that the library reports as one.
int IpmiClient::Impl::FindDevice(std::string& device) const {
    const std::string suffix = std::to_string(number);
    int error = ENOENT;
    for (const char* prefix : {"/dev/ipmi", "/dev/ipmi/", "/dev/ipmidev/"}) {
        device = prefix + suffix;
        const FileDescriptor file(open(device.c_str(), O_RDWR | O_CLOEXEC));
        if (file.IsOpen()) return kIpmiDone;
        error = errno;
        if (error != ENOENT && error != ENOTDIR) break;
    }
    const int result = error == ENOTDIR ? kIpmiNoDevice : ResultOf(error);
    if (error == ENOENT || error == ENOTDIR) device = "/dev/ipmi" + suffix;
    Log(1, kLogSource, __LINE__).Stream()
        << "IPMI through " << device << ": "
        << (result == kIpmiNoDevice
                ? "no such device; load the kernel modules ipmi_si and ipmi_devintf"
            : result == kIpmiNoPermission
                ? "no permission; run as root or give this user access to the device"
                : std::generic_category().message(error));
    return result;
}

std::string IpmiClient::Impl::WhyNot(int result, const char* words) const {
    const std::string start = peer + ": ";
    switch (result) {
        case kIpmiRefused:
            return start + "refused; nothing listens on that UDP port";
        case kIpmiNoAnswer:
            return start + "no answer" +
                   (lan ? " within " + std::to_string(timeout) + " seconds" : std::string()) +
                   (session.open ? "; the session is lost" : "");
        case kIpmiWrongPassword:
            return start + "wrong password for user " + Quoted(user);
        case kIpmiUnknownUser:
            return start + "the BMC knows no user " + Quoted(user);
        case kIpmiNoCipherSuite:
            return start + "the BMC does not offer cipher suite " + std::to_string(suite);
        case kIpmiNoPrivilege:
            return start + "user " + Quoted(user) + " may not act as administrator";
        default:
            return start + words;
    }
}

namespace Varnex {
namespace {

// What is left to be closed, and how far that is. Shared with a thread that may outlive the caller.
struct Closing {
    std::vector<Session> sessions;
    std::mutex lock;
    std::condition_variable changed;
    bool done = false;
};

// Those of all clients that are idle.
void TakeSessions(Closing& closing) {
    Connections& connections = TheConnections();
    const std::lock_guard<std::mutex> hold(connections.lock);
    for (Connection* connection : connections.all) {
        const std::unique_lock<std::mutex> idle(connection->inUse, std::try_to_lock);
        if (!idle.owns_lock() || !connection->session.open) continue;
        closing.sessions.push_back(std::move(connection->session));
    }
}

void Close(const std::shared_ptr<Closing>& closing) {
    for (Session& session : closing->sessions) session.Close();
    const std::lock_guard<std::mutex> over(closing->lock);
    closing->done = true;
    closing->changed.notify_all();
}

}  // namespace

void CloseIpmiSessions(std::chrono::milliseconds atMost) {
    const auto closing = std::make_shared<Closing>();
    TakeSessions(*closing);
    if (closing->sessions.empty()) return;
    std::unique_lock<std::mutex> hold(closing->lock);
    try {
        std::thread(Close, closing).detach();
    } catch (const std::system_error&) {
        return;  // no thread to be had: the BMC gives the sessions up by itself
    }
    closing->changed.wait_for(hold, atMost, [&] { return closing->done; });
}

}  // namespace Varnex
