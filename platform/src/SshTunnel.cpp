// SPDX-License-Identifier: Apache-2.0
#include "SshTunnel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "SftpFailure.h"
#include "SigPipeGuard.h"
#include "TransferError.h"
#include "environment.h"
#include "link_local.h"

namespace {

using shared::FileDescriptor;

std::string ProxyOfEnvironment() {
    for (const char* name : {"sftp_proxy", "SFTP_PROXY", "all_proxy", "ALL_PROXY"}) {
        std::string proxy = EnvironmentText(name);
        if (!proxy.empty()) return proxy;
    }
    return "";
}

bool SpeaksTls(const std::string& proxy) { return proxy.compare(0, 8, "https://") == 0; }

// libcurl opens tunnels for HTTP alone, whatever goes through them.
std::string TunnelUrl(const Uri& uri) {
    const std::string url = uri.str();
    const std::size_t begin = url.find("://");
    return "http" + url.substr(begin, url.find('/', begin + 3) - begin) + "/";
}

long Number(CURL* handle, CURLINFO information) {
    long number = 0;
    curl_easy_getinfo(handle, information, &number);
    return number;
}

}  // namespace

SshTunnel::SshTunnel(const Uri& uri, std::function<bool()> goOn) : m_goOn(std::move(goOn)) {
    Open(uri);
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(m_handle.get(), CURLINFO_ACTIVESOCKET, &socket);
    m_outer = socket;
    if (!SpeaksTls(ProxyOfEnvironment())) {
        m_socket = FileDescriptor(::fcntl(m_outer, F_DUPFD_CLOEXEC, 0));
        m_handle.reset();
    } else {
        StartCarrier();
    }
    if (!m_socket.IsOpen())
        throw SftpFailure{CURLE_COULDNT_CONNECT, "No socket is to be had", true};
}

SshTunnel::~SshTunnel() {
    (void)m_socket.Close();
    if (m_inner.IsOpen()) ::shutdown(m_inner.Get(), SHUT_RDWR);
    if (m_carrier.joinable()) m_carrier.join();
}

void SshTunnel::StartCarrier() {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return;
    FileDescriptor outside(pair[0]);
    m_inner = FileDescriptor(pair[1]);
    try {
        m_carrier = std::thread([this] { Carry(); });
        m_socket = std::move(outside);
    } catch (const std::system_error&) {
        m_inner = FileDescriptor();
    }
}

void SshTunnel::Open(const Uri& uri) {
    m_handle = MakeHandle();
    if (!m_handle) throw SftpFailure{CURLE_FAILED_INIT, "", true};
    char error[CURL_ERROR_SIZE] = {};
    Settings settings(m_handle.get());
    settings.Set(CURLOPT_NOSIGNAL, 1L);
    settings.Set(CURLOPT_URL, TunnelUrl(uri));
    settings.Set(CURLOPT_PROTOCOLS_STR, "http");
    settings.Set(CURLOPT_CONNECT_ONLY, 1L);
    settings.Set(CURLOPT_PROXY, ProxyOfEnvironment());  // empty: none, whatever http_proxy says
    settings.Set(CURLOPT_HTTPPROXYTUNNEL, 1L);
    settings.Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    settings.Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(ConnectTime().count()));
    settings.Set(CURLOPT_ERRORBUFFER, error);
    settings.Set(CURLOPT_NOPROGRESS, 0L);
    settings.Set(CURLOPT_XFERINFOFUNCTION, &SshTunnel::OnProgress);
    settings.Set(CURLOPT_XFERINFODATA, this);
    if (const unsigned scope = ScopeOfLinkLocal(uri.host())) {
        settings.Set(CURLOPT_ADDRESS_SCOPE, static_cast<long>(scope));
    }
    SetCloseOnExec(settings);
    const CURLcode code =
        settings.Result() == CURLE_OK ? curl_easy_perform(m_handle.get()) : settings.Result();
    curl_easy_setopt(m_handle.get(), CURLOPT_ERRORBUFFER, nullptr);
    if (code == CURLE_OK) return;
    if (code == CURLE_ABORTED_BY_CALLBACK) {
        throw SftpFailure{code, "The download was stopped", true};
    }
    const long answer = Number(m_handle.get(), CURLINFO_HTTP_CONNECTCODE);
    std::string text = *error != '\0' ? error : curl_easy_strerror(code);
    if (answer >= 300) text = "The proxy answered HTTP status " + std::to_string(answer);
    throw SftpFailure{code, WithoutUserInfo(text), true};
}

int SshTunnel::OnProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<SshTunnel*>(self)->m_goOn() ? 0 : 1;
}

// Until one of the two sides ends.
void SshTunnel::Carry() {
    const SigPipeGuard guard;
    pollfd ready[] = {{m_inner.Get(), POLLIN, 0}, {m_outer, POLLIN, 0}};
    while (CarryDown()) {
        if (::poll(ready, 2, -1) < 0 && errno != EINTR) break;
        if (ready[0].revents != 0 && !CarryUp()) break;
    }
    ::shutdown(m_inner.Get(), SHUT_RDWR);
}

bool SshTunnel::CarryUp() {
    std::array<char, 65536> buffer;
    const ssize_t size = ::recv(m_inner.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size <= 0) return size < 0 && (errno == EAGAIN || errno == EINTR);
    std::size_t sent = 0;
    while (sent < static_cast<std::size_t>(size)) {
        std::size_t piece = 0;
        const CURLcode code = curl_easy_send(m_handle.get(), buffer.data() + sent,
                                             static_cast<std::size_t>(size) - sent, &piece);
        if (code != CURLE_OK && code != CURLE_AGAIN) return false;
        sent += piece;
        pollfd room[] = {{m_outer, POLLOUT, 0}, {m_inner.Get(), 0, 0}};
        if (code == CURLE_AGAIN && ::poll(room, 2, -1) > 0 && room[1].revents != 0) return false;
    }
    return true;
}

// All that libcurl holds: what it has read already shows in no poll().
bool SshTunnel::CarryDown() {
    std::array<char, 65536> buffer;
    while (true) {
        std::size_t size = 0;
        const CURLcode code = curl_easy_recv(m_handle.get(), buffer.data(), buffer.size(), &size);
        if (code == CURLE_AGAIN) return true;
        if (code != CURLE_OK || size == 0) return false;
        for (std::size_t sent = 0; sent < size;) {
            const ssize_t piece =
                ::send(m_inner.Get(), buffer.data() + sent, size - sent, MSG_NOSIGNAL);
            if (piece <= 0) return false;
            sent += static_cast<std::size_t>(piece);
        }
    }
}
