// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CONNECTIONWATCH_H
#define KEMFFDC_HTTP_CONNECTIONWATCH_H

#include <curl/curl.h>

#include <string>

namespace Kemffdc {

// Sees of a libcurl connection what libcurl's result codes do not tell: whom it went to, and what
// was said in the TLS handshake. Must outlive the handles that it was attached to, and their share.
class ConnectionWatch {
public:
    // For the handle's next transfer; forgets what was seen before.
    void Attach(CURL* easy);

    // The last address that a connection was tried to: of a proxy, where there is one.
    const std::string& Address() const { return m_address; }
    int Port() const { return m_port; }  // 0: none was tried

    // Either side ended the handshake in the protocol's own words: the peer does speak TLS.
    bool HasTlsAlert() const { return m_alert != kNone; }
    bool IsTooOld() const;  // the peer has no version that this machine takes, too
    bool WantsCertificate() const { return m_wantsCertificate; }  // of this machine; some insist

private:
    static constexpr int kNone = -1;

    static curl_socket_t OnSocket(void* self, curlsocktype, curl_sockaddr* address);
    static CURLcode OnTlsContext(CURL*, void* context, void* self);

    friend struct TlsCallbacks;

    std::string m_address;
    int m_port = 0;
    int m_alert = kNone;  // TLS's number of it
    int m_version = 0;    // of TLS, at the alert
    bool m_wantsCertificate = false;
};

}  // namespace Kemffdc

#endif
