// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKES_FAKECURL_H
#define VARNEX_TESTS_FAKES_FAKECURL_H

#include <curl/curl.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

// libcurl as a script: link varnex_fake_curl in place of libcurl, and make one FakeCurl a test. It
// keeps options until curl_easy_reset, as libcurl does, and records every call.
//
// For a test that thinks in HTTP:
//
//   fakes::FakeCurl web;
//   web.Answer(200, "{}", {"X-Auth-Token: abc"});
//   web.Fail(CURLE_COULDNT_CONNECT, "Connection refused");
//   ... two requests ...
//   EXPECT_EQ("POST", web.Requests()[0].method);
//
// For a test of the engine itself: Play() scripts what libcurl does during one perform, and
// TakeCalls() lists what was called, in order, one line a call:
//
//   "CURLOPT_TIMEOUT 60"                        curl_easy_setopt
//   "CURLOPT_HTTPHEADER [A: 1][Expect:]"        a list, "null" when it is empty
//   "CURLOPT_WRITEFUNCTION function"            functions; try them with Play()
//   "CURLOPT_READDATA the stream"               a pointer that the test gave a name, else "pointer"
//   "CURLINFO_RESPONSE_CODE"                    curl_easy_getinfo
//   "curl_slist_append Expect:"                 the rest by function name
//
//   "CURLSHOPT_SHARE cookies"                   curl_share_setopt
//
// It is a libcurl on which one handle may serve for ever, unless the test says otherwise:
// IsVersion(7, 88, 1).
//
// A test fails when a perform was not scripted, when a scripted answer was never asked for, when a
// handle, list, form or share is used after its end, and when one is left over. Also when a share
// joins a handle that already has options, when a handle ends with a cookie jar set, and, on a
// version where that corrupts the heap, when a handle performs twice.
namespace fakes {

// What one perform asked for.
struct WebRequest {
    std::string method;
    std::string url;
    std::string body;                  // of a stream as much as was read, of a form all parts' data
    std::vector<std::string> headers;  // the lines given by CURLOPT_HTTPHEADER
    std::string userPassword;          // "user:password"; empty: no authentication
    long timeout = -1;                 // seconds; -1: none set
    bool followsRedirects = false;
    long maxRedirects = -1;
    bool verifiesPeer = true;
};

struct Handle;

// One perform, as its script sees it: calls the callbacks that are set, as libcurl does.
class Transfer {
public:
    Transfer(Handle& handle, WebRequest& request) : m_handle(handle), m_request(request) {}

    // The first byte of the answer is there; Header() says so by itself.
    void AnswerBegins();

    // Each returns what the callback returned. A line is given whole, with its line end.
    std::size_t Header(const std::string& line);
    std::size_t Write(const std::string& bytes);
    std::size_t Read(char* buffer, std::size_t size, std::size_t count);
    int Seek(curl_off_t offset, int origin);
    int Progress(curl_off_t downTotal, curl_off_t downNow, curl_off_t upTotal, curl_off_t upNow);

    // Sends the body of the request, `chunk` bytes at a time. CURLE_OK, or how libcurl ends.
    CURLcode Send(std::size_t chunk = 65536);

    // Receives status line, header lines (without line ends) and body. CURLE_OK, or how libcurl
    // ends.
    CURLcode Receive(long status, const std::string& body, const std::vector<std::string>& headers);

    void SetStatus(long status);
    void SetErrorText(const std::string& text);

    // What was set for an option of that kind; null when nothing was.
    template <typename Function>
    Function Callback(CURLoption option) const {
        return reinterpret_cast<Function>(Pointer(option));
    }
    void* Pointer(CURLoption option) const;

    const WebRequest& Request() const { return m_request; }

private:
    Handle& m_handle;
    WebRequest& m_request;
};

class FakeCurl {
public:
    using Script = std::function<CURLcode(Transfer&)>;

    FakeCurl();
    ~FakeCurl();
    FakeCurl(const FakeCurl&) = delete;
    FakeCurl& operator=(const FakeCurl&) = delete;

    // The next perform sends its body and receives this. Queued in order.
    void Answer(long status, std::string body = "", std::vector<std::string> headers = {});
    void Fail(CURLcode code, std::string text = "");
    void Play(Script script);

    // Every perform for which nothing is queued receives this.
    void AnswerAlways(long status, std::string body = "", std::vector<std::string> headers = {});

    // From now on. The lines are what the cookie engine holds after a transfer.
    void HoldCookies(std::vector<std::string> lines);
    void CookieQueryFails();

    // From now on.
    void IsVersion(unsigned major, unsigned minor, unsigned patch);

    // The next call of each returns null.
    void InitFails();
    void ShareInitFails();
    void AppendFails();
    void MimeInitFails();

    // How TakeCalls() calls this address.
    void Name(const void* address, std::string name);

    std::vector<std::string> TakeCalls();
    const std::vector<WebRequest>& Requests() const { return m_requests; }

private:
    friend struct Machine;

    std::deque<Script> m_scripts;
    Script m_always;
    std::vector<std::string> m_calls;
    std::vector<WebRequest> m_requests;
    std::vector<std::string> m_cookies;
    std::map<const void*, std::string> m_names;
    std::set<const void*> m_alive;  // handles, lists, forms and shares
    unsigned m_version = 0x080100;
    bool m_cookieQueryFails = false;
    bool m_initFails = false;
    bool m_shareInitFails = false;
    bool m_appendFails = false;
    bool m_mimeInitFails = false;
};

}  // namespace fakes

#endif
