// SPDX-License-Identifier: Apache-2.0
#include "ExcessBytes.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

constexpr int kLeastWait = 2;  // milliseconds
constexpr int kMostWait = 10;
constexpr int kLookings = 20;  // records of TLS without content are passed over

// Milliseconds in which a byte sent right behind the last one arrives: a round trip and what it
// varies by, as TCP reckons before it sends again.
int WaitFor(curl_socket_t socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return kMostWait;
    const std::uint64_t microseconds = info.tcpi_rtt + 4ULL * info.tcpi_rttvar;
    return static_cast<int>(std::clamp<std::uint64_t>(microseconds / 1000, kLeastWait, kMostWait));
}

// One byte more on a connection that has given the whole answer.
bool MoreComes(CURL* handle) {
    curl_socket_t socket = CURL_SOCKET_BAD;
    if (curl_easy_getinfo(handle, CURLINFO_ACTIVESOCKET, &socket) != CURLE_OK ||
        socket == CURL_SOCKET_BAD) {
        return false;
    }
    // libcurl lends the connection of such handles alone.
    if (curl_easy_setopt(handle, CURLOPT_CONNECT_ONLY, 1L) != CURLE_OK) return false;
    const int wait = WaitFor(socket);
    for (int i = 0; i < kLookings; ++i) {
        char byte = 0;
        std::size_t size = 0;
        const CURLcode code = curl_easy_recv(handle, &byte, 1, &size);
        if (code != CURLE_AGAIN) return code == CURLE_OK && size > 0;
        pollfd readable{socket, POLLIN, 0};
        if (::poll(&readable, 1, wait) <= 0) return false;
    }
    return false;
}

}  // namespace

void ExcessBytes::Watch(Settings& settings) {
    settings.Set(CURLOPT_VERBOSE, 1L);
    settings.Set(CURLOPT_DEBUGFUNCTION, &ExcessBytes::OnTraffic);
    settings.Set(CURLOPT_DEBUGDATA, this);
}

bool ExcessBytes::Any(CURL* handle, std::uint64_t received) const {
    curl_off_t announced = -1;
    curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced < 0) return false;
    return m_body > received || MoreComes(handle);
}

int ExcessBytes::OnTraffic(CURL*, curl_infotype type, char*, std::size_t size, void* self) {
    auto& body = static_cast<ExcessBytes*>(self)->m_body;
    if (type == CURLINFO_HEADER_IN) body = 0;
    if (type == CURLINFO_DATA_IN) body += size;
    return 0;
}
