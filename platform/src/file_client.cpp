// SPDX-License-Identifier: Apache-2.0
#include "file_client.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <ostream>

#include "GlobalConfig.h"
#include "Log.h"
#include "PartFile.h"
#include "TransferError.h"
#include "transfer_watchers.h"

namespace {

constexpr char kLogSource[] = "platform/src/file_client";
constexpr char kUserAgent[] = "QTVE_TESSEL";
constexpr long kBufferSize = 512L * 1024;  // bytes: over SFTP, 16 KiB are a third of the speed
constexpr long kStallSpeed = 30;           // bytes per second; slower counts as stalled

struct CloseHandle {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, CloseHandle>;

// Seconds, read once per process; below 1 counts as 1, because a transfer has to end.
long StallTime() {
    static const int seconds = GetGlobalConfigValue("TRANSFER_STALL_TIME", 60);
    return std::max(seconds, 1);
}

long ConnectTime() {
    static const int seconds = GetGlobalConfigValue("TRANSFER_CONNECT_TIME", 30);
    return std::max(seconds, 1);
}

Handle MakeHandle() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    return Handle(curl_easy_init());
}

std::string EnvironmentText(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// Collects the first failure of a row of settings.
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

void SetLimits(Settings& settings) {
    settings.Set(CURLOPT_NOSIGNAL, 1L);
    settings.Set(CURLOPT_CONNECTTIMEOUT, ConnectTime());
    settings.Set(CURLOPT_LOW_SPEED_LIMIT, kStallSpeed);
    settings.Set(CURLOPT_LOW_SPEED_TIME, StallTime());
    settings.Set(CURLOPT_BUFFERSIZE, kBufferSize);
}

// BMCs sign their certificates themselves, so by default none is verified.
void SetTls(Settings& settings, const Uri& uri) {
    const std::string file = EnvironmentText("VARNEX_CA_FILE");
    if (file.empty()) {
        settings.Set(CURLOPT_SSL_VERIFYPEER, 0L);
        settings.Set(CURLOPT_SSL_VERIFYHOST, 0L);
        Log(4, kLogSource, __LINE__).Stream()
            << "The certificate of " << uri.host() << " is not verified.";
        return;
    }
    settings.Set(CURLOPT_SSL_VERIFYPEER, 1L);
    settings.Set(CURLOPT_SSL_VERIFYHOST, 2L);
    settings.Set(CURLOPT_CAINFO, file);
    settings.Set<const char*>(CURLOPT_CAPATH, nullptr);  // this CA, and not the system's besides
    Log(4, kLogSource, __LINE__).Stream()
        << "The certificate of " << uri.host() << " is verified against " << file << ".";
}

// Basic or digest, but only after the server asked for it: where the caller's header lines hold a
// token that is accepted, the password is not sent at all.
void SetAccount(Settings& settings, const Uri& uri) {
    if (uri.user().empty()) return;
    settings.Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    settings.Set(CURLOPT_USERNAME, uri.user());
    settings.Set(CURLOPT_PASSWORD, uri.password());
}

void SetHttps(Settings& settings, const Uri& uri) {
    settings.Set(CURLOPT_PROTOCOLS_STR, "https");
    settings.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    settings.Set(CURLOPT_FOLLOWLOCATION, 0L);  // the token would leak
    settings.Set(CURLOPT_FAILONERROR, 1L);     // the body of an error is not fetched
    settings.Set(CURLOPT_PATH_AS_IS, 1L);
    settings.Set(CURLOPT_USERAGENT, kUserAgent);
    SetTls(settings, uri);
    SetAccount(settings, uri);
}

// 202, 204, 205 and 206 say in their different ways that this is not the whole file.
bool IsWholeFile(long status) { return status == 200 || status == 201 || status == 203; }

// One file on its way from a server into a PartFile.
class Download {
public:
    explicit Download(const std::string& localPath) : m_localPath(localPath) {}

    std::error_code Run(const Uri& uri, const curlcpp::option_trait_base& option) {
        if (uri.scheme() != "https") {
            return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                                 "Nothing is downloaded by \"" + uri.scheme() + "\"");
        }
        if (const std::error_code error = m_file.Create(m_localPath)) return error;
        m_handle = MakeHandle();
        if (!m_handle) return TransferError(CURLE_FAILED_INIT, "");
        CURLcode code = Prepare(uri, option);
        if (code == CURLE_OK) code = curl_easy_perform(m_handle.get());
        if (const std::error_code error = Judge(code)) return error;
        return m_file.Commit();
    }

private:
    CURLcode Prepare(const Uri& uri, const curlcpp::option_trait_base& option) {
        Settings settings(m_handle.get());
        SetLimits(settings);
        SetHttps(settings, uri);
        settings.Set(option);
        // After the caller's option, which cannot take these away.
        settings.Set(CURLOPT_URL, uri.str());
        settings.Set(CURLOPT_ERRORBUFFER, m_errorText);
        settings.Set(CURLOPT_WRITEFUNCTION, &Download::OnData);
        settings.Set(CURLOPT_WRITEDATA, this);
        settings.Set(CURLOPT_NOPROGRESS, 0L);
        settings.Set(CURLOPT_XFERINFOFUNCTION, &Download::OnProgress);
        settings.Set(CURLOPT_XFERINFODATA, this);
        return settings.Result();
    }

    static std::size_t OnData(const char* data, std::size_t size, std::size_t count, void* self) {
        return static_cast<Download*>(self)->Take(data, size * count) ? size * count : 0;
    }

    bool Take(const char* data, std::size_t size) {
        if (!IsWholeFile(Status())) return false;
        m_diskError = m_file.Append(data, size);
        if (!m_diskError) m_bytes += size;
        return !m_diskError;
    }

    static int OnProgress(void* self, curl_off_t expected, curl_off_t, curl_off_t, curl_off_t) {
        auto& download = *static_cast<Download*>(self);
        const auto total = expected > 0 ? static_cast<std::uint64_t>(expected) : 0;
        return transfer_watchers::Progress(download.m_localPath, download.m_bytes, total) ? 0 : 1;
    }

    std::error_code Judge(CURLcode code) {
        if (m_diskError) return m_diskError;
        if (code == CURLE_ABORTED_BY_CALLBACK)
            return TransferError(code, "The download was stopped");
        const long status = Status();
        if (status >= 200 && !IsWholeFile(status)) {
            return TransferError(kHttpStatus + static_cast<int>(status), "");
        }
        if (code == CURLE_HTTP_RETURNED_ERROR) return ProxyError();
        return code == CURLE_OK ? std::error_code() : TransferError(code, m_errorText);
    }

    // libcurl has no text for a proxy that refuses the tunnel.
    std::error_code ProxyError() const {
        long status = 0;
        curl_easy_getinfo(m_handle.get(), CURLINFO_HTTP_CONNECTCODE, &status);
        return TransferError(CURLE_HTTP_RETURNED_ERROR,
                             "The proxy answered HTTP status " + std::to_string(status));
    }

    long Status() const {
        long status = 0;
        curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
        return status;
    }

    const std::string& m_localPath;
    PartFile m_file;
    Handle m_handle;
    std::uint64_t m_bytes = 0;
    std::error_code m_diskError;
    char m_errorText[CURL_ERROR_SIZE] = {};
};

}  // namespace

std::error_code file_client::ls_directory(const Uri& uri, std::list<std::string>& names) {
    (void)uri;
    (void)names;
    return TransferError(CURLE_UNSUPPORTED_PROTOCOL, "SFTP is not supported");
}

std::error_code file_client::download(const Uri& uri, const std::string& localPath,
                                      const curlcpp::option_trait_base& option) {
    transfer_watchers::Started(localPath);
    std::error_code error;
    try {
        error = Download(localPath).Run(uri, option);
    } catch (const std::bad_alloc&) {
        error = std::make_error_code(std::errc::not_enough_memory);
    }
    transfer_watchers::Ended(localPath, error);
    return error;
}
