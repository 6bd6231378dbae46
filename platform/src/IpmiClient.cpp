// SPDX-License-Identifier: Apache-2.0
#include "IpmiClient.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "../ipmi/module.h"
#include "GlobalConfig.h"
#include "LinkLocalRelay.h"
#include "Log.h"

namespace {

constexpr char kLogSource[] = "platform/src/IpmiClient";

constexpr std::uint16_t kRmcpPort = 623;
constexpr std::size_t kLongestUser = 16;
constexpr std::size_t kLongestPassword = 20;
constexpr std::size_t kLongestAnswer = 1024;

constexpr int kSessionTimeout = 8;  // seconds
constexpr int kShortestSessionTimeout = 1;
constexpr int kLongestSessionTimeout = 300;

// Long enough for a refusal to come back across a site, short for a BMC that ignores the question.
constexpr std::chrono::milliseconds kProbeTime{250};

// Get Channel Authentication Capabilities, without a session: IPMI v2.0 sections 13.6 and 22.13.
constexpr std::uint8_t kProbe[] = {
    0x06, 0x00, 0xFF, 0x07,                                   // RMCP, no acknowledgement, IPMI
    0x00, 0,    0,    0,    0,    0,    0,    0,    0,    9,  // no session, 9 bytes follow
    0x20, 0x18, 0xC8, 0x81, 0x00, 0x38, 0x8E, 0x04, 0xB5,     // this channel, administrator
};

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
const std::string& g_modulePath = *new std::string(ModulePath());

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

// Whether the UDP port is refused, which the library would not notice before its time-out. 0: it
// is not, as far as can be told; else the error of the socket.
int Probe(const addrinfo& address) {
    const FileDescriptor udp(socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!udp.IsOpen()) return errno;
    if (connect(udp.Get(), address.ai_addr, address.ai_addrlen) != 0) return errno;
    if (send(udp.Get(), kProbe, sizeof kProbe, 0) < 0) return errno;
    pollfd answer{udp.Get(), POLLIN, 0};
    if (poll(&answer, 1, static_cast<int>(kProbeTime.count())) <= 0) return 0;
    std::uint8_t ignored[64];
    return recv(udp.Get(), ignored, sizeof ignored, MSG_DONTWAIT) < 0 ? errno : 0;
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
    struct Close {
        const varnex_ipmi_module* module;
        void operator()(varnex_ipmi_session* ended) const { module->close(ended); }
    };
    using Session = std::unique_ptr<varnex_ipmi_session, Close>;

    int ConnectLan();
    bool ArgumentsHold() const;
    bool TakePort();
    int ConnectTo(const addrinfo& address, std::string& why);
    int OpenSession(const std::string& endpoint, std::string& why);
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
    int timeout = 0;   // seconds
    std::string peer;  // how texts call it
    std::unique_ptr<LinkLocalRelay> relay;
    Session session{nullptr, Close{nullptr}};  // after `relay`: ends before it
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
    disconnect();
    m_impl->module = Module();
    if (m_impl->module == nullptr) return kIpmiNoModule;
    m_impl->timeout = SessionTimeout();
    return m_impl->lan ? m_impl->ConnectLan() : m_impl->ConnectDevice();
}

void IpmiClient::disconnect() {
    m_impl->session.reset();
    m_impl->relay.reset();
}

int IpmiClient::send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                     std::uint8_t& completionCode) {
    if (!m_impl->session) {
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI: nothing is connected, or the session was lost; connect again";
        return kIpmiNotConnected;
    }
    std::array<std::uint8_t, kLongestAnswer> answer;
    std::size_t size = 0;
    varnex_ipmi_error error{};
    const int result = m_impl->module->send(m_impl->session.get(), command.netfn, command.command,
                                            command.data.data(), command.data.size(), answer.data(),
                                            answer.size(), &size, &error);
    if (result != kIpmiDone) {
        Log(1, kLogSource, __LINE__).Stream() << m_impl->WhyNot(result, error.text);
        if (result == kIpmiNoAnswer) disconnect();  // the library would never send again
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
    for (const addrinfo* address = found;; address = address->ai_next) {
        std::string why;
        const int result = ConnectTo(*address, why);
        if (result == kIpmiDone) return result;
        // Another address may lead to the same BMC; another password does not.
        const bool unreached =
            result == kIpmiRefused || result == kIpmiNoAnswer || result == kIpmiFailed;
        const bool last = !unreached || address->ai_next == nullptr;
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

bool IpmiClient::Impl::ArgumentsHold() const {
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
    if (module->knows_cipher_suite(suite) != 0) return true;
    Log(1, kLogSource, __LINE__).Stream()
        << "IPMI: cipher suite " << suite << " is not supported; 3 and 17 are the usual ones";
    return false;
}

int IpmiClient::Impl::ConnectTo(const addrinfo& address, std::string& why) {
    const std::string numeric = NumberOf(address);
    peer = "IPMI to " + numeric + " port " + std::to_string(port);
    if (const int error = Probe(address); error == EINVAL) {  // what Linux makes of a lost scope
        why = WhyNot(kIpmiBadArgument, "a link-local address needs its scope, as in fe80::1%eth0");
        return kIpmiBadArgument;
    } else if (error != 0) {
        const int result = error == ECONNREFUSED ? kIpmiRefused : kIpmiFailed;
        why = WhyNot(result, std::generic_category().message(error).c_str());
        return result;
    }
    if (numeric.find('%') != std::string::npos) {
        relay = LinkLocalRelay::Start(*address.ai_addr, address.ai_addrlen);
        if (!relay) {
            why = WhyNot(kIpmiFailed, "a link-local address needs a relay, which cannot be set up");
            return kIpmiFailed;
        }
        return OpenSession(relay->Endpoint(), why);
    }
    const std::string written = address.ai_family == AF_INET6 ? "[" + numeric + "]" : numeric;
    return OpenSession(written + ":" + std::to_string(port), why);
}

int IpmiClient::Impl::OpenSession(const std::string& endpoint, std::string& why) {
    const std::uint32_t milliseconds = static_cast<std::uint32_t>(timeout) * 1000;
    // A BMC executes a request that was sent again once more, so not too eager.
    const varnex_ipmi_lan request = {endpoint.c_str(), user.c_str(),
                                     password.c_str(), static_cast<std::uint8_t>(suite),
                                     milliseconds,     milliseconds / 4};
    varnex_ipmi_session* opened = nullptr;
    varnex_ipmi_error error{};
    const int result = module->open_lan(&request, &opened, &error);
    if (result == kIpmiDone) {
        session = Session(opened, Close{module});
    } else {
        why = WhyNot(result, error.text);
        relay.reset();
    }
    return result;
}

int IpmiClient::Impl::ConnectDevice() {
    std::string device;
    if (const int result = FindDevice(device); result != kIpmiDone) return result;
    peer = "IPMI through " + device;
    varnex_ipmi_session* opened = nullptr;
    varnex_ipmi_error error{};
    const int result = module->open_device(device.c_str(), &opened, &error);
    if (result == kIpmiDone) {
        session = Session(opened, Close{module});
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
                   (session ? "; the session is lost" : "");
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
