// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Transport.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>

#include "cli/http/ConnectionWatch.h"
#include "cli/http/CurlHandle.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kMaxBody = std::size_t{1024} * 1024;
// With trailers, of which libcurl has no bound; its own for headers is a little higher.
constexpr std::size_t kMaxHeaderBytes = std::size_t{256} * 1024;
constexpr int kMaxRedirects = 10;  // as the library
constexpr int kConnectSeconds = 30;

// What an answer is put together from.
struct Arrival {
    std::string body;
    std::size_t headerBytes = 0;  // of all answers that a request gets, the interim ones too
    bool anyName = false;
    bool upperCase = false;  // in any header's name
};

std::size_t CollectBody(char* bytes, std::size_t size, std::size_t count, void* target) {
    std::string& text = static_cast<Arrival*>(target)->body;
    if (text.size() + size * count > kMaxBody) return 0;  // ends the transfer
    text.append(bytes, size * count);
    return size * count;
}

std::size_t CollectHeader(char* bytes, std::size_t size, std::size_t count, void* target) {
    Arrival& arrival = *static_cast<Arrival*>(target);
    arrival.headerBytes += size * count;
    if (arrival.headerBytes > kMaxHeaderBytes) return 0;  // ends the transfer
    const std::string line(bytes, size * count);
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || line.compare(0, 5, "HTTP/") == 0) return size * count;
    arrival.anyName = true;
    arrival.upperCase =
        arrival.upperCase || std::any_of(line.begin(), line.begin() + static_cast<long>(colon),
                                         [](unsigned char c) { return std::isupper(c) != 0; });
    return size * count;
}

std::string UrlOf(const Options& options) {
    const std::string host = options.ipv6 ? "[" + options.host + "]" : options.host;
    return "https://" + host + ":" + std::to_string(options.port);
}

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

// In libcurl's own order; empty where there is none. Whether it is used for this BMC (no_proxy) is
// not told by it.
std::string ProxyInEnvironment() {
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') return value;
    }
    return "";
}

Answer Failed(Stage stage, const std::string& reason) {
    Answer answer;
    answer.failedAt = stage;
    answer.reason = reason;
    return answer;
}

// A URL as libcurl reads it. A part that it does not have is empty.
struct Url {
    explicit Url(const std::string& text) : handle(curl_url()) {
        const unsigned flags = CURLU_NON_SUPPORT_SCHEME;
        valid = handle != nullptr && curl_url_set(handle, CURLUPART_URL, text.c_str(), flags) == 0;
    }
    ~Url() { curl_url_cleanup(handle); }
    Url(const Url&) = delete;
    Url& operator=(const Url&) = delete;

    std::string Part(CURLUPart part) const {
        char* text = nullptr;
        if (!valid || curl_url_get(handle, part, &text, CURLU_DEFAULT_PORT) != 0) return "";
        std::string copy = text;
        curl_free(text);
        return copy;
    }

    CURLU* handle;
    bool valid;
};

void SetTransport(CURL* easy, const std::string& url, const std::string& caFile) {
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_CERTINFO, 1L);
    SetVerification(easy, caFile);
}

}  // namespace

struct Transport::Connection {
    ConnectionWatch watch;
    CurlHandle handle;
    char error[CURL_ERROR_SIZE] = "";

    long Info(CURLINFO info) const {
        long value = 0;
        curl_easy_getinfo(handle.Get(), info, &value);
        return value;
    }
    bool Reached(CURLINFO time) const {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(handle.Get(), time, &microseconds);
        return microseconds > 0;
    }
};

struct Transport::Login {
    const std::string& user;
    const std::string& password;
};

Transport::Transport(const Options& options, int seconds)
    : m_options(options),
      m_place(options.host + " port " + std::to_string(options.port)),
      m_baseUrl(UrlOf(options)),
      m_seconds(seconds),
      m_connection(std::make_unique<Connection>()) {}

Transport::~Transport() = default;

Answer Transport::Get(const std::string& path) { return Follow(path, nullptr); }

Answer Transport::Get(const std::string& path, const std::string& user,
                      const std::string& password) {
    const Login login{user, password};
    return Follow(path, &login);
}

// libcurl does not follow by itself: who the next one is has to be known before it is asked.
Answer Transport::Follow(const std::string& path, const Login* login) {
    const auto end = SteadyClock::now() + std::chrono::seconds(m_seconds);
    std::string url = m_baseUrl + path;
    for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now());
        Answer answer = Perform(url, login, std::max<long>(left.count(), 1));
        char* target = nullptr;
        curl_easy_getinfo(m_connection->handle.Get(), CURLINFO_REDIRECT_URL, &target);
        if (answer.failedAt != Stage::kDone || target == nullptr) return answer;
        answer = CheckRedirect(target);
        if (answer.failedAt != Stage::kDone) return answer;
        url = target;
    }
    return Failed(Stage::kService, m_place + " redirects without end (more than " +
                                       std::to_string(kMaxRedirects) +
                                       " times). It is no usable Redfish service.");
}

Answer Transport::Perform(const std::string& url, const Login* login, long milliseconds) {
    CURL* easy = m_connection->handle.Renew();
    m_connection->watch.Attach(easy);
    m_connection->error[0] = '\0';
    Arrival arrival;
    SetTransport(easy, url, m_options.caFile);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_connection->error);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "kemffdc/" KEMFFDC_VERSION);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                     std::min(milliseconds, kConnectSeconds * 1000L));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, CollectBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &arrival);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, CollectHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &arrival);
    if (login != nullptr) {
        curl_easy_setopt(easy, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
        curl_easy_setopt(easy, CURLOPT_USERNAME, login->user.c_str());
        curl_easy_setopt(easy, CURLOPT_PASSWORD, login->password.c_str());
    }
    const CURLcode code = curl_easy_perform(easy);
    NoteCertificate(easy, !m_options.caFile.empty());
    if (code != CURLE_OK) {
        const char* detail =
            m_connection->error[0] != '\0' ? m_connection->error : curl_easy_strerror(code);
        if (code == CURLE_PEER_FAILED_VERIFICATION) NoteUntrusted();
        // Out of memory is what libcurl calls a line that is too long for it.
        if (arrival.headerBytes > kMaxHeaderBytes || code == CURLE_OUT_OF_MEMORY) {
            return Failed(Stage::kService, m_place +
                                               " answers with headers without end. It is no "
                                               "usable Redfish service.");
        }
        return Explain(code, detail);
    }
    Answer answer;
    answer.httpCode = m_connection->Info(CURLINFO_RESPONSE_CODE);
    answer.body = std::move(arrival.body);
    answer.lowerCaseNames = arrival.anyName && !arrival.upperCase;
    answer.wantsCertificate = m_connection->watch.WantsCertificate();
    return answer;
}

Answer NotCheckedAgain(int curlCode, const std::string& place, const std::string& detail) {
    const std::string why = " (" + Clean(detail) + ").";
    if (curlCode == CURLE_PEER_FAILED_VERIFICATION) {
        return Failed(Stage::kTrust, "The certificate of " + place +
                                         " was in order at the beginning and is not any more" +
                                         why + " Somebody else may answer there.");
    }
    return Failed(Stage::kConnect,
                  "The certificate of " + place + " could not be checked again" + why);
}

Answer Transport::CheckCertificate() {
    if (m_options.caFile.empty()) return {};
    ConnectionWatch watch;
    CurlHandle handle;  // goes with its connection: none of them stays open on the BMC
    CURL* easy = handle.Renew();
    watch.Attach(easy);
    SetTransport(easy, m_baseUrl, m_options.caFile);
    char error[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT,
                     static_cast<long>(std::min(m_seconds, kConnectSeconds)));
    const CURLcode code = curl_easy_perform(easy);
    if (code == CURLE_OK) return {};
    return NotCheckedAgain(code, m_place, error[0] != '\0' ? error : curl_easy_strerror(code));
}

// Refuses who is not to have the password; the library would send it to anybody.
Answer Transport::CheckRedirect(const std::string& target) const {
    const Url from(m_baseUrl);
    const Url to(target);
    const std::string scheme = to.Part(CURLUPART_SCHEME);
    const std::string host = to.Part(CURLUPART_HOST);
    const std::string named = Clean(scheme + "://" + host + ":" + to.Part(CURLUPART_PORT));
    if (!to.valid) {
        return Failed(Stage::kService, m_place + " redirects to \"" + Clean(target, 255) +
                                           "\", which is no address.");
    }
    if (strcasecmp(scheme.c_str(), "https") != 0) {
        return Failed(Stage::kTrust,
                      m_place + " redirects to " + named +
                          ", away from HTTPS: the password could be read on the way. It was not "
                          "sent. The BMC's service data is fetched over HTTPS alone.");
    }
    if (strcasecmp(host.c_str(), from.Part(CURLUPART_HOST).c_str()) == 0) return {};
    return Failed(Stage::kTrust, m_place + " redirects to another host, " + named +
                                     ": the password was not sent there. If that is the BMC, give "
                                     "its name or address instead; else check address and --port.");
}

// For the report: who is it? Without any request.
void Transport::NoteUntrusted() {
    ConnectionWatch watch;
    CurlHandle handle;
    CURL* easy = handle.Renew();
    watch.Attach(easy);
    SetTransport(easy, m_baseUrl, "");
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT,
                     static_cast<long>(std::min(m_seconds, kConnectSeconds)));
    if (curl_easy_perform(easy) == CURLE_OK) NoteCertificate(easy, false);
}

void Transport::NoteCertificate(void* easy, bool verified) {
    if (const auto shown = CertificateOf(easy, verified)) m_certificate = shown;
}

// The connection went to a proxy, and the tunnel to the BMC does not stand. A proxy on the BMC's
// own port is told from the BMC only where it breaks off: a BMC would do so in the handshake.
bool Transport::IsAtProxy(int code) const {
    const std::string proxy = ProxyInEnvironment();
    const int port = m_connection->watch.Port();
    const bool elsewhere = port != m_options.port || code == CURLE_RECV_ERROR;
    if (proxy.empty() || port == 0 || !elsewhere) return false;
    // Through a SOCKS proxy the handshake is the BMC's, and no code of a tunnel is known.
    if (IsTlsFailure(code) && strncasecmp(proxy.c_str(), "socks", 5) == 0) return false;
    return m_connection->Info(CURLINFO_HTTP_CONNECTCODE) == 0 &&
           !m_connection->Reached(CURLINFO_APPCONNECT_TIME_T);
}

Answer Transport::ExplainProxy(int code, const std::string& why) const {
    const ConnectionWatch& watch = m_connection->watch;
    const std::string proxy =
        "The proxy at " + watch.Address() + " port " + std::to_string(watch.Port());
    const std::string advice = " Check the proxy that the environment names, or use --no-proxy.";
    const bool connected = m_connection->Info(CURLINFO_LOCAL_PORT) != 0;
    if (code == CURLE_PEER_FAILED_VERIFICATION) {
        return Failed(Stage::kConnect,
                      "The certificate of the proxy cannot be verified" + why + advice);
    }
    if (IsTlsFailure(code)) {
        return Failed(Stage::kConnect,
                      proxy + " does not speak TLS, as its https:// says" + why + advice);
    }
    if (code == CURLE_COULDNT_CONNECT || !connected) {
        return Failed(Stage::kConnect,
                      proxy + " cannot be connected to" + why + " The BMC was not asked." + advice);
    }
    return Failed(Stage::kConnect, proxy + " makes no connection to " + m_place + why + advice);
}

bool Transport::IsOverTls(int code) const {
    if (IsTlsFailure(code) || m_connection->watch.HasTlsAlert()) return true;
    // By TLS 1.3 the handshake is over when the server refuses, and its alert may be lost.
    const bool cutOff = code == CURLE_COULDNT_CONNECT || code == CURLE_GOT_NOTHING ||
                        code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR;
    return cutOff && m_connection->watch.WantsCertificate();
}

Answer Transport::ExplainTls(int code, const std::string& why) const {
    const ConnectionWatch& watch = m_connection->watch;
    if (code == CURLE_PEER_FAILED_VERIFICATION) {
        return Failed(
            Stage::kTrust,
            "The certificate of " + m_place + " is not good for the CAs in " +
                Clean(m_options.caFile) + why +
                " The password was not sent. Check the address, or give the BMC a certificate "
                "of that CA for this very name or address.");
    }
    if (watch.IsTooOld()) {
        return Failed(Stage::kTls,
                      m_place + " speaks only versions of TLS that this machine refuses" + why +
                          " TLS 1.1 and older are not safe. A newer firmware may speak TLS 1.2.");
    }
    if (watch.WantsCertificate()) {
        return Failed(Stage::kTls,
                      m_place + " wants a certificate of this machine (TLS client certificate)" +
                          why +
                          " The library has none to show: switch that demand off on the BMC.");
    }
    if (watch.HasTlsAlert()) {
        return Failed(Stage::kTls,
                      m_place + " speaks TLS, but offers nothing that both sides accept" + why +
                          " Old firmware offers only what this machine refuses.");
    }
    return Failed(Stage::kTls, m_place + " does not speak HTTPS" + why +
                                   " Check that --port is the port of the BMC's web service.");
}

Answer Transport::Explain(int code, const std::string& detail) const {
    const std::string why = " (" + Clean(detail) + ").";
    const long tunnel = m_connection->Info(CURLINFO_HTTP_CONNECTCODE);
    if (tunnel == 407) {
        return Failed(Stage::kConnect, "The proxy wants a login of its own" + why +
                                           " Correct it in the environment, or use --no-proxy.");
    }
    if (tunnel >= 500) {
        return Failed(Stage::kConnect,
                      "The proxy does not reach " + m_place + why +
                          " Check address, --port and whether the BMC's web service is switched "
                          "on; --no-proxy goes without the proxy.");
    }
    if (tunnel >= 400) {
        return Failed(Stage::kConnect, "The proxy refuses to connect to " + m_place + why +
                                           " Check the proxy, or use --no-proxy.");
    }
    if (IsAtProxy(code)) return ExplainProxy(code, why);
    if (IsOverTls(code)) return ExplainTls(code, why);
    switch (code) {
        case CURLE_COULDNT_RESOLVE_PROXY:
            return Failed(Stage::kResolve, "The proxy that the environment names cannot be found" +
                                               why +
                                               " Correct the environment, or use --no-proxy.");
        case CURLE_COULDNT_RESOLVE_HOST:
            return Failed(Stage::kResolve, "The name of the BMC is not known" + why +
                                               " Check the spelling, or give its address.");
        case CURLE_COULDNT_CONNECT:
            return Failed(
                Stage::kConnect,
                "Cannot connect to " + m_place + why +
                    " Check address, --port and whether the BMC's web service is switched on.");
        case CURLE_OPERATION_TIMEDOUT:
            return ExplainTimeout();
        case CURLE_BAD_FUNCTION_ARGUMENT:  // what libcurl makes of it
            return Failed(Stage::kService, m_place +
                                               " begins its answer with a malformed header "
                                               "line. It is no usable Redfish service.");
        case CURLE_WRITE_ERROR:
            return Failed(Stage::kService,
                          m_place +
                              " answers with more than 1 MiB where a few "
                              "hundred bytes are due. It is no usable Redfish service.");
        default:
            return Failed(Stage::kService, m_place + " does not answer as a web service" + why +
                                               " Check address and --port.");
    }
}

Answer Transport::ExplainTimeout() const {
    const std::string bound = " within " + std::to_string(m_seconds) + " s";
    const std::string connectBound =
        " within " + std::to_string(std::min(m_seconds, kConnectSeconds)) + " s";
    if (!m_connection->Reached(CURLINFO_NAMELOOKUP_TIME_T)) {
        return Failed(Stage::kResolve, "No name server tells the address of " + m_place + bound +
                                           ". Give the address itself.");
    }
    // The time of the connect comes with TLS's.
    if (m_connection->Info(CURLINFO_LOCAL_PORT) == 0) {
        return Failed(Stage::kConnect, m_place + " does not answer" + connectBound +
                                           ". Check address, network and firewall.");
    }
    if (!m_connection->Reached(CURLINFO_APPCONNECT_TIME_T)) {
        return Failed(Stage::kTls, m_place + " accepts connections but does not begin HTTPS" +
                                       connectBound +
                                       ". Check --port; a BMC that hangs needs a reset.");
    }
    if (m_connection->Reached(CURLINFO_STARTTRANSFER_TIME_T)) {
        return Failed(Stage::kService, m_place + " begins to answer but does not end" + bound +
                                           ". A BMC that hangs needs a reset.");
    }
    return Failed(Stage::kService, m_place + " speaks HTTPS but does not answer" + bound +
                                       ". A BMC that hangs needs a reset.");
}

}  // namespace Kemffdc
