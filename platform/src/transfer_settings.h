// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_TRANSFER_SETTINGS_H
#define VARNEX_PLATFORM_SRC_TRANSFER_SETTINGS_H

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <string>

#include "Uri.h"
#include "file_client.h"

struct CloseHandle {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, CloseHandle>;

// Null where libcurl cannot make one.
Handle MakeHandle();

// A row of options for a handle; after the first that libcurl refuses, none.
class Settings {
public:
    explicit Settings(CURL* handle) : m_handle(handle) {}

    template <class Value>
    void Set(CURLoption option, Value value) {
        if (m_result == CURLE_OK) m_result = curl_easy_setopt(m_handle, option, value);
    }
    void Set(CURLoption option, const std::string& value) { Set(option, value.c_str()); }

    // Number 0 means "no option" and never reaches libcurl.
    void Set(const curlcpp::option_trait_base& option) {
        if (m_result == CURLE_OK && static_cast<int>(option.option()) != 0) {
            m_result = option.apply(m_handle);
        }
    }

    CURLcode Result() const { return m_result; }

private:
    CURL* m_handle;
    CURLcode m_result = CURLE_OK;
};

// A transfer that is slower than this over that time has stalled.
// At least a second, because a transfer has to end; read once per process.
constexpr long kStallSpeed = 30;  // bytes per second
std::chrono::seconds StallTime();

// For name, connection, TLS or SSH and login together.
std::chrono::seconds ConnectTime();

// Whether files are brought onto the disk before they get their names; read once per process.
bool IsSynced();

// The two protocols there are.
bool IsHttps(const Uri& uri);
bool IsSftp(const Uri& uri);

// The file of the CAs that certificates are verified against. Empty: they are not verified, because
// BMCs sign their own.
std::string CaFile();

// Connections that no program started meanwhile inherits.
void SetCloseOnExec(Settings& settings);

// Everything about an HTTPS transfer but what is done with the bytes.
void SetHttpsTransfer(Settings& settings, const Uri& uri);

#endif
