// SPDX-License-Identifier: Apache-2.0
#include "HttpsProbe.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "Text.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxBody = std::size_t{1024} * 1024;
constexpr long kMaxRedirects = 10;  // as the library
constexpr int kConnectSeconds = 30;

std::size_t CollectBody(char* bytes, std::size_t size, std::size_t count, void* body) {
    auto& text = *static_cast<std::string*>(body);
    if (text.size() + size * count > kMaxBody) return 0;  // ends the transfer
    text.append(bytes, size * count);
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

Answer Failed(Stage stage, const std::string& reason) {
    Answer answer;
    answer.failedAt = stage;
    answer.reason = reason;
    return answer;
}

}  // namespace

struct HttpsProbe::Handle {
    CURL* curl = curl_easy_init();
    char error[CURL_ERROR_SIZE] = "";

    Handle() {
        if (curl == nullptr) throw std::bad_alloc();
    }
    ~Handle() { curl_easy_cleanup(curl); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    long Info(CURLINFO info) const {
        long value = 0;
        curl_easy_getinfo(curl, info, &value);
        return value;
    }
    bool Reached(CURLINFO time) const {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(curl, time, &microseconds);
        return microseconds > 0;
    }
};

HttpsProbe::HttpsProbe(const Options& options, int seconds)
    : m_place(options.host + " port " + std::to_string(options.port)),
      m_baseUrl(UrlOf(options)),
      m_seconds(seconds),
      m_handle(std::make_unique<Handle>()) {
    CURL* curl = m_handle->curl;
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_handle->error);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "kemffdc/" KEMFFDC_VERSION);
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaxRedirects);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(seconds));
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT,
                     static_cast<long>(std::min(seconds, kConnectSeconds)));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, CollectBody);
}

HttpsProbe::~HttpsProbe() = default;

Answer HttpsProbe::Get(const std::string& path) { return Perform(path); }

Answer HttpsProbe::Get(const std::string& path, const std::string& user,
                       const std::string& password) {
    CURL* curl = m_handle->curl;
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    curl_easy_setopt(curl, CURLOPT_USERNAME, user.c_str());
    curl_easy_setopt(curl, CURLOPT_PASSWORD, password.c_str());
    Answer answer = Perform(path);
    curl_easy_setopt(curl, CURLOPT_USERNAME, nullptr);
    curl_easy_setopt(curl, CURLOPT_PASSWORD, nullptr);
    return answer;
}

Answer HttpsProbe::Perform(const std::string& path) {
    CURL* curl = m_handle->curl;
    Answer answer;
    m_handle->error[0] = '\0';
    curl_easy_setopt(curl, CURLOPT_URL, (m_baseUrl + path).c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.body);
    const CURLcode code = curl_easy_perform(curl);

    curl_certinfo* shown = nullptr;
    curl_easy_getinfo(curl, CURLINFO_CERTINFO, &shown);
    if (shown != nullptr && shown->num_of_certs > 0) {
        for (const curl_slist* line = shown->certinfo[0]; line != nullptr; line = line->next) {
            if (std::strncmp(line->data, "Cert:", 5) == 0) {
                m_certificate = ReadCertificate(line->data + 5);
            }
        }
    }
    if (code != CURLE_OK) {
        const char* detail =
            m_handle->error[0] != '\0' ? m_handle->error : curl_easy_strerror(code);
        return Explain(code, detail);
    }
    answer.httpCode = m_handle->Info(CURLINFO_RESPONSE_CODE);
    return answer;
}

Answer HttpsProbe::Explain(int code, const char* detail) const {
    const std::string why = " (" + Clean(detail) + ").";
    if (m_handle->Info(CURLINFO_HTTP_CONNECTCODE) >= 400) {
        return Failed(Stage::kConnect, "The proxy refuses to connect to " + m_place + why +
                                           " Check the proxy, or use --no-proxy.");
    }
    if (IsTlsFailure(code)) {
        return Failed(Stage::kTls, m_place + " does not speak HTTPS" + why +
                                       " Check that --port is the port of the BMC's web service.");
    }
    switch (code) {
        case CURLE_COULDNT_RESOLVE_PROXY:
            return Failed(Stage::kResolve, "The name of the proxy is not known" + why +
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
        case CURLE_TOO_MANY_REDIRECTS:
            return Failed(Stage::kService, m_place + " redirects without end" + why +
                                               " It is no usable Redfish service.");
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

Answer HttpsProbe::ExplainTimeout() const {
    const std::string bound = " within " + std::to_string(m_seconds) + " s";
    if (!m_handle->Reached(CURLINFO_NAMELOOKUP_TIME_T)) {
        return Failed(Stage::kResolve, "No name server tells the address of " + m_place + bound +
                                           ". Give the address itself.");
    }
    if (m_handle->Info(CURLINFO_LOCAL_PORT) == 0) {  // the time of the connect comes with TLS's
        return Failed(Stage::kConnect, m_place + " does not answer" + " within " +
                                           std::to_string(std::min(m_seconds, kConnectSeconds)) +
                                           " s. Check address, network and firewall.");
    }
    if (!m_handle->Reached(CURLINFO_APPCONNECT_TIME_T)) {
        return Failed(Stage::kTls, m_place + " accepts connections but does not begin HTTPS" +
                                       " within " +
                                       std::to_string(std::min(m_seconds, kConnectSeconds)) +
                                       " s. Check --port; a BMC that hangs needs a reset.");
    }
    return Failed(Stage::kService, m_place + " speaks HTTPS but does not answer" + bound +
                                       ". A BMC that hangs needs a reset.");
}

}  // namespace Kemffdc
