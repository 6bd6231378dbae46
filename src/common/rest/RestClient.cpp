// SPDX-License-Identifier: Apache-2.0
#include "RestClient.h"

#include <strings.h>
#include <sys/socket.h>

#include <exception>
#include <locale>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Uri.h"

namespace Rest {

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
// libcurl has come to prefer CURLOPT_UPLOAD, which a PUT sets as well.
constexpr CURLoption kPutOption = CURLOPT_PUT;
#pragma GCC diagnostic pop

// Below this rate for this long, a transfer without a time-out is given up.
constexpr long kLowSpeedBytesPerSecond = 30;
constexpr long kLowSpeedSeconds = 60;

constexpr char kNoHandle[] = "Couldn't initialize curl handle";

// The first libcurl on which a handle can be used again whatever was answered.
constexpr unsigned int kReusableSince = 0x080100;

bool CanReuseHandles() { return curl_version_info(CURLVERSION_NOW)->version_num >= kReusableSince; }

// What a callback threw, kept until libcurl's C frames are left. One for each running transfer of
// a thread: a progress callback may make a request of its own, with another client.
class KeptException {
public:
    KeptException() : m_outer(std::exchange(innermost, this)) {}
    ~KeptException() { innermost = m_outer; }
    KeptException(const KeptException&) = delete;
    KeptException& operator=(const KeptException&) = delete;

    template <typename Result, typename Action>
    static Result Run(Result whenThrown, Action action) noexcept {
        try {
            return action();
        } catch (...) {
            if (!innermost->m_exception) innermost->m_exception = std::current_exception();
            return whenThrown;
        }
    }

    void RethrowIfAny() const {
        if (m_exception) std::rethrow_exception(m_exception);
    }

private:
    static thread_local KeptException* innermost;
    KeptException* m_outer;
    std::exception_ptr m_exception;
};

thread_local KeptException* KeptException::innermost = nullptr;

// Leaves connections and cookies in the handle.
class ResetAtEnd {
public:
    explicit ResetAtEnd(CURL* curl) : m_curl(curl) {}
    ~ResetAtEnd() { curl_easy_reset(m_curl); }
    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;

private:
    CURL* m_curl;
};

// White space by the classes of the host's locale. They are looked up once for an exchange: a
// search for each line would be the dearest part of a small answer.
class Blanks {
public:
    std::string Stripped(std::string_view text) const {
        while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
        while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
        return std::string(text);
    }

private:
    bool IsBlank(char c) const { return m_classes.is(std::ctype_base::space, c); }

    const std::locale m_locale;
    const std::ctype<char>& m_classes = std::use_facet<std::ctype<char>>(m_locale);
};

void StoreHeader(std::string_view line, const Blanks& blanks, Response& response) {
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
        response.headers.insert_or_assign(blanks.Stripped(line.substr(0, colon)),
                                          blanks.Stripped(line.substr(colon + 1)));
        return;
    }
    // The status line has none, and the line that ends the headers is empty.
    const std::string text = blanks.Stripped(line);
    if (!text.empty()) response.headers[text] = "present";
}

std::string TooLarge(std::size_t limit, const char* what) {
    return "Answer too large: more than " + std::to_string(limit) + " bytes of " + what;
}

std::size_t WriteToSink(char* data, std::size_t size, std::size_t count, void* target) {
    auto* sink = static_cast<std::FILE*>(target);
    if (sink == nullptr || std::fwrite(data, size, count, sink) < count) return 0;
    return size * count;
}

std::size_t ReadStream(char* buffer, std::size_t size, std::size_t count, void* source) {
    if (source == nullptr) return static_cast<std::size_t>(-1);  // too much: a read error
    return KeptException::Run<std::size_t>(CURL_READFUNC_ABORT, [=]() -> std::size_t {
        auto& stream = *static_cast<std::istream*>(source);
        if (!stream.good()) return 0;
        stream.read(buffer, static_cast<std::streamsize>(size * count));
        return static_cast<std::size_t>(stream.gcount());
    });
}

// Deliberate: goes to the start, wherever libcurl wants to be. Rewinding is all that it needs.
int SeekStream(void* source, curl_off_t /*offset*/, int /*origin*/) {
    if (source == nullptr) return CURL_SEEKFUNC_FAIL;
    return KeptException::Run<int>(CURL_SEEKFUNC_FAIL, [=] {
        auto& stream = *static_cast<std::istream*>(source);
        stream.clear();
        stream.seekg(0);
        return CURL_SEEKFUNC_OK;
    });
}

int ReportProgress(void* callback, curl_off_t downloadTotal, curl_off_t downloadNow,
                   curl_off_t uploadTotal, curl_off_t uploadNow) {
    if (callback == nullptr) return 0;
    return KeptException::Run<int>(1, [=] {
        const auto& progress = *static_cast<ProgressCallback*>(callback);
        if (downloadTotal >= 1) {
            progress(downloadTotal, downloadNow);
        } else if (uploadTotal >= 1) {
            progress(uploadTotal, uploadNow);
        }
        return 0;
    });
}

curl_socket_t OpenSocket(void* /*client*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
    return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

bool IsHttps(const std::string& url) { return ::strncasecmp(url.c_str(), "https:", 6) == 0; }

// -1 for a stream that cannot tell.
long MeasureFromStart(std::istream& stream) {
    stream.seekg(0, std::ios::end);
    const std::streamoff size = stream.tellg();
    stream.seekg(0);
    return static_cast<long>(size);
}

std::string UpperCased(std::string text) {
    const std::locale locale;
    for (char& character : text) character = std::toupper(character, locale);
    return text;
}

struct FreeForm {
    void operator()(curl_mime* form) const noexcept { curl_mime_free(form); }
};
using Form = std::unique_ptr<curl_mime, FreeForm>;

Form MakeForm(CURL* curl, const MimeParts& parts) {
    Form form(curl_mime_init(curl));
    if (!form) throw std::bad_alloc();
    for (const auto& part : parts) {
        curl_mimepart* place = curl_mime_addpart(form.get());
        if (place == nullptr) throw std::bad_alloc();
        part->AddTo(place);
    }
    return form;
}

}  // namespace

// What arrives during one exchange. Each receiver takes a piece or, beyond its bound, refuses it.
struct RestClient::Reception {
    Response response;
    Blanks blanks;
    std::size_t headerBytes = 0;
    std::string refusal;  // empty while everything was taken

    bool TakeHeader(std::string_view line) {
        headerBytes += line.size();
        if (headerBytes > kMaxHeaderBytes) return Refuse(kMaxHeaderBytes, "header lines");
        StoreHeader(line, blanks, response);
        return true;
    }

    bool TakeBody(std::string_view piece) {
        if (piece.size() > kMaxBodyBytes - response.body.size()) {
            return Refuse(kMaxBodyBytes, "body");
        }
        response.body.append(piece);
        return true;
    }

    bool Refuse(std::size_t limit, const char* what) {
        refusal = TooLarge(limit, what);
        return false;
    }

    void Fail(CURLcode code, std::string text) {
        response.curlCode = code;
        response.httpCode = -1;
        response.body = std::move(text);
        response.cookies.clear();
    }

    // For libcurl: 0, or any other number than that of the bytes, ends the transfer.
    template <bool (Reception::*take)(std::string_view)>
    static std::size_t Receive(char* data, std::size_t size, std::size_t count, void* target) {
        return KeptException::Run<std::size_t>(0, [=]() -> std::size_t {
            const std::string_view piece(data, size * count);
            return (static_cast<Reception*>(target)->*take)(piece) ? piece.size() : 0;
        });
    }
};

RestClient::RestClient() : m_curl(curl_easy_init()) {
    if (!m_curl) throw std::runtime_error(kNoHandle);
    if (CanReuseHandles()) return;
    MakeShare();
    SetOption(CURLOPT_SHARE, m_share.get());
}

void RestClient::MakeShare() {
    m_share.reset(curl_share_init());
    if (!m_share) throw std::runtime_error(kNoHandle);
    for (const curl_lock_data kept : {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_SSL_SESSION,
                                      CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_COOKIE}) {
        if (curl_share_setopt(m_share.get(), CURLSHOPT_SHARE, kept) == CURLSHE_NOMEM) {
            throw std::bad_alloc();
        }
    }
}

bool RestClient::MakeHandle() {
    if (m_curl) return true;
    m_curl.reset(curl_easy_init());
    if (!m_curl) return false;
    // Before anything else: a share that comes later drops the handle's cookies.
    SetOption(CURLOPT_SHARE, m_share.get());
    return true;
}

// Ends the handle after its request, unless it serves for the whole life. It was reset before, else
// its end would print the cookie jar.
class RestClient::UsedUp {
public:
    explicit UsedUp(RestClient& client) : m_client(client) {}
    ~UsedUp() {
        if (!m_client.m_share) return;
        m_client.SetOption(CURLOPT_NOSIGNAL, 1L);  // else it would change what SIGPIPE does
        m_client.m_curl.reset();
    }
    UsedUp(const UsedUp&) = delete;
    UsedUp& operator=(const UsedUp&) = delete;

private:
    RestClient& m_client;
};

template <typename Action>
Response RestClient::OnHandle(Action action) {
    if (!MakeHandle()) {
        Reception nothing;
        nothing.Fail(CURLE_FAILED_INIT, kNoHandle);
        return nothing.response;
    }
    const UsedUp usedUp(*this);
    return action();
}

void RestClient::SetBasicAuth(const std::string& user, const std::string& password) {
    m_user = user;
    m_password = password;
}

void RestClient::SetTimeout(int seconds) { m_timeout = seconds; }

void RestClient::SetSkipSslVerify(bool skip) { m_skipSslVerify = skip; }

void RestClient::SetNoExpectHeader(bool suppress) { m_noExpectHeader = suppress; }

void RestClient::FollowRedirects(bool follow, int maximum) {
    m_followRedirects = follow;
    m_maxRedirects = maximum;
}

void RestClient::SetCAInfoFilePath(const std::string& path) { m_caFile = path; }

void RestClient::SetProxy(const std::string& proxy, const std::string& user,
                          const std::string& password) {
    const bool hasHttpScheme = UpperCased(proxy).substr(0, 4) == "HTTP";
    m_proxy = proxy.empty() || hasHttpScheme ? proxy : "http://" + proxy;
    m_proxyUser = user;
    m_proxyPassword = password;
}

void RestClient::SetHeaders(std::map<std::string, std::string> headers) {
    m_headers = std::move(headers);
}

std::map<std::string, std::string> RestClient::GetHeaders() { return m_headers; }

void RestClient::AppendHeader(const std::string& key, const std::string& value) {
    m_headers[key] = value;
}

int RestClient::EnableGzip() {
    m_acceptGzip = true;
    return 0;
}

void RestClient::SetClientCertificate(const std::string& path, const std::string& type) {
    m_clientCertificate = path;
    m_clientCertificateType = type;
}

void RestClient::SetClientKey(const std::string& path, const std::string& password) {
    m_clientKey = path;
    m_clientKeyPassword = password;
}

void RestClient::SetCookieList(const std::string& line) { m_cookieList = line; }

void RestClient::SetBodySink(std::FILE* sink) { m_bodySink = sink; }

Response RestClient::Request(RequestType type, const std::string& url, const std::string& body) {
    switch (type) {
        case GET:
            return Get(url);
        case POST:
            return Post(url, body);
        case PUT:
            return Put(url, body);
        case PATCH:
            return Patch(url, body);
        case HEAD:
            return Head(url);
        case OPTIONS:
            return Options(url);
        case DELETE:  // Deliberate: only Delete() deletes.
        default:
            break;
    }
    Response refused;
    refused.body = "unknown request type";
    return refused;
}

Response RestClient::Get(const std::string& url) {
    return OnHandle([&] { return PerformCurlRequest(url); });
}

Response RestClient::PostMultipart(const std::string& url, const MimeParts& parts,
                                   ProgressCallback progress) {
    return OnHandle([&] {
        SetOption(CURLOPT_POST, 1L);
        Form form;  // belongs to the handle and goes before it
        try {
            form = MakeForm(m_curl.get(), parts);
        } catch (...) {
            curl_easy_reset(m_curl.get());
            throw;
        }
        SetOption(CURLOPT_MIMEPOST, form.get());
        SetOption(CURLOPT_NOPROGRESS, 0L);
        SetOption(CURLOPT_XFERINFOFUNCTION, &ReportProgress);
        SetOption(CURLOPT_XFERINFODATA, &progress);
        return PerformCurlRequest(url);
    });
}

Response RestClient::PostStream(const std::string& url, std::istream& stream) {
    return OnHandle([&] {
        const long size = MeasureFromStart(stream);
        SetOption(CURLOPT_POST, 1L);
        // Deliberate: the size goes to the upload option, so a POST stream is sent chunked.
        SetStream(stream, size);
        return PerformCurlRequest(url);
    });
}

Response RestClient::Post(const std::string& url, const std::string& body) {
    return OnHandle([&] {
        SetOption(CURLOPT_POST, 1L);
        SetOption(CURLOPT_POSTFIELDS, body.data());
        SetOption(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        return PerformCurlRequest(url);
    });
}

Response RestClient::PutStream(const std::string& url, std::istream& stream) {
    return OnHandle([&] {
        const long size = MeasureFromStart(stream);
        SetOption(kPutOption, 1L);
        SetOption(CURLOPT_UPLOAD, 1L);
        SetStream(stream, size);
        return PerformCurlRequest(url);
    });
}

Response RestClient::Put(const std::string& url, const std::string& body) {
    std::istringstream stream(body);
    return PutStream(url, stream);
}

Response RestClient::PatchStream(const std::string& url, std::istream& stream) {
    return OnHandle([&] {
        const long size = MeasureFromStart(stream);
        SetOption(CURLOPT_CUSTOMREQUEST, "PATCH");
        SetOption(CURLOPT_UPLOAD, 1L);
        SetStream(stream, size);
        return PerformCurlRequest(url);
    });
}

Response RestClient::Patch(const std::string& url, const std::string& body) {
    std::istringstream stream(body);
    return PatchStream(url, stream);
}

Response RestClient::Delete(const std::string& url) {
    return OnHandle([&] {
        SetOption(CURLOPT_CUSTOMREQUEST, "DELETE");
        return PerformCurlRequest(url);
    });
}

Response RestClient::Head(const std::string& url) {
    return OnHandle([&] {
        SetOption(CURLOPT_CUSTOMREQUEST, "HEAD");
        SetOption(CURLOPT_NOBODY, 1L);
        return PerformCurlRequest(url);
    });
}

Response RestClient::Options(const std::string& url) {
    return OnHandle([&] {
        SetOption(CURLOPT_CUSTOMREQUEST, "OPTIONS");
        SetOption(CURLOPT_NOBODY, 1L);
        return PerformCurlRequest(url);
    });
}

int RestClient::CheckResponse(const Response& response) {
    switch (response.curlCode) {
        case 0:
            return std::to_string(response.httpCode)[0] == '2' ? 0 : -1;
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return -2;
        default:
            return -1;
    }
}

Response RestClient::PerformCurlRequest(const std::string& url) {
    Reception reception;
    const ResetAtEnd resetAtEnd(m_curl.get());
    if (url.size() > kMaxUrlBytes) {
        reception.Fail(CURLE_URL_MALFORMAT,
                       "Address too long: more than " + std::to_string(kMaxUrlBytes) + " bytes");
        return std::move(reception.response);
    }
    const KeptException kept;
    char errorText[CURL_ERROR_SIZE] = {};

    ApplyEncoding();
    SetText(CURLOPT_URL, url);
    ApplyReceivers(reception);
    const HeaderLines headerLines = ApplyHeaders();
    ApplyBasicAuth();
    SetText(CURLOPT_USERAGENT, m_userAgent);
    ApplyTimeouts();
    SetOption(CURLOPT_NOSIGNAL, 1L);
    ApplyRedirects();
    ApplyTls();
    ApplyClientCertificate();
    ApplyProxy();
    ApplyCookies();
    SetOption(CURLOPT_ERRORBUFFER, &errorText[0]);
    ApplySafeguards(url);

    const CURLcode code = curl_easy_perform(m_curl.get());
    kept.RethrowIfAny();
    reception.response.curlCode = code;
    if (code == CURLE_OK) {
        CollectAnswer(reception);
    } else {
        CollectFailure(code, &errorText[0], reception);
    }
    return std::move(reception.response);
}

void RestClient::ApplyEncoding() {
    if (m_acceptGzip) SetOption(CURLOPT_ACCEPT_ENCODING, "gzip");
}

void RestClient::ApplyReceivers(Reception& reception) {
    if (m_bodySink != nullptr) {
        SetOption(CURLOPT_WRITEFUNCTION, &WriteToSink);
        SetOption(CURLOPT_WRITEDATA, m_bodySink);
    } else {
        SetOption(CURLOPT_WRITEFUNCTION, &Reception::Receive<&Reception::TakeBody>);
        SetOption(CURLOPT_WRITEDATA, &reception);
    }
    SetOption(CURLOPT_HEADERFUNCTION, &Reception::Receive<&Reception::TakeHeader>);
    SetOption(CURLOPT_HEADERDATA, &reception);
}

RestClient::HeaderLines RestClient::ApplyHeaders() {
    HeaderLines lines;
    const auto append = [&lines](const char* text) {
        curl_slist* longer = curl_slist_append(lines.get(), text);
        if (longer == nullptr) throw std::bad_alloc();
        (void)lines.release();  // now part of `longer`
        lines.reset(longer);
    };
    std::string line;
    for (const auto& [key, value] : m_headers) {
        line.assign(key).append(": ").append(value);
        append(line.c_str());
    }
    if (m_noExpectHeader) append("Expect:");
    SetOption(CURLOPT_HTTPHEADER, lines.get());
    return lines;
}

void RestClient::ApplyBasicAuth() {
    if (m_user.empty()) return;
    SetOption(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    SetText(CURLOPT_USERPWD, m_user + ":" + m_password);
}

void RestClient::ApplyTimeouts() {
    if (m_timeout < 0) {
        SetOption(CURLOPT_LOW_SPEED_TIME, kLowSpeedSeconds);
        SetOption(CURLOPT_LOW_SPEED_LIMIT, kLowSpeedBytesPerSecond);
    } else {
        SetOption(CURLOPT_TIMEOUT, static_cast<long>(m_timeout));
        SetOption(CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_timeout));
    }
}

void RestClient::ApplyRedirects() {
    if (!m_followRedirects) return;
    SetOption(CURLOPT_UNRESTRICTED_AUTH, 1L);
    SetOption(CURLOPT_FOLLOWLOCATION, 1L);
    SetOption(CURLOPT_MAXREDIRS, static_cast<long>(m_maxRedirects));
}

void RestClient::ApplyTls() {
    if (!m_caFile.empty()) {
        SetText(CURLOPT_CAINFO, m_caFile);
    } else if (m_skipSslVerify) {
        SetOption(CURLOPT_SSL_VERIFYPEER, 0L);
        SetOption(CURLOPT_SSL_VERIFYHOST, 0L);
    }
}

void RestClient::ApplyClientCertificate() {
    SetTextUnlessEmpty(CURLOPT_SSLCERT, m_clientCertificate);
    SetTextUnlessEmpty(CURLOPT_SSLCERTTYPE, m_clientCertificateType);
    SetTextUnlessEmpty(CURLOPT_SSLKEY, m_clientKey);
    SetTextUnlessEmpty(CURLOPT_KEYPASSWD, m_clientKeyPassword);
}

void RestClient::ApplyProxy() {
    if (m_proxy.empty()) return;
    SetText(CURLOPT_PROXY, m_proxy);
    SetOption(CURLOPT_HTTPPROXYTUNNEL, 1L);
    if (m_proxyUser.empty() || m_proxyPassword.empty()) return;
    SetText(CURLOPT_PROXYUSERNAME, m_proxyUser);
    // libcurl decodes both before it sends them. Deliberate: only the password is made ready for
    // that.
    SetText(CURLOPT_PROXYPASSWORD, Uri::encodeURI(m_proxyPassword));
}

void RestClient::ApplyCookies() {
    // Switches the cookie engine on. Nothing is printed: the reset forgets the jar, not the
    // cookies.
    SetOption(CURLOPT_COOKIEJAR, "-");
    SetTextUnlessEmpty(CURLOPT_COOKIELIST, m_cookieList);
}

void RestClient::ApplySafeguards(const std::string& url) {
    // Header names arrive as the server spells them; HTTP/2 would put them into lower case.
    SetOption(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    // The credentials follow a redirect, and by ftp or http they would travel in clear.
    if (IsHttps(url)) SetOption(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    // Children of the host's process do not inherit the connection.
    SetOption(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
}

void RestClient::CollectAnswer(Reception& reception) {
    long status = 0;
    curl_easy_getinfo(m_curl.get(), CURLINFO_RESPONSE_CODE, &status);
    reception.response.httpCode = static_cast<std::int32_t>(status);
    CollectCookies(reception);
}

void RestClient::CollectFailure(CURLcode code, const char* text, Reception& reception) {
    if (!reception.refusal.empty()) {
        reception.Fail(code, reception.refusal);
    } else if (code == CURLE_OUT_OF_MEMORY && HasAnswerBegun()) {
        // What libcurl says of a line beyond its own bound.
        reception.Fail(CURLE_WRITE_ERROR, "Answer too large: one header line without an end");
    } else {
        reception.Fail(code, text);
    }
    BoundUnseenCookies(reception);
}

bool RestClient::HasAnswerBegun() {
    curl_off_t microseconds = 0;
    return curl_easy_getinfo(m_curl.get(), CURLINFO_STARTTRANSFER_TIME_T, &microseconds) ==
               CURLE_OK &&
           microseconds > 0;
}

void RestClient::CollectCookies(Reception& reception) {
    m_unseenHeaderBytes = 0;
    curl_slist* list = nullptr;
    if (curl_easy_getinfo(m_curl.get(), CURLINFO_COOKIELIST, &list) != CURLE_OK) return;
    const HeaderLines cookies(list);
    std::size_t bytes = 0;
    for (const curl_slist* line = list; line != nullptr; line = line->next) {
        bytes += reception.response.cookies.emplace_back(line->data).size();
    }
    if (bytes <= kMaxCookieBytes) return;
    SetOption(CURLOPT_COOKIELIST, "ALL");  // else every exchange from now on would fail
    reception.Fail(CURLE_WRITE_ERROR, TooLarge(kMaxCookieBytes, "cookies"));
}

// Cookies come with failed exchanges too, whose answers nobody collects.
void RestClient::BoundUnseenCookies(const Reception& reception) {
    m_unseenHeaderBytes += reception.headerBytes;
    if (m_unseenHeaderBytes <= kMaxCookieBytes) return;
    Reception onlyCookies;
    CollectCookies(onlyCookies);
}

void RestClient::SetStream(std::istream& stream, long size) {
    SetOption(CURLOPT_READFUNCTION, &ReadStream);
    SetOption(CURLOPT_READDATA, &stream);
    SetOption(CURLOPT_INFILESIZE, size);
    SetOption(CURLOPT_SEEKFUNCTION, &SeekStream);
    SetOption(CURLOPT_SEEKDATA, &stream);
}

void RestClient::SetText(CURLoption option, const std::string& text) {
    SetOption(option, text.c_str());
}

void RestClient::SetTextUnlessEmpty(CURLoption option, const std::string& text) {
    if (!text.empty()) SetText(option, text);
}

template <typename Value>
void RestClient::SetOption(CURLoption option, Value value) {
    static_assert(std::is_same_v<Value, long> || std::is_pointer_v<Value>,
                  "libcurl reads its variable argument as a long or as a pointer");
    (void)curl_easy_setopt(m_curl.get(), option, value);
}

}  // namespace Rest
