// SPDX-License-Identifier: Apache-2.0
//
// A platform library of a host's own, as small as one can be: it logs to standard error, knows no
// configuration, "fetches" every file without asking anybody, and has no IPMI.
#include <cstdint>
#include <fstream>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <thread>

#include "Clock.h"
#include "GlobalConfig.h"
#include "Ipmanip.h"
#include "IpmiClient.h"
#include "KEMAccount.h"
#include "Log.h"
#include "Uri.h"
#include "UsbLanCfg.h"
#include "file_client.h"

struct Log::Impl {
    int level;
    std::string sourceFile;
    std::ostringstream text;
};

Log::Log(int level, const char* sourceFile, int) : m_impl(new Impl{level, sourceFile, {}}) {
    m_impl->text.imbue(std::locale::classic());
}

Log::~Log() {
    std::cerr << "other log " << m_impl->level << ' ' << m_impl->sourceFile << ": "
              << m_impl->text.str() << '\n';
}

std::ostream& Log::Stream() { return m_impl->text; }

Clock::Monotonic Clock::Now() { return std::chrono::steady_clock::now(); }
void Clock::SleepFor(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }
void Clock::SleepUntil(Monotonic deadline) { std::this_thread::sleep_until(deadline); }
std::tm Clock::LocalTime() { return std::tm(); }

int GetGlobalConfigValue(const std::string&, int defaultValue) { return defaultValue; }

bool Ipmanip::is_ipv6(const std::string& host) { return host.find(':') != std::string::npos; }

struct Uri::Impl {
    std::string scheme, host, user, password, path;
    std::uint16_t port;
};

Uri::Uri(const std::string& scheme, const std::string& host, std::uint16_t port,
         const std::string& user, const std::string& password, const std::string& path)
    : m_impl(new Impl{scheme, host, user, password, path, port}) {}
Uri::Uri(const Uri& other) : m_impl(new Impl(*other.m_impl)) {}
Uri::Uri(Uri&& other) noexcept = default;
Uri::~Uri() = default;
void Uri::set_auth(const std::string& user, const std::string& password) {
    m_impl->user = user;
    m_impl->password = password;
}
void Uri::set_path(const std::string& path) { m_impl->path = path; }
std::string Uri::join_path(const std::string& folder, const std::string& name) {
    return folder + "/" + name;
}
std::string Uri::encodeURI(const std::string& text) { return text; }

std::error_code file_client::ls_directory(const Uri&, std::list<std::string>& names) {
    names.clear();
    return std::error_code();
}

std::error_code file_client::download(const Uri&, const std::string& localPath,
                                      const curlcpp::option_trait_base&) {
    std::ofstream(localPath) << "fetched by another platform\n";
    return std::error_code();
}

struct IpmiClient::Impl {};

IpmiClient::IpmiClient(const std::string&, const std::string&, const std::string&,
                       const std::string&, std::uint16_t) {}
IpmiClient::IpmiClient(int) {}
IpmiClient::~IpmiClient() = default;
int IpmiClient::connect() { return 1; }
void IpmiClient::disconnect() {}
int IpmiClient::send(const IPMICOMMAND&, std::vector<std::uint8_t>&, std::uint8_t&) { return 1; }

struct UsbLanCfg::Impl {};

UsbLanCfg::UsbLanCfg() = default;
UsbLanCfg::~UsbLanCfg() = default;
UsbLanCfg& UsbLanCfg::GetInstance(UsbLanRestoreMode, bool) {
    static UsbLanCfg instance;
    return instance;
}
int UsbLanCfg::QueryUsbLanState(UsbLanNodeList&, bool) { return 2; }

int XM_WIDGETS::GetKEMAccountViaKCS(KEMAccount&, std::uint16_t) { return 1; }
