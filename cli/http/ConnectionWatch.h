// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CONNECTIONWATCH_H
#define KEMFFDC_HTTP_CONNECTIONWATCH_H

#include <curl/curl.h>

#include <functional>
#include <optional>
#include <string>

#include "cli/report/Certificate.h"

namespace Kemffdc {

// Sees of a libcurl connection what libcurl's result codes do not tell: whom it went to, and what
// was said in the TLS handshake. Must outlive the handles that it was attached to, and their share.
class ConnectionWatch {
public:
    // Tells why the owner of a certificate must not be spoken to; nothing where he may.
    using Judge = std::function<std::string(const Certificate& shown)>;

    // For the handle's next transfer; forgets what was seen before. With a `judge` (may be null) a
    // handshake fails where he objects, or cannot be asked; proxies are not judged. He is to be
    // given only where libcurl itself verifies nothing.
    void Attach(CURL* easy, const Judge& judge = nullptr);

    // The last address that a connection was tried to: of a proxy, where there is one.
    const std::string& Address() const { return m_address; }
    int Port() const { return m_port; }  // 0: none was tried

    // Either side ended the handshake in the protocol's own words: the peer does speak TLS.
    bool HasTlsAlert() const { return m_alert != kNone; }
    bool IsTooOld() const;  // the peer has no version that this machine takes, too
    bool WantsCertificate() const { return m_wantsCertificate; }  // of this machine; some insist

    // The judge's objection, and what he was shown.
    const std::string& Refusal() const { return m_refusal; }
    const std::optional<Certificate>& Judged() const { return m_judged; }

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
    Judge m_judge;
    std::string m_refusal;
    std::optional<Certificate> m_judged;
};

}  // namespace Kemffdc

#endif
