// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Explanation.h"

#include <curl/curl.h>
#include <strings.h>

#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

bool IsTlsFailure(int code) {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return true;
        default:
            return false;
    }
}

// The sentences for one failed request.
class Explanation {
public:
    explicit Explanation(const FailedExchange& failed)
        : m_failed(failed),
          m_kind(failed.kind),
          m_place(failed.endpoint.Place()),
          m_why(" (" + Clean(failed.detail) + ").") {}

    Answer Whole() const {
        if (m_failed.headersEndless || m_failed.curlCode == CURLE_OUT_OF_MEMORY) {
            // Out of memory is what libcurl calls a line that is too long for it.
            return NoUsable("answers with headers without end");
        }
        if (m_failed.tunnelCode >= 400) return Tunnel();
        if (IsAtProxy()) return Proxy();
        if (IsOverTls()) return Tls();
        return Plain();
    }

private:
    bool IsSocksProxy() const { return strncasecmp(m_failed.proxy.c_str(), "socks", 5) == 0; }

    // The connection went to a proxy, and the tunnel to the BMC does not stand. A proxy on the
    // BMC's own port is told from the BMC only where it breaks off: a BMC would do so in the
    // handshake.
    bool IsAtProxy() const {
        const int code = m_failed.curlCode;
        const int port = m_failed.watch.Port();
        const bool elsewhere = port != m_failed.endpoint.port || code == CURLE_RECV_ERROR;
        if (!m_kind.usesProxies || m_failed.proxy.empty() || port == 0 || !elsewhere) return false;
        // Through a SOCKS proxy the handshake is the BMC's, and no code of a tunnel is known.
        if (IsTlsFailure(code) && IsSocksProxy()) return false;
        return m_failed.tunnelCode == 0 && !m_failed.isEncrypted;
    }

    bool IsOverTls() const {
        const int code = m_failed.curlCode;
        if (IsTlsFailure(code) || m_failed.watch.HasTlsAlert()) return true;
        // By TLS 1.3 the handshake is over when the server refuses, and its alert may be lost.
        const bool cutOff = code == CURLE_COULDNT_CONNECT || code == CURLE_GOT_NOTHING ||
                            code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR;
        return cutOff && m_failed.watch.WantsCertificate();
    }

    Answer Tunnel() const {
        if (m_failed.tunnelCode == 407) {
            return Failed(Stage::kConnect,
                          "The proxy wants a login of its own" + m_why +
                              " Correct it in the environment, or use --no-proxy.");
        }
        if (m_failed.tunnelCode >= 500) {
            return Failed(Stage::kConnect,
                          "The proxy does not reach " + m_place + m_why +
                              " Check address, --port and whether the BMC's " + m_kind.offer +
                              " is switched on; --no-proxy goes without the proxy.");
        }
        return Failed(Stage::kConnect, "The proxy refuses to connect to " + m_place + m_why +
                                           " Check the proxy, or use --no-proxy.");
    }

    Answer Proxy() const {
        const std::string proxy = "The proxy at " + m_failed.watch.Address() + " port " +
                                  std::to_string(m_failed.watch.Port());
        const std::string advice =
            " Check the proxy that the environment names, or use --no-proxy.";
        if (m_failed.curlCode == CURLE_PEER_FAILED_VERIFICATION) {
            return Failed(Stage::kConnect,
                          "The certificate of the proxy cannot be verified" + m_why + advice);
        }
        if (IsTlsFailure(m_failed.curlCode)) {
            return Failed(Stage::kConnect,
                          proxy + " does not speak TLS, as its https:// says" + m_why + advice);
        }
        if (m_failed.curlCode == CURLE_COULDNT_CONNECT || !m_failed.isConnected) {
            return Failed(Stage::kConnect, proxy + " cannot be connected to" + m_why +
                                               " The BMC was not asked." + advice);
        }
        return Failed(Stage::kConnect,
                      proxy + " makes no connection to " + m_place + m_why + advice);
    }

    Answer Tls() const {
        const ConnectionWatch& watch = m_failed.watch;
        if (!watch.Refusal().empty()) return Failed(Stage::kTrust, watch.Refusal());
        if (m_failed.curlCode == CURLE_PEER_FAILED_VERIFICATION) {
            return Failed(
                Stage::kTrust,
                "The certificate of " + m_place + " is not good for the CAs in " +
                    Clean(m_failed.caFile) + m_why +
                    " The password was not sent. Check the address, or give the BMC a certificate "
                    "of that CA for this very name or address.");
        }
        if (watch.IsTooOld()) {
            return Failed(
                Stage::kTls,
                m_place + " speaks only versions of TLS that this machine refuses" + m_why +
                    " TLS 1.1 and older are not safe. A newer firmware may speak TLS 1.2.");
        }
        if (watch.WantsCertificate()) {
            return Failed(
                Stage::kTls,
                m_place + " wants a certificate of this machine (TLS client certificate)" + m_why +
                    " The library has none to show: switch that demand off on the BMC.");
        }
        if (watch.HasTlsAlert()) {
            return Failed(Stage::kTls,
                          m_place + " speaks TLS, but offers nothing that both sides accept" +
                              m_why + " Old firmware offers only what this machine refuses.");
        }
        return Failed(Stage::kTls, m_place + " does not speak " + m_kind.protocol + m_why + " " +
                                       m_kind.portAdvice);
    }

    Answer Plain() const {
        switch (m_failed.curlCode) {
            case CURLE_COULDNT_RESOLVE_PROXY:
                return Failed(Stage::kResolve,
                              "The proxy that the environment names cannot be found" + m_why +
                                  " Correct the environment, or use --no-proxy.");
            case CURLE_COULDNT_RESOLVE_HOST:
                return Failed(Stage::kResolve, "The name of the BMC is not known" + m_why +
                                                   " Check the spelling, or give its address.");
            case CURLE_COULDNT_CONNECT:
                return Failed(Stage::kConnect, "Cannot connect to " + m_place + m_why +
                                                   " Check address, --port and whether the BMC's " +
                                                   m_kind.offer + " is switched on.");
            case CURLE_OPERATION_TIMEDOUT:
                return Timeout();
            case CURLE_BAD_FUNCTION_ARGUMENT:  // what libcurl makes of it
                return NoUsable("begins its answer with a malformed header line");
            case CURLE_WRITE_ERROR:
                return NoUsable(std::string("answers with more than ") + m_kind.tooLong);
            case CURLE_PARTIAL_FILE:
                return Failed(Stage::kService,
                              m_place + " breaks its answer off" + m_why + " Try again.");
            default:
                return Unlike();
        }
    }

    Answer Unlike() const {
        if (!m_failed.endpoint.tls) {
            return Failed(Stage::kService, m_place + " does not answer in plain HTTP" + m_why +
                                               " Check --port; without --plain the tool speaks "
                                               "TLS.");
        }
        return Failed(Stage::kService, m_place + " does not answer as a " + m_kind.offer + m_why +
                                           " Check address and --port.");
    }

    Answer Timeout() const {
        const std::string bound = " within " + std::to_string(m_failed.seconds) + " s";
        const std::string connectBound =
            " within " + std::to_string(m_failed.connectSeconds) + " s";
        if (!m_failed.isResolved) {
            return Failed(Stage::kResolve, "No name server tells the address of " + m_place +
                                               bound + ". Give the address itself.");
        }
        if (!m_failed.isConnected) {
            return Failed(Stage::kConnect, m_place + " does not answer" + connectBound +
                                               ". Check address, network and firewall.");
        }
        if (m_failed.endpoint.tls && !m_failed.isEncrypted) {
            return Failed(Stage::kTls, m_place + " accepts connections but does not begin " +
                                           m_kind.protocol + connectBound + ". Check " +
                                           m_kind.optionsOfPort +
                                           "; a BMC that hangs needs a reset.");
        }
        if (m_failed.isBegun) {
            return Failed(Stage::kService, m_place + " begins to answer but does not end" + bound +
                                               ". A BMC that hangs needs a reset.");
        }
        return Failed(Stage::kService, m_place + " " + m_kind.takesRequests +
                                           " but does not answer" + bound +
                                           ". A BMC that hangs needs a reset.");
    }

    Answer NoUsable(const std::string& what) const {
        return Failed(Stage::kService,
                      m_place + " " + what + ". It is no usable " + m_kind.name + ".");
    }

    const FailedExchange& m_failed;
    const ServiceKind& m_kind;
    const std::string m_place;
    const std::string m_why;
};

}  // namespace

Answer Failed(Stage stage, const std::string& reason) {
    Answer answer;
    answer.failedAt = stage;
    answer.reason = reason;
    return answer;
}

Answer Explain(const FailedExchange& failed) { return Explanation(failed).Whole(); }

Answer ExplainRecheck(const FailedExchange& failed) {
    if (!failed.watch.Refusal().empty()) return Failed(Stage::kTrust, failed.watch.Refusal());
    const std::string certificate = "The certificate of " + failed.endpoint.Place();
    const std::string why = " (" + Clean(failed.detail) + ").";
    if (failed.curlCode == CURLE_PEER_FAILED_VERIFICATION) {
        return Failed(Stage::kTrust, certificate +
                                         " was in order at the beginning and is not any more" +
                                         why + " Somebody else may answer there.");
    }
    return Failed(Stage::kConnect, certificate + " could not be checked again" + why);
}

}  // namespace Kemffdc
