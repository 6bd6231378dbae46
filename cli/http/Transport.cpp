// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Transport.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "cli/http/ConnectionWatch.h"
#include "cli/http/CurlHandle.h"
#include "cli/http/Explanation.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Of all header lines and trailers, those of interim answers too. libcurl has a bound of its own, a
// little higher and with other words, and none for trailers.
constexpr std::size_t kMaxLines = std::size_t{256} * 1024;
constexpr std::size_t kMaxHeaders = std::size_t{64} * 1024;  // bytes of names and values kept
constexpr int kMaxRedirects = 10;                            // as the library
constexpr int kConnectSeconds = 30;

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

void Append(List& list, const std::string& line) {
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    (void)list.release();  // `longer` begins with it
    list.reset(longer);
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// "HTTP/1.1 200 OK"; 0 for what is none.
long StatusOf(const std::string& line) {
    long status = 0;
    const std::size_t blank = std::min(line.find(' '), line.size() - 1);
    std::from_chars(line.data() + blank + 1, line.data() + line.size(), status);
    return status;
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

// Anything but 0 ends the transfer.
int OnProgress(void* stop, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return *static_cast<const std::atomic<bool>*>(stop) ? 1 : 0;
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

bool IsJudged(const Trust& trust) { return trust.caFile.empty() && trust.judge; }

// Null where nobody but libcurl judges.
ConnectionWatch::Judge JudgeAt(const std::string& url, const Trust& trust) {
    if (!IsJudged(trust)) return nullptr;
    const std::string text = Url(url).Part(CURLUPART_PORT);
    std::uint16_t port = 0;
    std::from_chars(text.data(), text.data() + text.size(), port);
    return [judge = trust.judge, port](const Certificate& shown) { return judge(port, shown); };
}

}  // namespace

std::string Answer::Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

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

struct Transport::Request {
    const char* method;
    const std::string& path;
    const std::string* body;  // null: none
    const std::vector<std::string>& headers;
    const Login& login;

    bool HasNoBody() const { return std::strcmp(method, "HEAD") == 0; }  // its answer

    List HeaderLines() const {
        List lines;
        for (const std::string& line : headers) Append(lines, line);
        if (body != nullptr) Append(lines, "Expect:");  // to ask first would only be noise
        if (!login.header.Empty()) Append(lines, login.header.Reveal());
        return lines;
    }
};

// What an answer is put together from.
struct Transport::Reception {
    explicit Reception(const ServiceKind& service) : kind(service) {}

    const ServiceKind& kind;
    Answer answer;
    std::size_t lineBytes = 0;  // of all answers that a request gets, the interim ones too
    bool upperCase = false;     // in any header's name

    bool IsEndless() const { return lineBytes > kMaxLines; }

    // Servers send refusals without a length and keep the connection open, others announce a body
    // that never comes: where nobody wants to read it, nobody may wait for it. Without any, the
    // connection can go on.
    bool IsEnough() const {
        if (kind.readsRefusals || answer.httpCode / 100 == 1 || answer.httpCode == 200) {
            return false;
        }
        const std::string length = answer.Header("content-length");
        return length.empty() || length.find_first_not_of('0') != std::string::npos;
    }

    // The first of a name counts, and headers before trailers.
    void TakeHeader(const std::string& line) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) return;
        std::size_t held = line.size();
        for (const auto& [name, value] : answer.headers) held += name.size() + value.size();
        if (held > kMaxHeaders) return;
        std::string name = line.substr(0, colon);
        const auto isUpper = [](unsigned char c) { return std::isupper(c) != 0; };
        upperCase = upperCase || std::any_of(name.begin(), name.end(), isUpper);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        answer.headers.emplace(name, Trimmed(line.substr(colon + 1)));
    }

    // Less than `size` ends the transfer, as in the next.
    static std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto& reception = *static_cast<Reception*>(self);
        const std::string line(bytes, size * count);
        reception.lineBytes += line.size();
        if (reception.IsEndless()) return 0;
        if (line.compare(0, 5, "HTTP/") == 0) {
            reception.answer.headers.clear();
            reception.upperCase = false;
            reception.answer.httpCode = StatusOf(line);
        } else if (line == "\r\n" || line == "\n") {
            if (reception.IsEnough()) return 0;
        } else {
            reception.TakeHeader(line);
        }
        return line.size();
    }

    static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto& reception = *static_cast<Reception*>(self);
        std::string& text = reception.answer.body;
        if (text.size() + size * count > reception.kind.maxBody) return 0;
        text.append(bytes, size * count);
        return size * count;
    }
};

Transport::Transport(Endpoint endpoint, Trust trust, const ServiceKind& kind, int seconds)
    : m_endpoint(std::move(endpoint)),
      m_trust(std::move(trust)),
      m_kind(kind),
      m_seconds(seconds),
      m_connection(std::make_unique<Connection>()) {}

Transport::~Transport() = default;

Answer Transport::Get(const std::string& path, const Login& login) {
    return Send({"GET", path, nullptr, {}, login});
}

Answer Transport::Head(const std::string& path, const Login& login) {
    return Send({"HEAD", path, nullptr, {}, login});
}

Answer Transport::Post(const std::string& path, const std::string& body,
                       const std::vector<std::string>& headers, const Login& login) {
    return Send({"POST", path, &body, headers, login});
}

Answer Transport::Delete(const std::string& path, const Login& login) {
    return Send({"DELETE", path, nullptr, {}, login});
}

// libcurl does not follow by itself: who the next one is has to be known before it is asked.
Answer Transport::Send(const Request& request) {
    const auto end = SteadyClock::now() + std::chrono::seconds(m_seconds);
    std::string url = m_endpoint.Url() + request.path;
    for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - SteadyClock::now());
        Answer answer = Perform(request, url, std::max<long>(left.count(), 1));
        char* target = nullptr;
        curl_easy_getinfo(m_connection->handle.Get(), CURLINFO_REDIRECT_URL, &target);
        const bool follows = m_kind.followsRedirects && target != nullptr;
        if (answer.failedAt != Stage::kDone || !follows) return answer;
        answer = CheckRedirect(target);
        if (answer.failedAt != Stage::kDone) return answer;
        url = target;
    }
    return Failed(Stage::kService, m_endpoint.Place() + " redirects without end (more than " +
                                       std::to_string(kMaxRedirects) + " times). It is no usable " +
                                       m_kind.name + ".");
}

Answer Transport::Perform(const Request& request, const std::string& url, long milliseconds) {
    CURL* easy = m_connection->handle.Renew();
    SetUp(easy, url, m_trust, *m_connection);
    if (!IsJudged(m_trust)) curl_easy_setopt(easy, CURLOPT_CERTINFO, 1L);
    Reception reception(m_kind);
    const List lines = request.HeaderLines();
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "kemffdc/" KEMFFDC_VERSION);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                     std::min(milliseconds, kConnectSeconds * 1000L));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, Reception::OnBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &reception);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, Reception::OnHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &reception);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, lines.get());
    if (request.body != nullptr) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body->data());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body->size()));
    }
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method);
    if (request.HasNoBody()) curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    if (m_stop != nullptr) {
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, OnProgress);
        curl_easy_setopt(easy, CURLOPT_XFERINFODATA, m_stop);
    }
    const CURLcode code = curl_easy_perform(easy);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, nullptr);
    NoteAddress(easy);
    NoteCertificate(easy);

    const bool endedByUs =
        code == CURLE_WRITE_ERROR && reception.IsEnough() && !reception.IsEndless();
    if (code != CURLE_OK && !endedByUs) {
        if (code == CURLE_PEER_FAILED_VERIFICATION) NoteUntrusted();
        Answer failed = Explained(code, reception);
        failed.tooLong = code == CURLE_WRITE_ERROR && !reception.IsEndless();
        return failed;
    }
    Answer& answer = reception.answer;
    answer.lowerCaseNames = !answer.headers.empty() && !reception.upperCase;
    answer.wantsCertificate = m_connection->watch.WantsCertificate();
    return std::move(answer);
}

Answer Transport::CheckCertificate() {
    if (m_trust.IsAnybodys() || !m_endpoint.tls) return {};
    Connection connection;  // goes with the object: none of them stays open on the BMC
    CURL* easy = connection.handle.Renew();
    SetUp(easy, m_endpoint.Url(), m_trust, connection);
    const int seconds = std::min(m_seconds, kConnectSeconds);
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, static_cast<long>(seconds));
    const CURLcode code = curl_easy_perform(easy);
    if (code == CURLE_OK) return {};
    const char* detail = connection.error[0] != '\0' ? connection.error : curl_easy_strerror(code);
    return ExplainRecheck(
        {m_endpoint, m_kind, m_trust.caFile, connection.watch, code, detail, m_seconds, seconds});
}

// Refuses who is not to have the password; the library would send it to anybody.
Answer Transport::CheckRedirect(const std::string& target) const {
    const Url from(m_endpoint.Url());
    const Url to(target);
    const std::string place = m_endpoint.Place();
    const std::string scheme = to.Part(CURLUPART_SCHEME);
    const std::string host = to.Part(CURLUPART_HOST);
    const std::string named = Clean(scheme + "://" + host + ":" + to.Part(CURLUPART_PORT));
    if (!to.valid) {
        return Failed(Stage::kService,
                      place + " redirects to \"" + Clean(target, 255) + "\", which is no address.");
    }
    if (strcasecmp(scheme.c_str(), "https") != 0) {
        return Failed(Stage::kTrust,
                      place + " redirects to " + named +
                          ", away from HTTPS: the password could be read on the way. It was not "
                          "sent. The BMC's service data is fetched over HTTPS alone.");
    }
    if (strcasecmp(host.c_str(), from.Part(CURLUPART_HOST).c_str()) == 0) return {};
    return Failed(Stage::kTrust, place + " redirects to another host, " + named +
                                     ": the password was not sent there. If that is the BMC, give "
                                     "its name or address instead; else check address and --port.");
}

void Transport::SetUp(void* easy, const std::string& url, const Trust& trust,
                      Connection& connection) const {
    connection.error[0] = '\0';
    connection.watch.Attach(easy, JudgeAt(url, trust));
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, m_kind.newestTls);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, m_endpoint.tls ? "https" : "http");
    if (!m_kind.usesProxies) curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, connection.error);
    SetVerification(easy, trust.caFile);
}

void Transport::NoteAddress(void* easy) {
    if (m_kind.usesProxies && !ProxyInEnvironment().empty()) return;
    const char* address = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIMARY_IP, &address);
    if (address != nullptr && *address != '\0') m_address = address;
}

// For the report: who is it? Without any request.
void Transport::NoteUntrusted() {
    if (m_connection->watch.Judged()) {
        m_certificate = m_connection->watch.Judged();
        return;
    }
    Connection connection;
    CURL* easy = connection.handle.Renew();
    SetUp(easy, m_endpoint.Url(), Trust(), connection);
    curl_easy_setopt(easy, CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT,
                     static_cast<long>(std::min(m_seconds, kConnectSeconds)));
    if (curl_easy_perform(easy) != CURLE_OK) return;
    if (const auto shown = CertificateOf(easy, false)) m_certificate = shown;
}

// A judge has been shown it in the handshake; libcurl's own description takes longer.
void Transport::NoteCertificate(void* easy) {
    const auto shown = IsJudged(m_trust) ? m_connection->watch.Judged()
                                         : CertificateOf(easy, !m_trust.caFile.empty());
    if (shown) m_certificate = shown;
}

Answer Transport::Explained(int curlCode, const Reception& reception) const {
    const Connection& connection = *m_connection;
    const char* detail = connection.error[0] != '\0'
                             ? connection.error
                             : curl_easy_strerror(static_cast<CURLcode>(curlCode));
    FailedExchange failed{m_endpoint, m_kind, m_trust.caFile, connection.watch,
                          curlCode,   detail, m_seconds,      std::min(m_seconds, kConnectSeconds)};
    failed.tunnelCode = connection.Info(CURLINFO_HTTP_CONNECTCODE);
    failed.proxy = ProxyInEnvironment();
    failed.isResolved = connection.Reached(CURLINFO_NAMELOOKUP_TIME_T);
    failed.isConnected = connection.Info(CURLINFO_LOCAL_PORT) != 0;  // its time comes with TLS's
    // A connection that is used again has no time of a handshake.
    failed.isEncrypted = connection.Reached(CURLINFO_APPCONNECT_TIME_T) ||
                         connection.Reached(CURLINFO_PRETRANSFER_TIME_T);
    failed.isBegun = connection.Reached(CURLINFO_STARTTRANSFER_TIME_T);
    failed.headersEndless = reception.IsEndless();
    return Explain(failed);
}

}  // namespace Kemffdc
