// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_REST_RESTCLIENT_H
#define VARNEX_COMMON_REST_RESTCLIENT_H

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "RestClientInterface.h"

namespace Rest {

// RestClientInterface over libcurl. Connections and cookies live as long as the object; options do
// not: each request sets them all afresh from the members below, and what one request needed cannot
// leak into the next.
//
// libcurl before 8.1.0 corrupts the heap when a handle that was used meets an answer whose first
// header line begins with a blank. There each request has a handle to itself, and connections, TLS
// sessions, names and cookies live in a share. A handle that cannot be made fails the request: code
// 2, no status, "Couldn't initialize curl handle" as the body.
//
// Speaks HTTP/1.1 only: later versions deliver header names in lower case, and BMCs' answers are
// searched for names as they are spelled. Redirects lead from https to https alone. Children of the
// process do not inherit the connections.
//
// What a server can make the object hold is bounded (kMaxBodyBytes and the bounds beside it). An
// answer beyond a bound fails the exchange: code 23 and, as the body, a text that begins with
// "Answer too large: ".
class RestClient : public RestClientInterface {
public:
    // Of one body, as it is after decompression. A body sink takes any size.
    static constexpr std::size_t kMaxBodyBytes = std::size_t{16} * 1024 * 1024;

    // Of all header lines of one exchange: interim answers, redirects and trailers count too.
    static constexpr std::size_t kMaxHeaderBytes = std::size_t{256} * 1024;

    // Of all cookies that the object holds, in the form of Response::cookies. Beyond it they are
    // all dropped.
    static constexpr std::size_t kMaxCookieBytes = std::size_t{1024} * 1024;

    // A longer address, which a server's answer may have named, is not asked for: code 3. libcurl
    // would call it "Out of memory".
    static constexpr std::size_t kMaxUrlBytes = std::size_t{64} * 1024;

    // Throws std::runtime_error "Couldn't initialize curl handle".
    RestClient();
    ~RestClient() override = default;
    RestClient(const RestClient&) = delete;
    RestClient& operator=(const RestClient&) = delete;

    void SetBasicAuth(const std::string& user, const std::string& password) override;
    void SetTimeout(int seconds) override;
    void SetSkipSslVerify(bool skip) override;
    void SetNoExpectHeader(bool suppress) override;
    void FollowRedirects(bool follow, int maximum) override;
    void SetCAInfoFilePath(const std::string& path) override;

    // The password may hold any bytes. In the user "%" and two hexadecimal digits are taken for the
    // byte that they encode.
    void SetProxy(const std::string& proxy, const std::string& user,
                  const std::string& password) override;

    void SetHeaders(std::map<std::string, std::string> headers) override;
    std::map<std::string, std::string> GetHeaders() override;
    void AppendHeader(const std::string& key, const std::string& value) override;
    int EnableGzip() override;

    Response Request(RequestType type, const std::string& url, const std::string& body) override;

    Response Get(const std::string& url) override;
    Response PostMultipart(const std::string& url, const MimeParts& parts,
                           ProgressCallback progress) override;

    // A stream goes out chunked, without a Content-Length.
    Response PostStream(const std::string& url, std::istream& stream) override;
    Response Post(const std::string& url, const std::string& body) override;
    Response PutStream(const std::string& url, std::istream& stream) override;
    Response Put(const std::string& url, const std::string& body) override;
    Response PatchStream(const std::string& url, std::istream& stream) override;
    Response Patch(const std::string& url, const std::string& body) override;

    Response Delete(const std::string& url) override;
    Response Head(const std::string& url) override;
    Response Options(const std::string& url) override;

    // 0: answered with a status that begins with 2. -2: time-out or trouble with a certificate.
    // -1: anything else.
    virtual int CheckResponse(const Response& response);

protected:
    // For derived clients. An empty text and a null sink mean none.

    // Files and their form ("PEM", "P12", ...) for TLS client authentication.
    void SetClientCertificate(const std::string& path, const std::string& type);
    void SetClientKey(const std::string& path, const std::string& password);

    // One cookie, as a Set-Cookie header line or in the Netscape file format, or one of libcurl's
    // words "ALL", "SESS", "FLUSH" and "RELOAD". Given to every request.
    void SetCookieList(const std::string& line);

    // Takes the bodies of answers instead of Response::body. Stays the caller's.
    void SetBodySink(std::FILE* sink);

private:
    struct CleanUp {
        void operator()(CURL* curl) const noexcept { curl_easy_cleanup(curl); }
    };
    struct CleanUpShare {
        void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
    };
    struct FreeLines {
        void operator()(curl_slist* lines) const noexcept { curl_slist_free_all(lines); }
    };
    using HeaderLines = std::unique_ptr<curl_slist, FreeLines>;

    struct Reception;
    class UsedUp;

    void MakeShare();
    bool MakeHandle();

    // What every request kind does, around the setting of its own options and the perform.
    template <typename Action>
    Response OnHandle(Action action);

    Response PerformCurlRequest(const std::string& url);

    void ApplyEncoding();
    void ApplyReceivers(Reception& reception);
    HeaderLines ApplyHeaders();  // the result has to outlive the transfer
    void ApplyBasicAuth();
    void ApplyTimeouts();
    void ApplyRedirects();
    void ApplyTls();
    void ApplyClientCertificate();
    void ApplyProxy();
    void ApplyCookies();
    void ApplySafeguards(const std::string& url);
    void CollectAnswer(Reception& reception);
    void CollectFailure(CURLcode code, const char* text, Reception& reception);
    bool HasAnswerBegun();
    void CollectCookies(Reception& reception);
    void BoundUnseenCookies(const Reception& reception);

    void SetStream(std::istream& stream, long size);
    void SetText(CURLoption option, const std::string& text);
    void SetTextUnlessEmpty(CURLoption option, const std::string& text);
    template <typename Value>
    void SetOption(CURLoption option, Value value);

    // Null where one handle serves for the whole life.
    std::unique_ptr<CURLSH, CleanUpShare> m_share;
    std::unique_ptr<CURL, CleanUp> m_curl;  // with a share, null between requests
    std::size_t m_unseenHeaderBytes = 0;    // of failed exchanges since the cookies were last seen
    std::map<std::string, std::string> m_headers;
    std::int32_t m_timeout = -1;  // seconds
    bool m_followRedirects = false;
    bool m_skipSslVerify = false;
    bool m_noExpectHeader = false;
    std::int32_t m_maxRedirects = -1;
    std::string m_user;
    std::string m_password;
    std::string m_userAgent = "QTVE_TESSEL";
    std::string m_caFile;
    std::string m_clientCertificate;
    std::string m_clientCertificateType;
    std::string m_clientKey;
    std::string m_clientKeyPassword;
    std::string m_proxy;
    std::string m_proxyUser;
    std::string m_proxyPassword;
    std::string m_cookieList;
    bool m_acceptGzip = false;
    std::FILE* m_bodySink = nullptr;  // not owned
};

}  // namespace Rest

#endif
