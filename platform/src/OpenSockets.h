// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_OPENSOCKETS_H
#define VARNEX_PLATFORM_SRC_OPENSOCKETS_H

#include <curl/curl.h>

#include <set>

#include "transfer_settings.h"

// The sockets of one handle, which it must outlive. To stop an SFTP transfer its connection is shut
// down first: libcurl would ask the server to close the file, wait a second for an answer that a
// stalled server does not give, and then leave the session's memory behind.
class OpenSockets {
public:
    void Watch(Settings& settings);
    void ShutDown() const;

private:
    static curl_socket_t OnOpen(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int OnClose(void* self, curl_socket_t socket);

    std::set<curl_socket_t> m_open;
};

#endif
