// SPDX-License-Identifier: Apache-2.0
#include "OpenSockets.h"

#include <sys/socket.h>
#include <unistd.h>

void OpenSockets::Watch(Settings& settings) {
    settings.Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSockets::OnOpen);
    settings.Set(CURLOPT_OPENSOCKETDATA, this);
    settings.Set(CURLOPT_CLOSESOCKETFUNCTION, &OpenSockets::OnClose);
    settings.Set(CURLOPT_CLOSESOCKETDATA, this);
}

void OpenSockets::ShutDown() const {
    for (const curl_socket_t socket : m_open) ::shutdown(socket, SHUT_RDWR);
}

curl_socket_t OpenSockets::OnOpen(void* self, curlsocktype, curl_sockaddr* address) {
    const int fd = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (fd < 0) return CURL_SOCKET_BAD;
    try {
        static_cast<OpenSockets*>(self)->m_open.insert(fd);
        return fd;
    } catch (...) {  // no exception goes through libcurl
        ::close(fd);
        return CURL_SOCKET_BAD;
    }
}

int OpenSockets::OnClose(void* self, curl_socket_t socket) {
    static_cast<OpenSockets*>(self)->m_open.erase(socket);
    return ::close(socket);
}
