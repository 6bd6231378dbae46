// SPDX-License-Identifier: Apache-2.0
#include "cli/http/ConnectionWatch.h"

#include <netdb.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

namespace Kemffdc {

// Where OpenSSL tells what it sees. The watch hangs on the context.
struct TlsCallbacks {
    static int Index() {
        static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
        return index;
    }

    static ConnectionWatch* WatchOf(const SSL* ssl) {
        return static_cast<ConnectionWatch*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), Index()));
    }

    static void OnInfo(const SSL* ssl, int where, int value) {
        const bool fatal = value >> 8 == SSL3_AL_FATAL;
        ConnectionWatch* watch = WatchOf(ssl);
        if ((where & SSL_CB_ALERT) != 0 && fatal && watch != nullptr) {
            watch->m_alert = value & 0xFF;
            watch->m_version = SSL_version(ssl);
        }
    }

    // Called when the server asks; there is none to give.
    static int OnCertificateWanted(SSL* ssl, X509**, EVP_PKEY**) {
        ConnectionWatch* watch = WatchOf(ssl);
        if (watch != nullptr) watch->m_wantsCertificate = true;
        return 0;
    }

    // In the place of OpenSSL's own verification. Nobody is trusted who could not be judged.
    static int OnCertificateShown(X509_STORE_CTX* chain, void* self) {
        auto& watch = *static_cast<ConnectionWatch*>(self);
        try {
            const X509* shown = X509_STORE_CTX_get0_cert(chain);
            if (shown != nullptr) watch.m_judged = DescribeCertificate(*shown);
            watch.m_refusal = watch.m_judged ? watch.m_judge(*watch.m_judged)
                                             : "The certificate that was shown "
                                               "cannot be read.";
        } catch (const std::bad_alloc&) {
            X509_STORE_CTX_set_error(chain, X509_V_ERR_OUT_OF_MEM);
            return 0;
        }
        const bool trusted = watch.m_refusal.empty();
        X509_STORE_CTX_set_error(chain, trusted ? X509_V_OK : X509_V_ERR_APPLICATION_VERIFICATION);
        return trusted ? 1 : 0;
    }
};

namespace {

// With another TLS library the context is something else, and nothing is seen of the handshake.
bool HasOpenSsl() {
    const char* tls = curl_version_info(CURLVERSION_NOW)->ssl_version;
    return tls != nullptr && std::strncmp(tls, "OpenSSL/", 8) == 0;
}

}  // namespace

void ConnectionWatch::Attach(CURL* easy, const Judge& judge) {
    *this = ConnectionWatch();
    m_judge = judge;
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, OnSocket);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
    if (!HasOpenSsl() && !judge) return;
    // With another TLS library the callback fails the handshake: nobody could judge.
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, OnTlsContext);
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, this);
}

bool ConnectionWatch::IsTooOld() const {
    // Without a ban on the version, its signatures are refused.
    return m_alert == SSL_AD_PROTOCOL_VERSION || (HasTlsAlert() && m_version < TLS1_2_VERSION);
}

curl_socket_t ConnectionWatch::OnSocket(void* self, curlsocktype, curl_sockaddr* address) {
    auto& watch = *static_cast<ConnectionWatch*>(self);
    char host[NI_MAXHOST] = "";
    char port[NI_MAXSERV] = "";
    if (getnameinfo(&address->addr, address->addrlen, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
        watch.m_address = host;
        watch.m_port = static_cast<int>(std::strtol(port, nullptr, 10));
    }
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

CURLcode ConnectionWatch::OnTlsContext(CURL*, void* context, void* self) {
    if (!HasOpenSsl()) return CURLE_SSL_CONNECT_ERROR;
    auto* tls = static_cast<SSL_CTX*>(context);
    // libcurl verifies a proxy by itself, and the BMC not: so they are told apart.
    const bool isProxy = SSL_CTX_get_verify_mode(tls) != SSL_VERIFY_NONE;
    if (static_cast<ConnectionWatch*>(self)->m_judge && !isProxy) {
        SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, nullptr);
        SSL_CTX_set_cert_verify_callback(tls, TlsCallbacks::OnCertificateShown, self);
    }
    if (SSL_CTX_set_ex_data(tls, TlsCallbacks::Index(), self) == 1) {
        SSL_CTX_set_info_callback(tls, TlsCallbacks::OnInfo);
        SSL_CTX_set_client_cert_cb(tls, TlsCallbacks::OnCertificateWanted);
    }
    return CURLE_OK;
}

}  // namespace Kemffdc
