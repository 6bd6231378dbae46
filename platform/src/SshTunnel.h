// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SSHTUNNEL_H
#define VARNEX_PLATFORM_SRC_SSHTUNNEL_H

#include <functional>
#include <thread>

#include "Uri.h"
#include "shared/FileDescriptor.h"
#include "transfer_settings.h"

// A stream of bytes to an SSH server, opened by libcurl: every address of a name, the environment's
// proxies (sftp_proxy, all_proxy, no_proxy) of all kinds, the time for connecting. The bytes go
// over the socket itself; behind a proxy that speaks TLS, through libcurl on a thread of its own.
class SshTunnel {
public:
    // Throws SftpFailure. `goOn` is asked about once a second.
    SshTunnel(const Uri& uri, std::function<bool()> goOn);
    ~SshTunnel();
    SshTunnel(const SshTunnel&) = delete;
    SshTunnel& operator=(const SshTunnel&) = delete;

    // Close-on-exec; the caller's from then on.
    int TakeSocket() { return m_socket.Release(); }

private:
    void Open(const Uri& uri);
    void StartCarrier();
    void Carry();
    bool CarryUp();
    bool CarryDown();
    static int OnProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    std::function<bool()> m_goOn;
    Handle m_handle;
    int m_outer = -1;                // libcurl's
    shared::FileDescriptor m_inner;  // the end of the pair whose other end is the socket
    shared::FileDescriptor m_socket;
    std::thread m_carrier;
};

#endif
