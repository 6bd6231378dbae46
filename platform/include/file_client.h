// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_FILE_CLIENT_H
#define VARNEX_PLATFORM_FILE_CLIENT_H

#include <curl/curl.h>

#include <list>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "Uri.h"

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

namespace curlcpp {

// One extra option of libcurl that a caller gives along with a transfer. Option number 0 means
// "no option" and must never reach libcurl.
class option_trait_base {
public:
    virtual ~option_trait_base() = default;

    virtual CURLoption option() const noexcept = 0;

    // Sets the option on `handle`. What it points to is owned by this object, which has to outlive
    // the transfer. Returns libcurl's code; CURLE_OK without a call for option number 0.
    virtual CURLcode apply(CURL* handle) const = 0;
};

// An option whose value libcurl takes as it is: a long, a pointer, a curl_off_t.
template <typename T, CURLoption Option>
class option_traits : public option_trait_base {
public:
    explicit option_traits(T value) : m_value(value) {}

    const T& value() const noexcept { return m_value; }
    CURLoption option() const noexcept override { return Option; }
    CURLcode apply(CURL* handle) const override {
        return static_cast<int>(Option) == 0 ? CURLE_OK : curl_easy_setopt(handle, Option, m_value);
    }

private:
    T m_value;
};

// A list of lines, for instance whole header lines for CURLOPT_HTTPHEADER.
template <CURLoption Option>
class option_traits<std::list<std::string>, Option> : public option_trait_base {
public:
    explicit option_traits(std::list<std::string> value) : m_value(std::move(value)) {
        for (const std::string& line : m_value) {
            curl_slist* longer = curl_slist_append(m_lines.get(), line.c_str());
            if (longer == nullptr) throw std::bad_alloc();
            (void)m_lines.release();  // now part of `longer`
            m_lines.reset(longer);
        }
    }

    const std::list<std::string>& value() const noexcept { return m_value; }
    CURLoption option() const noexcept override { return Option; }
    CURLcode apply(CURL* handle) const override {
        return static_cast<int>(Option) == 0 ? CURLE_OK
                                             : curl_easy_setopt(handle, Option, m_lines.get());
    }

private:
    struct FreeLines {
        void operator()(curl_slist* lines) const noexcept { curl_slist_free_all(lines); }
    };
    std::list<std::string> m_value;
    std::unique_ptr<curl_slist, FreeLines> m_lines;
};

}  // namespace curlcpp

// Files of a BMC. Blocks until the work is done; any number of threads at the same time.
//
// An implementer guarantees:
//   - memory that does not grow with the size of a file;
//   - a local file appears under its final name only when it is complete; a transfer that failed
//     or was stopped leaves nothing behind, unless a host asks for the part (Transfer.h);
//   - a transfer that stalls ends by itself;
//   - no secret in the text of an error code, in a log or in the process list;
//   - an answer that is not the file (an HTTP status other than success) is an error.
//
// Errors: std::generic_category() with errno where the local file system is at fault, and else
// category "varnex.transfer", whose numbers are
//   below 1000   libcurl's (7 refused, 18 cut, 28 stalled, 42 stopped, 60 certificate or host key,
//                67 wrong password, 78 no such file)
//   1000 + n     the server answered HTTP status n
// That of a folder (79) compares equal to std::errc::is_a_directory, with the reservation below.
// An error code holds no more than that number. The text to it, with secrets masked, is kept per
// thread: message() gives it on the thread on which the transfer failed, until the next failure
// there, and the number's general text elsewhere.
class file_client {
public:
    // Names in the folder that `uri` names, in the server's order, without "." and ".." and
    // without any name that is not one plain path component. `names` is replaced on success only.
    // Without a user in `uri` the server's key is judged and remembered, and nobody logs in (67).
    // SFTP.
    static std::error_code ls_directory(const Uri& uri, std::list<std::string>& names);

    // Downloads the file that `uri` names to `localPath`, where an existing file is replaced; until
    // then the bytes are in a file beside it with ".varnex-part" after its name. A `localPath`
    // whose last component is "", "." or ".." or ends like that is refused (EINVAL), and so is one
    // that another download is writing at the same time (EBUSY). HTTPS and SFTP.
    //
    // A server that sends less or more than it has announced has not sent the file (18). Over SFTP
    // as many bytes are asked for as the file has in the beginning, also while it grows, and what
    // is a folder or no plain file is refused (79).
    //
    // Over SFTP the first key of a server is remembered, and another one refused later; an option
    // but number 0 is refused (48). Over HTTPS the user and password of `uri` are sent only if the
    // server asks for them; a token goes into `option` as a header line. Redirects are not
    // followed.
    static std::error_code download(const Uri& uri, const std::string& localPath,
                                    const curlcpp::option_trait_base& option);
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
