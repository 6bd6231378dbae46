// SPDX-License-Identifier: Apache-2.0
//
// small_gets URL REQUESTS ROUNDS: the time of many GETs over one TLS connection, by our engine and
// by two loops around libcurl: on one handle, or where libcurl is older than 8.1.0 as we have to do
// it, on a fresh one for each with a share. The bare loop has the same options and does no more
// than it must. The full loop does by hand what the engine owes for each request: it sets all
// options, makes the list of headers, keeps the answer's, looks for cookies and resets the handle.
// Prints one line a round: seconds of ours, of the bare loop, of the full loop. They take turns, so
// that what else the machine does hits all alike.
#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "common/rest/RestClient.h"

namespace {

using Clock = std::chrono::steady_clock;

// What both send and accept: the options that a channel gives its client.
constexpr char kUser[] = "admin";
constexpr char kPassword[] = "password";
constexpr int kTimeoutSeconds = 60;
constexpr int kMaxRedirects = 10;
constexpr unsigned int kReusableSince = 0x080100;  // libcurl

[[noreturn]] void Fail(const std::string& why) {
    std::cerr << "small_gets: " << why << '\n';
    std::exit(1);
}

class Engine {
public:
    Engine() {
        m_client.SetSkipSslVerify(true);
        m_client.SetBasicAuth(kUser, kPassword);
        m_client.SetTimeout(kTimeoutSeconds);
        m_client.FollowRedirects(true, kMaxRedirects);
        m_client.AppendHeader("Accept", "application/json");
        m_client.AppendHeader("Content-Type", "application/json");
    }

    std::size_t Get(const std::string& url) {
        const Rest::Response response = m_client.Get(url);
        if (response.httpCode != 200) Fail("engine: " + response.body);
        return response.body.size();
    }

private:
    Rest::RestClient m_client;
};

std::size_t Append(char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

std::size_t SkipHeader(char*, std::size_t size, std::size_t count, void*) { return size * count; }

std::string Stripped(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return std::string(text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin));
}

using Headers = std::map<std::string, std::string>;

std::size_t KeepHeader(char* data, std::size_t size, std::size_t count, void* headers) {
    const std::string_view line(data, size * count);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
        static_cast<Headers*>(headers)->insert_or_assign(Stripped(line.substr(0, colon)),
                                                         Stripped(line.substr(colon + 1)));
    }
    return line.size();
}

enum class Work { kBare, kFull };

class Loop {
public:
    Loop(const std::string& url, Work work)
        : m_full(work == Work::kFull),
          m_reuses(curl_version_info(CURLVERSION_NOW)->version_num >= kReusableSince),
          m_url(url),
          m_share(curl_share_init()) {
        for (const curl_lock_data kept : {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_SSL_SESSION,
                                          CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_COOKIE}) {
            curl_share_setopt(m_share.get(), CURLSHOPT_SHARE, kept);
        }
    }

    std::size_t Get() {
        if (!m_curl) MakeHandle();
        if (!m_isSet) SetOptions();
        m_body.clear();
        const CURLcode code = curl_easy_perform(m_curl.get());
        if (code != CURLE_OK) Fail(std::string("loop: ") + curl_easy_strerror(code));
        const std::size_t size = m_body.size();
        if (m_full) Finish();
        if (!m_reuses) EndHandle();
        return size;
    }

private:
    void MakeHandle() {
        m_curl.reset(curl_easy_init());
        if (!m_reuses) Set(CURLOPT_SHARE, m_share.get());
    }

    void SetOptions() {
        if (!m_list) MakeList();
        Set(CURLOPT_URL, m_url.c_str());
        Set(CURLOPT_WRITEFUNCTION, &Append);
        Set(CURLOPT_WRITEDATA, &m_body);
        Set(CURLOPT_HEADERFUNCTION, m_full ? &KeepHeader : &SkipHeader);
        Set(CURLOPT_HEADERDATA, &m_answer);
        Set(CURLOPT_HTTPHEADER, m_list.get());
        Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
        Set(CURLOPT_USERNAME, &kUser[0]);
        Set(CURLOPT_PASSWORD, &kPassword[0]);
        Set(CURLOPT_USERAGENT, "QTVE_TESSEL");
        Set(CURLOPT_TIMEOUT, static_cast<long>(kTimeoutSeconds));
        Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(kTimeoutSeconds));
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_UNRESTRICTED_AUTH, 1L);
        Set(CURLOPT_FOLLOWLOCATION, 1L);
        Set(CURLOPT_MAXREDIRS, static_cast<long>(kMaxRedirects));
        Set(CURLOPT_SSL_VERIFYPEER, 0L);
        Set(CURLOPT_SSL_VERIFYHOST, 0L);
        Set(CURLOPT_COOKIEFILE, "");
        Set(CURLOPT_ERRORBUFFER, &m_error[0]);
        Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        m_isSet = true;
    }

    void MakeList() {
        m_list.reset(curl_slist_append(nullptr, "Accept: application/json"));
        curl_slist_append(m_list.get(), "Content-Type: application/json");
    }

    void Finish() {
        long status = 0;
        curl_easy_getinfo(m_curl.get(), CURLINFO_RESPONSE_CODE, &status);
        curl_slist* cookies = nullptr;
        curl_easy_getinfo(m_curl.get(), CURLINFO_COOKIELIST, &cookies);
        if (status != 200 || cookies != nullptr) Fail("loop: unexpected answer");
        m_answer.clear();
        m_body.clear();
        m_body.shrink_to_fit();  // the engine hands its own out
        m_list.reset();
        curl_easy_reset(m_curl.get());
        Set(CURLOPT_NOSIGNAL, 1L);
        m_isSet = false;
    }

    void EndHandle() {
        m_curl.reset();
        m_isSet = false;
    }

    template <typename Value>
    void Set(CURLoption option, Value value) {
        if (curl_easy_setopt(m_curl.get(), option, value) != CURLE_OK) Fail("option refused");
    }

    struct Cleanup {
        void operator()(CURL* curl) const noexcept { curl_easy_cleanup(curl); }
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };
    struct CleanUpShare {
        void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
    };
    const bool m_full;
    const bool m_reuses;
    const std::string m_url;
    std::unique_ptr<curl_slist, Cleanup> m_list;
    std::unique_ptr<CURLSH, CleanUpShare> m_share;
    std::unique_ptr<CURL, Cleanup> m_curl;  // goes before the share
    bool m_isSet = false;                   // the handle has its options
    Headers m_answer;
    std::string m_body;
    char m_error[CURL_ERROR_SIZE] = {};
};

template <typename Get>
double Seconds(int requests, std::size_t size, Get get) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < requests; ++i) {
        if (get() != size) Fail("bodies differ");
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) Fail("usage: small_gets URL REQUESTS ROUNDS");
    const std::string url = argv[1];
    const int requests = std::atoi(argv[2]);
    const int rounds = std::atoi(argv[3]);

    Engine engine;
    Loop bare(url, Work::kBare);
    Loop full(url, Work::kFull);
    const std::size_t size = bare.Get();  // opens the connections, outside the measured time
    if (engine.Get(url) != size || full.Get() != size) Fail("bodies differ");

    for (int round = 0; round < rounds; ++round) {
        const double ours = Seconds(requests, size, [&] { return engine.Get(url); });
        const double least = Seconds(requests, size, [&] { return bare.Get(); });
        const double same = Seconds(requests, size, [&] { return full.Get(); });
        std::cout << ours << ' ' << least << ' ' << same << std::endl;
    }
    return 0;
}
