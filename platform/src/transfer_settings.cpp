// SPDX-License-Identifier: Apache-2.0
#include "transfer_settings.h"

#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <mutex>

#include "GlobalConfig.h"
#include "environment.h"
#include "link_local.h"

namespace {

constexpr char kUserAgent[] = "QTVE_TESSEL";
constexpr long kBufferSize = 512L * 1024;  // bytes: over SFTP, 16 KiB are a third of the speed

void SetTls(Settings& settings) {
    const std::string file = CaFile();
    settings.Set(CURLOPT_SSL_VERIFYPEER, file.empty() ? 0L : 1L);
    settings.Set(CURLOPT_SSL_VERIFYHOST, file.empty() ? 0L : 2L);
    if (file.empty()) return;
    settings.Set(CURLOPT_CAINFO, file);
    settings.Set<const char*>(CURLOPT_CAPATH, nullptr);  // this CA, and not the system's besides
}

void SetHttps(Settings& settings, const Uri& uri) {
    settings.Set(CURLOPT_PROTOCOLS_STR, "https");
    settings.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    settings.Set(CURLOPT_FOLLOWLOCATION, 0L);  // the token would leak
    settings.Set(CURLOPT_FAILONERROR, 1L);     // the body of an error is not fetched
    settings.Set(CURLOPT_USERAGENT, kUserAgent);
    SetTls(settings);
    if (uri.user().empty()) return;
    // Basic or digest, but only after the server asked for it: where the caller's header lines hold
    // a token that is accepted, the password is not sent at all.
    settings.Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    settings.Set(CURLOPT_USERNAME, uri.user());
    settings.Set(CURLOPT_PASSWORD, uri.password());
}

curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) {
    const int fd = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    return fd < 0 ? CURL_SOCKET_BAD : fd;
}

}  // namespace

Handle MakeHandle() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    return Handle(curl_easy_init());
}

// Below 1 counts as 1, because a transfer has to end.
std::chrono::seconds ConnectTime() {
    static const int seconds = GetGlobalConfigValue("TRANSFER_CONNECT_TIME", 30);
    return std::chrono::seconds(std::max(seconds, 1));
}

std::chrono::seconds StallTime() {
    static const int seconds = GetGlobalConfigValue("TRANSFER_STALL_TIME", 60);
    return std::chrono::seconds(std::max(seconds, 1));
}

bool IsSynced() {
    static const bool synced = GetGlobalConfigValue("TRANSFER_SYNC", 0) != 0;
    return synced;
}

std::string CaFile() { return EnvironmentText("VARNEX_CA_FILE"); }

bool IsHttps(const Uri& uri) { return ::strcasecmp(uri.scheme().c_str(), "https") == 0; }

bool IsSftp(const Uri& uri) { return ::strcasecmp(uri.scheme().c_str(), "sftp") == 0; }

void SetCloseOnExec(Settings& settings) { settings.Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket); }

void SetHttpsTransfer(Settings& settings, const Uri& uri) {
    SetCloseOnExec(settings);
    settings.Set(CURLOPT_NOSIGNAL, 1L);
    settings.Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(ConnectTime().count()));
    settings.Set(CURLOPT_LOW_SPEED_LIMIT, kStallSpeed);
    settings.Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(StallTime().count()));
    settings.Set(CURLOPT_BUFFERSIZE, kBufferSize);
    settings.Set(CURLOPT_PATH_AS_IS, 1L);
    if (const unsigned scope = ScopeOfLinkLocal(uri.host())) {
        settings.Set(CURLOPT_ADDRESS_SCOPE, static_cast<long>(scope));
    }
    SetHttps(settings, uri);
}
