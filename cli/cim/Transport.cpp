// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <new>

#include "cli/RecordTable.h"
#include "cli/cim/Options.h"
#include "cli/cim/Xml.h"
#include "cli/http/CurlHandle.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

// As the library: some ten thousand objects.
constexpr std::size_t kMaxBody = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMaxHeaders = std::size_t{64} * 1024;  // bytes of names and values
// Of all header lines and trailers, those of interim answers too. libcurl has a bound of its own, a
// little higher and with other words, and none for trailers.
constexpr std::size_t kMaxLines = std::size_t{256} * 1024;
constexpr int kConnectSeconds = 30;

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

std::string UrlOf(const Options& options) {
    const std::string host = options.ipv6 ? "[" + options.host + "]" : options.host;
    return (Own(options).plain ? "http://" : "https://") + host + ":" +
           std::to_string(options.port) + "/cimom";
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
    Append(list, "TE: chunked, trailers");  // a server that reads it tells CIM errors otherwise
    Append(list, "CIMOperation: MethodCall");
    Append(list, "CIMMethod: EnumerateInstances");
    Append(list, "CIMObject: " + CimObjectHeader(nameSpace));
    Append(list, "Accept:");
    Append(list, "Expect:");
    if (!authorization.empty()) Append(list, "Authorization: " + authorization);
    return list;
}

std::size_t CollectBody(char* bytes, std::size_t size, std::size_t count, void* reply) {
    std::string& text = static_cast<Reply*>(reply)->body;
    if (text.size() + size * count > kMaxBody) return 0;  // ends the transfer
    text.append(bytes, size * count);
    return size * count;
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The first of a name counts, and headers before trailers.
void TakeHeader(const std::string& line, Reply& reply) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) return;
    std::size_t held = line.size();
    for (const auto& [name, value] : reply.headers) held += name.size() + value.size();
    if (held > kMaxHeaders) return;
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    reply.headers.emplace(name, Trimmed(line.substr(colon + 1)));
}

// Of a refusal the status is enough. CIM servers send it without a length and keep the connection
// open, others announce a body that never comes: nobody may wait for it. Without any, the
// connection can go on.
bool IsComplete(const Reply& reply) {
    if (reply.httpCode / 100 == 1 || reply.httpCode == 200) return false;
    const std::string length = reply.Header("content-length");
    return length.empty() || length.find_first_not_of('0') != std::string::npos;
}

std::size_t CollectHeader(char* bytes, std::size_t size, std::size_t count, void* target) {
    Reply& reply = *static_cast<Reply*>(target);
    const std::string line(bytes, size * count);
    reply.lineBytes += line.size();
    if (reply.lineBytes > kMaxLines) return 0;  // ends the transfer
    if (line.compare(0, 5, "HTTP/") == 0) {
        reply.headers.clear();
        reply.httpCode = NumberBehind(line, " ", 0);
    } else if (line == "\r\n" || line == "\n") {
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

Reply Failed(Stage stage, const std::string& reason) {
    Reply reply;
    reply.failedAt = stage;
    reply.reason = reason;
    return reply;
}

}  // namespace

std::string Reply::Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::string Reply::CimHeader(const std::string& name) const {
    static constexpr char kPrefix[] = "ns=";
    const std::string man = Header("man");
    const std::size_t at = man.find(kPrefix);
    if (at == std::string::npos) return Header(name);
    const std::size_t first = at + sizeof kPrefix - 1;
    const std::size_t end = std::min(man.find_first_not_of("0123456789", first), man.size());
    const std::string prefixed = Header(man.substr(first, end - first) + "-" + name);
    return prefixed.empty() ? Header(name) : prefixed;
}

struct Transport::Connection {
    CurlHandle handle;
    char error[CURL_ERROR_SIZE] = "";

    bool Reached(CURLINFO time) const {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(handle.Get(), time, &microseconds);
        return microseconds > 0;
    }
    bool IsConnected() const {
        long port = 0;
        curl_easy_getinfo(handle.Get(), CURLINFO_LOCAL_PORT, &port);
        return port != 0;
    }
};

Transport::Transport(const Options& options, int seconds)
    : m_options(options),
      m_place(options.host + " port " + std::to_string(options.port)),
      m_seconds(seconds),
      m_connection(std::make_unique<Connection>()) {}

Transport::~Transport() = default;

void Transport::SetTransport(CURL* curl, const std::string& caFile) const {
    curl_easy_setopt(curl, CURLOPT_URL, UrlOf(m_options).c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
    curl_easy_setopt(curl, CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(m_seconds));
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT,
                     static_cast<long>(std::min(m_seconds, kConnectSeconds)));
    SetVerification(curl, caFile);
}

Reply Transport::Enumerate(const std::string& nameSpace, const std::string& className,
                           const std::string& authorization) {
    CURL* curl = m_connection->handle.Renew();
    const std::string body = EnumerationRequest(nameSpace, className);
    const List headers = HeadersFor(nameSpace, authorization);
    Reply reply;
    m_connection->error[0] = '\0';
    SetTransport(curl, m_options.caFile);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_connection->error);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "kemffdc/" KEMFFDC_VERSION);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, CollectBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, CollectHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    NoteCertificate(curl, !m_options.caFile.empty());

    const bool endedByUs = code == CURLE_WRITE_ERROR && IsComplete(reply);
    if (code == CURLE_OK || endedByUs) return reply;
    if (code == CURLE_PEER_FAILED_VERIFICATION) NoteUntrusted();
    return Explain(code, Detail(code), reply.lineBytes > kMaxLines);
}

Reply Transport::CheckCertificate() {
    if (m_options.caFile.empty() || Own(m_options).plain) return {};
    CURL* curl = m_connection->handle.Renew();
    m_connection->error[0] = '\0';
    SetTransport(curl, m_options.caFile);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_connection->error);
    curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    const CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK) return {};
    const Answer answer = NotCheckedAgain(code, m_place, Detail(code));
    return Failed(answer.failedAt, answer.reason);
}

std::string Transport::Detail(int code) const {
    const char* detail = m_connection->error;
    return detail[0] != '\0' ? detail : curl_easy_strerror(static_cast<CURLcode>(code));
}

// For the report: who is it? Without any request.
void Transport::NoteUntrusted() {
    CurlHandle handle;
    CURL* curl = handle.Renew();
    SetTransport(curl, "");
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    if (curl_easy_perform(curl) == CURLE_OK) NoteCertificate(curl, false);
}

void Transport::NoteCertificate(CURL* curl, bool verified) {
    if (const auto shown = CertificateOf(curl, verified)) m_certificate = shown;
}

Reply Transport::Explain(int code, const std::string& detail, bool tooManyLines) const {
    const std::string why = " (" + Clean(detail) + ").";
    if (code == CURLE_PEER_FAILED_VERIFICATION && !m_options.caFile.empty()) {
        return Failed(Stage::kTrust,
                      "The certificate of " + m_place + " is not good for the CAs in " +
                          Clean(m_options.caFile) + why +
                          " The password was not sent. Check HOST, or give the BMC a certificate "
                          "of that CA for this very name or address.");
    }
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
            if (tooManyLines) return EndlessHeaders();
            return Failed(Stage::kService,
                          m_place +
                              " answers with more than 16 MiB where a few thousand "
                              "bytes are due. It is no usable CIM server.");
        case CURLE_OUT_OF_MEMORY:  // what libcurl calls a line that is too long for it
            return EndlessHeaders();
        case CURLE_BAD_FUNCTION_ARGUMENT:  // what libcurl makes of it
            return Failed(Stage::kService, m_place +
                                               " begins its answer with a malformed header "
                                               "line. It is no usable CIM server.");
        case CURLE_PARTIAL_FILE:
            return Failed(Stage::kService,
                          m_place + " breaks its answer off" + why + " Try again.");
        default:
            break;
    }
    if (Own(m_options).plain) {
        return Failed(Stage::kService, m_place + " does not answer in plain HTTP" + why +
                                           " Check --port; without --plain the tool speaks TLS.");
    }
    return Failed(Stage::kService, m_place + " does not answer as a CIM server" + why +
                                       " Check address and --port.");
}

Reply Transport::EndlessHeaders() const {
    return Failed(Stage::kService,
                  m_place + " answers with headers without end. It is no usable CIM server.");
}

Reply Transport::ExplainTimeout() const {
    const std::string bound = " within " + std::to_string(m_seconds) + " s";
    const std::string connectBound =
        " within " + std::to_string(std::min(m_seconds, kConnectSeconds)) + " s";
    if (m_connection->Reached(CURLINFO_PRETRANSFER_TIME_T)) {
        return Failed(Stage::kService, m_place + " accepts requests but does not answer" + bound +
                                           ". A BMC that hangs needs a reset.");
    }
    if (!m_connection->Reached(CURLINFO_NAMELOOKUP_TIME_T)) {
        return Failed(Stage::kResolve, "No name server tells the address of " + m_place + bound +
                                           ". Give the address itself.");
    }
    if (!m_connection->IsConnected()) {
        return Failed(Stage::kConnect, m_place + " does not answer" + connectBound +
                                           ". Check address, network and firewall.");
    }
    return Failed(Stage::kTls, m_place + " accepts connections but does not begin TLS" +
                                   connectBound +
                                   ". Check --port and --plain; a BMC that hangs needs a reset.");
}

}  // namespace Kemffdc::Cim
