// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_HTTPSDOWNLOAD_H
#define VARNEX_PLATFORM_SRC_HTTPSDOWNLOAD_H

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "ArrivingFile.h"
#include "ContentRange.h"
#include "ExcessBytes.h"
#include "Uri.h"
#include "file_client.h"
#include "transfer_settings.h"

// One file from an HTTPS server. Where the file on this side has bytes already, only the rest is
// asked for (RFC 9110, sections 13.1.5 and 14); a server that sends all of it, has another state of
// it, or answers what does not fit has it fetched from its beginning.
class HttpsDownload {
public:
    // Both outlive the object.
    HttpsDownload(const Uri& uri, ArrivingFile& file) : m_uri(uri), m_file(file) {}
    HttpsDownload(const HttpsDownload&) = delete;
    HttpsDownload& operator=(const HttpsDownload&) = delete;

    std::error_code Run(const curlcpp::option_trait_base& option);

private:
    enum class Answer {
        kNone,      // yet
        kFile,      // the whole file
        kRest,      // what was asked for
        kComplete,  // there is no rest
        kUnfit,     // no answer to what was asked
        kOther      // not the file: its status says what
    };

    using HeaderLines = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;

    std::error_code Fetch(const curlcpp::option_trait_base& option);
    CURLcode SetUp(const curlcpp::option_trait_base& option);
    void LogVerification() const;
    static std::size_t OnData(char* data, std::size_t size, std::size_t count, void* self);
    static int OnProgress(void* self, curl_off_t expected, curl_off_t, curl_off_t, curl_off_t);
    bool Take(const char* data, std::size_t size);
    Answer Recognise();
    Answer FileBegins();
    Answer RestBegins();
    Answer NoRest() const;
    std::error_code Judge(CURLcode code);
    std::error_code JudgeSize();
    long Number(CURLINFO information) const;

    const Uri& m_uri;
    ArrivingFile& m_file;
    Answer m_answer = Answer::kNone;
    std::uint64_t m_from = 0;             // where in the file the answer begins
    std::optional<ContentRange> m_range;  // which the answer says that it holds
    bool m_tooMuch = false;               // it held more
    ExcessBytes m_excess;
    char m_errorText[CURL_ERROR_SIZE] = {};  // like m_excess, outlives the handle
    std::unique_ptr<const HeaderLines> m_lines;
    Handle m_handle;
};

#endif
