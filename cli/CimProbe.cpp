// SPDX-License-Identifier: Apache-2.0
#include "CimProbe.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>

#include "CimXml.h"
#include "RecordTable.h"
#include "Text.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxBody = std::size_t{1024} * 1024;
constexpr std::size_t kMaxHeaders = 64;
constexpr int kConnectSeconds = 30;

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

std::string UrlOf(const Options& options) {
    const std::string host = options.ipv6 ? "[" + options.host + "]" : options.host;
    return (options.plain ? "http://" : "https://") + host + ":" + std::to_string(options.port) +
           "/cimom";
}

void Append(List& list, const std::string& line) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    (void)list.release();  // `longer` begins with it
    list.reset(longer);
}

// What DSP0200 wants of a request. Accept and Expect would only be noise.
List HeadersFor(const std::string& nameSpace, const std::string& authorization) {
    List list;
    Append(list, "Content-Type: application/xml; charset=utf-8");
    Append(list, "CIMOperation: MethodCall");
    Append(list, "CIMMethod: EnumerateInstances");
    Append(list, "CIMObject: " + CimObjectHeader(nameSpace));
    Append(list, "Accept:");
    Append(list, "Expect:");
    if (!authorization.empty()) Append(list, "Authorization: " + authorization);
    return list;
}

std::size_t CollectBody(char* bytes, std::size_t size, std::size_t count, void* reply) {
    std::string& text = static_cast<CimReply*>(reply)->body;
    if (text.size() + size * count > kMaxBody) return 0;  // ends the transfer
    text.append(bytes, size * count);
    return size * count;
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

void TakeHeader(const std::string& line, CimReply& reply) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || reply.headers.size() >= kMaxHeaders) return;
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    reply.headers[name] = Trimmed(line.substr(colon + 1));
}

// CIM servers refuse without a length and keep the connection open: nobody may wait for a body
// that never comes. An error's body is of no interest in any case.
bool IsComplete(const CimReply& reply) {
    return reply.httpCode != 100 && reply.httpCode != 200 &&
           reply.headers.count("content-length") == 0 &&
           reply.headers.count("transfer-encoding") == 0;
}

std::size_t CollectHeader(char* bytes, std::size_t size, std::size_t count, void* target) {
    CimReply& reply = *static_cast<CimReply*>(target);
    const std::string line(bytes, size * count);
    if (line.compare(0, 5, "HTTP/") == 0) {
        reply.headers.clear();
        reply.httpCode = NumberBehind(line, " ", 0);
    } else if (Trimmed(line).empty()) {
        if (IsComplete(reply)) return 0;  // ends the transfer
    } else {
        TakeHeader(line, reply);
    }
    return size * count;
}

bool IsTlsFailure(int code) {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_SHUTDOWN_FAILED:
            return true;
        default:
            return false;
    }
}

CimReply Failed(Stage stage, const std::string& reason) {
    CimReply reply;
    reply.failedAt = stage;
    reply.reason = reason;
    return reply;
}

}  // namespace

std::string CimReply::Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

struct CimProbe::Handle {
    CURL* curl = curl_easy_init();
    char error[CURL_ERROR_SIZE] = "";

    Handle() {
        if (curl == nullptr) throw std::bad_alloc();
    }
    ~Handle() { curl_easy_cleanup(curl); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool Reached(CURLINFO time) const {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(curl, time, &microseconds);
        return microseconds > 0;
    }
    bool IsConnected() const {
        long port = 0;
        curl_easy_getinfo(curl, CURLINFO_LOCAL_PORT, &port);
        return port != 0;
    }
};

CimProbe::CimProbe(const Options& options, int seconds)
    : m_place(options.host + " port " + std::to_string(options.port)),
      m_plain(options.plain),
      m_seconds(seconds),
      m_handle(std::make_unique<Handle>()) {
    CURL* curl = m_handle->curl;
    curl_easy_setopt(curl, CURLOPT_URL, UrlOf(options).c_str());
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_handle->error);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "kemffdc/" KEMFFDC_VERSION);
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(seconds));
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT,
                     static_cast<long>(std::min(seconds, kConnectSeconds)));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, CollectBody);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, CollectHeader);
}

CimProbe::~CimProbe() = default;

CimReply CimProbe::Enumerate(const std::string& nameSpace, const std::string& className,
                             const std::string& authorization) {
    CURL* curl = m_handle->curl;
    const std::string body = EnumerationRequest(nameSpace, className);
    const List headers = HeadersFor(nameSpace, authorization);
    CimReply reply;
    m_handle->error[0] = '\0';
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    NoteCertificate();

    const bool endedByUs = code == CURLE_WRITE_ERROR && IsComplete(reply);
    if (code == CURLE_OK || endedByUs) return reply;
    return Explain(code, m_handle->error[0] != '\0' ? m_handle->error : curl_easy_strerror(code));
}

void CimProbe::NoteCertificate() {
    curl_certinfo* shown = nullptr;
    curl_easy_getinfo(m_handle->curl, CURLINFO_CERTINFO, &shown);
    if (shown == nullptr || shown->num_of_certs <= 0) return;
    for (const curl_slist* line = shown->certinfo[0]; line != nullptr; line = line->next) {
        if (std::strncmp(line->data, "Cert:", 5) == 0) {
            m_certificate = ReadCertificate(line->data + 5);
        }
    }
}

CimReply CimProbe::Explain(int code, const char* detail) const {
    const std::string why = " (" + Clean(detail) + ").";
    if (IsTlsFailure(code)) {
        return Failed(Stage::kTls, m_place + " does not speak TLS" + why +
                                       " Check --port; a CIM server that knows plain HTTP alone "
                                       "needs --plain.");
    }
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return Failed(Stage::kResolve, "The name of the BMC is not known" + why +
                                               " Check the spelling, or give its address.");
        case CURLE_COULDNT_CONNECT:
            return Failed(Stage::kConnect,
                          "Cannot connect to " + m_place + why +
                              " Check address, --port and whether the BMC's CIM server is "
                              "switched on.");
        case CURLE_OPERATION_TIMEDOUT:
            return ExplainTimeout();
        case CURLE_WRITE_ERROR:
            return Failed(Stage::kService, m_place +
                                               " answers with more than 1 MiB where a few hundred "
                                               "bytes are due. It is no usable CIM server.");
        case CURLE_PARTIAL_FILE:
            return Failed(Stage::kService,
                          m_place + " breaks its answer off" + why + " Try again.");
        default:
            break;
    }
    if (m_plain) {
        return Failed(Stage::kService, m_place + " does not answer in plain HTTP" + why +
                                           " Check --port; without --plain the tool speaks TLS.");
    }
    return Failed(Stage::kService, m_place + " does not answer as a CIM server" + why +
                                       " Check address and --port.");
}

CimReply CimProbe::ExplainTimeout() const {
    const std::string bound = " within " + std::to_string(m_seconds) + " s";
    const std::string connectBound =
        " within " + std::to_string(std::min(m_seconds, kConnectSeconds)) + " s";
    if (m_handle->Reached(CURLINFO_PRETRANSFER_TIME_T)) {
        return Failed(Stage::kService, m_place + " accepts requests but does not answer" + bound +
                                           ". A BMC that hangs needs a reset.");
    }
    if (!m_handle->Reached(CURLINFO_NAMELOOKUP_TIME_T)) {
        return Failed(Stage::kResolve, "No name server tells the address of " + m_place + bound +
                                           ". Give the address itself.");
    }
    if (!m_handle->IsConnected()) {
        return Failed(Stage::kConnect, m_place + " does not answer" + connectBound +
                                           ". Check address, network and firewall.");
    }
    return Failed(Stage::kTls, m_place + " accepts connections but does not begin TLS" +
                                   connectBound +
                                   ". Check --port and --plain; a BMC that hangs needs a reset.");
}

}  // namespace Kemffdc
