// SPDX-License-Identifier: Apache-2.0
#include "file_client.h"

#include <cstdint>
#include <ostream>

#include "ExcessBytes.h"
#include "Log.h"
#include "PartFile.h"
#include "SftpFailure.h"
#include "TransferError.h"
#include "sftp_client.h"
#include "transfer_settings.h"
#include "transfer_watchers.h"

namespace {

constexpr char kLogSource[] = "platform/src/file_client";
// 202, 204, 205 and 206 say in their different ways that this is not the whole file.
bool IsWholeFile(long status) { return status == 200 || status == 201 || status == 203; }

// One file on its way from a server into a PartFile.
class Download {
public:
    Download(const Uri& uri, const std::string& localPath) : m_uri(uri), m_localPath(localPath) {}
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    std::error_code Run(const curlcpp::option_trait_base& option) {
        if (const std::error_code error = Refused(option)) return error;
        if (const std::error_code error = m_file.Create(m_localPath)) return error;
        if (transfer_watchers::Any() && !m_file.Hash()) {
            return std::make_error_code(std::errc::not_enough_memory);
        }
        const std::error_code fetched = IsSftp(m_uri) ? FetchBySftp() : FetchByHttps(option);
        if (m_diskError) return m_diskError;
        if (fetched) return fetched;
        if (const std::error_code error = m_file.Commit(IsSynced())) return error;
        TellResult();
        return {};
    }

private:
    std::error_code Refused(const curlcpp::option_trait_base& option) const {
        if (!IsHttps(m_uri) && !IsSftp(m_uri)) {
            return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                                 "Nothing is downloaded by \"" + m_uri.scheme() + "\"");
        }
        if (IsHttps(m_uri)) return {};
        if (m_uri.str().back() == '/') {
            return FolderError(m_uri.path());
        }
        if (static_cast<int>(option.option()) != 0) {
            return TransferError(CURLE_UNKNOWN_OPTION, "SFTP knows none of libcurl's options");
        }
        return {};
    }

    std::error_code FetchBySftp() {
        try {
            sftp_client::Download(
                m_uri, [this](const char* data, std::size_t size) { return Take(data, size); },
                [this](std::uint64_t expected) { return GoOn(expected); });
            return {};
        } catch (const SftpFailure& failure) {
            if (failure.folder) return FolderError(m_uri.path());
            return TransferError(failure.number, failure.text);
        }
    }

    std::error_code FetchByHttps(const curlcpp::option_trait_base& option) {
        m_handle = MakeHandle();
        if (!m_handle) return TransferError(CURLE_FAILED_INIT, "");
        const CURLcode set = SetUp(option);
        LogVerification();
        const CURLcode code = set == CURLE_OK ? curl_easy_perform(m_handle.get()) : set;
        if (const std::error_code error = Judge(code)) return error;
        if (!m_excess.Any(m_handle.get(), m_bytes)) return {};
        return TransferError(CURLE_PARTIAL_FILE, "The server sends more than the " +
                                                     std::to_string(m_bytes) +
                                                     " bytes that it announced");
    }

    CURLcode SetUp(const curlcpp::option_trait_base& option) {
        Settings settings(m_handle.get());
        SetHttpsTransfer(settings, m_uri);
        settings.Set(option);
        // After the caller's option, which cannot take these away.
        m_excess.Watch(settings);
        settings.Set(CURLOPT_URL, m_uri.str());
        settings.Set(CURLOPT_ERRORBUFFER, m_errorText);
        settings.Set(CURLOPT_WRITEFUNCTION, &Download::OnData);
        settings.Set(CURLOPT_WRITEDATA, this);
        settings.Set(CURLOPT_NOPROGRESS, 0L);
        settings.Set(CURLOPT_XFERINFOFUNCTION, &Download::OnProgress);
        settings.Set(CURLOPT_XFERINFODATA, this);
        return settings.Result();
    }

    static std::size_t OnData(char* data, std::size_t size, std::size_t count, void* self) {
        auto& download = *static_cast<Download*>(self);
        const bool file = IsWholeFile(download.Number(CURLINFO_RESPONSE_CODE));
        return file && download.Take(data, size * count) ? size * count : 0;
    }

    static int OnProgress(void* self, curl_off_t expected, curl_off_t, curl_off_t, curl_off_t) {
        const auto total = expected > 0 ? static_cast<std::uint64_t>(expected) : 0;
        return static_cast<Download*>(self)->GoOn(total) ? 0 : 1;
    }

    void LogVerification() const {
        const std::string ca = CaFile();
        Log(4, kLogSource, __LINE__).Stream()
            << "The certificate of " << m_uri.host() << " is "
            << (ca.empty() ? "not verified" : "verified against " + ca) << ".";
    }

    bool Take(const char* data, std::size_t size) {
        m_diskError = m_file.Append(data, size);
        if (!m_diskError) m_bytes += size;
        return !m_diskError;
    }

    bool GoOn(std::uint64_t expected) const {
        return transfer_watchers::Progress(m_localPath, m_bytes, expected);
    }

    void TellResult() const {
        constexpr std::int64_t kSecond = 1000000000;  // nanoseconds
        const struct stat& status = m_file.Status();
        const std::int64_t modified = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
        if (m_file.Sha256().empty()) return;
        transfer_watchers::Completed(
            {m_localPath, m_bytes, m_file.Sha256(), status.st_dev, status.st_ino, modified});
    }

    std::error_code Judge(CURLcode code) const {
        const long status = Number(CURLINFO_RESPONSE_CODE);
        if (code == CURLE_ABORTED_BY_CALLBACK) {
            return TransferError(code, "The download was stopped");
        }
        if (status >= 200 && !IsWholeFile(status)) {
            return TransferError(kHttpStatus + static_cast<int>(status), "");
        }
        if (code == CURLE_OK) return {};
        if (code != CURLE_HTTP_RETURNED_ERROR) return LibcurlError(code, m_errorText);
        // libcurl has no text for a proxy that refuses the tunnel.
        return TransferError(code, "The proxy answered HTTP status " +
                                       std::to_string(Number(CURLINFO_HTTP_CONNECTCODE)));
    }

    long Number(CURLINFO information) const {
        long number = 0;
        curl_easy_getinfo(m_handle.get(), information, &number);
        return number;
    }

    const Uri& m_uri;
    const std::string& m_localPath;
    PartFile m_file;
    std::error_code m_diskError;
    std::uint64_t m_bytes = 0;  // received
    ExcessBytes m_excess;
    char m_errorText[CURL_ERROR_SIZE] = {};  // like m_excess, outlives the handle
    Handle m_handle;
};

}  // namespace

std::error_code file_client::ls_directory(const Uri& uri, std::list<std::string>& names) {
    if (!IsSftp(uri)) {
        return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                             "Nothing is listed by \"" + uri.scheme() + "\"");
    }
    try {
        sftp_client::List(uri, names);
        return {};
    } catch (const SftpFailure& failure) {
        return TransferError(failure.number, failure.text);
    } catch (const std::bad_alloc&) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
}

std::error_code file_client::download(const Uri& uri, const std::string& localPath,
                                      const curlcpp::option_trait_base& option) {
    transfer_watchers::Started(localPath);
    std::error_code error;
    try {
        error = Download(uri, localPath).Run(option);
    } catch (const std::bad_alloc&) {
        error = std::make_error_code(std::errc::not_enough_memory);
    }
    transfer_watchers::Ended(localPath, error);
    return error;
}
