// SPDX-License-Identifier: Apache-2.0
#include "file_client.h"

#include <cstdint>
#include <ostream>

#include "ExcessBytes.h"
#include "HostKeyCheck.h"
#include "Log.h"
#include "OpenSockets.h"
#include "PartFile.h"
#include "StallWatch.h"
#include "TransferError.h"
#include "transfer_settings.h"
#include "transfer_watchers.h"

namespace {

constexpr char kLogSource[] = "platform/src/file_client";
constexpr std::size_t kLargestListing = 16UL * 1024 * 1024;  // bytes of names

// One transfer: what listing and download have in common.
class Exchange {
public:
    explicit Exchange(const Uri& uri) : m_uri(uri), m_hostKey(uri.host(), uri.port()) {}
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

protected:
    ~Exchange() = default;

    // False ends the transfer. Neither throws.
    virtual bool Take(const char* data, std::size_t size) = 0;
    virtual bool GoOn(std::uint64_t /*expected*/) { return true; }

    // Makes the handle. `option` may be null.
    bool Open(const curlcpp::option_trait_base* option) {
        m_handle = MakeHandle();
        if (!m_handle) return false;
        Settings settings(m_handle.get());
        SetProtocol(settings, m_uri, m_hostKey);
        m_sockets.Watch(settings);
        if (option != nullptr) settings.Set(*option);
        m_settingsResult = settings.Result();
        if (IsHttps(m_uri)) LogVerification();
        return true;
    }

    CURLcode Perform(const std::string& url) {
        // After the caller's option, which cannot take these away.
        Settings settings(m_handle.get());
        settings.Set(CURLOPT_URL, url);
        settings.Set(CURLOPT_ERRORBUFFER, m_errorText);
        settings.Set(CURLOPT_WRITEFUNCTION, &Exchange::OnData);
        settings.Set(CURLOPT_WRITEDATA, this);
        settings.Set(CURLOPT_NOPROGRESS, 0L);
        settings.Set(CURLOPT_XFERINFOFUNCTION, &Exchange::OnProgress);
        settings.Set(CURLOPT_XFERINFODATA, this);
        if (m_settingsResult != CURLE_OK) return m_settingsResult;
        if (settings.Result() != CURLE_OK) return settings.Result();
        return curl_easy_perform(m_handle.get());
    }

    std::error_code Error(CURLcode code) const {
        if (code == CURLE_OK) return {};
        if (m_stalled) return TransferError(CURLE_OPERATION_TIMEDOUT, "The server stalled");
        if (code == CURLE_ABORTED_BY_CALLBACK) {
            return TransferError(code, "The download was stopped");
        }
        const std::string& refusal = m_hostKey.Refusal();
        return refusal.empty() ? LibcurlError(code, m_errorText) : TransferError(code, refusal);
    }

    // To libcurl "/~" at the start of an SFTP path is the home folder; here it is a name.
    std::string Url() const {
        std::string url = m_uri.str();
        const std::size_t path = url.find('/', url.find("://") + 3);
        if (IsSftp(m_uri) && url.compare(path, 2, "/~") == 0) url.insert(path, "/.");
        return url;
    }

    const Uri& m_uri;
    OpenSockets m_sockets;
    Handle m_handle;
    std::uint64_t m_bytes = 0;  // received

private:
    static std::size_t OnData(char* data, std::size_t size, std::size_t count, void* self) {
        return static_cast<Exchange*>(self)->Take(data, size * count) ? size * count : 0;
    }

    static int OnProgress(void* self, curl_off_t expected, curl_off_t, curl_off_t, curl_off_t) {
        auto& exchange = *static_cast<Exchange*>(self);
        exchange.m_stalled = exchange.SftpStalls();
        const auto total = expected > 0 ? static_cast<std::uint64_t>(expected) : 0;
        if (!exchange.m_stalled && exchange.GoOn(total)) return 0;
        exchange.m_sockets.ShutDown();
        return 1;
    }

    // libcurl's own limit counts only while a file's bytes flow; a server that says nothing to a
    // listing or to the opening of a file is noticed here. Before, the limit of connecting holds.
    bool SftpStalls() {
        if (!IsSftp(m_uri)) return false;
        curl_off_t loggedIn = 0;  // microseconds, 0: not yet
        curl_easy_getinfo(m_handle.get(), CURLINFO_APPCONNECT_TIME_T, &loggedIn);
        return loggedIn > 0 && m_stall.Stalled(m_bytes);
    }

    void LogVerification() const {
        const std::string ca = CaFile();
        Log(4, kLogSource, __LINE__).Stream()
            << "The certificate of " << m_uri.host() << " is "
            << (ca.empty() ? "not verified" : "verified against " + ca) << ".";
    }

    HostKeyCheck m_hostKey;
    CURLcode m_settingsResult = CURLE_OK;
    StallWatch m_stall{kStallSpeed, StallTime()};
    bool m_stalled = false;
    char m_errorText[CURL_ERROR_SIZE] = {};
};

// Why `name` is not one plain component of a path; null where it is.
const char* WhyNoName(const std::string& name) {
    if (name.empty()) return "it is empty";
    if (name.find('/') != std::string::npos) return "it holds a slash";
    if (name.find('\0') != std::string::npos) return "it holds a NUL byte";
    if (name.find('\n') != std::string::npos) return "it holds a line end";
    return nullptr;
}

// The names in a folder.
class Listing final : private Exchange {
public:
    explicit Listing(const Uri& uri) : Exchange(uri) {}

    std::error_code Run(std::list<std::string>& names) {
        if (!IsSftp(m_uri)) {
            return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                                 "Nothing is listed by \"" + m_uri.scheme() + "\"");
        }
        if (!Open(nullptr)) return TransferError(CURLE_FAILED_INIT, "");
        Settings settings(m_handle.get());
        settings.Set(CURLOPT_DIRLISTONLY, 1L);
        const CURLcode code = Perform(FolderUrl());
        if (m_bytes > kLargestListing) {
            return TransferError(CURLE_FILESIZE_EXCEEDED, "The listing is too long");
        }
        if (const std::error_code error = Error(code)) return error;
        names.swap(m_names);
        return {};
    }

private:
    // Only with a slash at the end is a folder listed, without one it would be fetched.
    std::string FolderUrl() const {
        const std::string url = Url();
        return url.back() == '/' ? url : url + "/";
    }

    bool Take(const char* data, std::size_t size) override {
        try {
            m_bytes += size;
            TakePiece(std::string(data, size));
            return m_bytes <= kLargestListing;
        } catch (...) {  // no exception goes through libcurl
            return false;
        }
    }

    // libcurl hands over one name at a time and a line end of its own after it, apart or, in some
    // versions, in one piece: every other line end belongs to the name.
    void TakePiece(std::string piece) {
        if (m_apart && !m_name.empty()) {
            Keep(m_name);
            m_name.clear();
        } else if (!m_apart && !piece.empty() && piece.back() == '\n') {
            piece.pop_back();
            Keep(piece);
        } else {
            m_apart = true;
            m_name = std::move(piece);
        }
    }

    void Keep(const std::string& name) {
        if (const char* why = WhyNoName(name)) {
            Log(2, kLogSource, __LINE__).Stream()
                << "The name \"" << name << "\" of the listing is passed over: " << why << ".";
        } else if (name != "." && name != "..") {
            m_names.push_back(name);
        }
    }

    std::list<std::string> m_names;
    std::string m_name;    // whose line end is still to come
    bool m_apart = false;  // line ends come apart
};

// 202, 204, 205 and 206 say in their different ways that this is not the whole file.
bool IsWholeFile(long status) { return status == 200 || status == 201 || status == 203; }

// Whether a folder has that name. Costs a connection, so only a download that has failed asks.
class FolderCheck final : private Exchange {
public:
    FolderCheck(const Uri& uri, const std::string& localPath)
        : Exchange(uri), m_localPath(localPath) {}

    bool Run() {
        if (!Open(nullptr)) return false;
        Settings settings(m_handle.get());
        settings.Set(CURLOPT_DIRLISTONLY, 1L);
        return Perform(Url() + "/") == CURLE_OK;
    }

private:
    bool Take(const char*, std::size_t size) override {
        m_bytes += size;
        return m_bytes <= kLargestListing;
    }

    bool GoOn(std::uint64_t) override {
        return transfer_watchers::Progress(m_localPath, 0, 0);  // of the download that asks
    }

    const std::string& m_localPath;
};

// One file on its way from a server into a PartFile.
class Download final : private Exchange {
public:
    Download(const Uri& uri, const std::string& localPath)
        : Exchange(uri), m_localPath(localPath) {}

    std::error_code Run(const curlcpp::option_trait_base& option) {
        if (const std::error_code error = RefusedAddress()) return error;
        if (const std::error_code error = m_file.Create(m_localPath)) return error;
        if (transfer_watchers::Any() && !m_file.Hash()) {
            return std::make_error_code(std::errc::not_enough_memory);
        }
        if (!Open(&option)) return TransferError(CURLE_FAILED_INIT, "");
        Settings settings(m_handle.get());
        if (IsHttps(m_uri)) m_excess.Watch(settings);
        if (settings.Result() != CURLE_OK) return LibcurlError(settings.Result(), "");
        const CURLcode code = Perform(Url());
        if (const std::error_code error = Judge(code)) {
            return IsFolder(code) ? FolderError(m_uri.path()) : error;
        }
        if (IsHttps(m_uri) && m_excess.Any(m_handle.get(), m_bytes)) {
            return TransferError(CURLE_PARTIAL_FILE, "The server sends more than the " +
                                                         std::to_string(m_bytes) +
                                                         " bytes that it announced");
        }
        if (const std::error_code error = m_file.Commit(IsSynced())) return error;
        TellResult();
        return {};
    }

private:
    std::error_code RefusedAddress() const {
        if (!IsHttps(m_uri) && !IsSftp(m_uri)) {
            return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                                 "Nothing is downloaded by \"" + m_uri.scheme() + "\"");
        }
        // libcurl would list it.
        if (IsSftp(m_uri) && m_uri.str().back() == '/') {
            return FolderError(m_uri.path());
        }
        return {};
    }

    bool Take(const char* data, std::size_t size) override {
        if (!AnswerIsFile()) return false;
        m_diskError = m_file.Append(data, size);
        if (!m_diskError) m_bytes += size;
        return !m_diskError;
    }

    bool GoOn(std::uint64_t expected) override {
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

    // To libcurl a folder is a file whose reading fails, as it fails for a server in trouble.
    bool IsFolder(CURLcode code) const {
        return IsSftp(m_uri) && code == CURLE_SSH && m_bytes == 0 &&
               FolderCheck(m_uri, m_localPath).Run();
    }

    std::error_code Judge(CURLcode code) const {
        if (m_diskError) return m_diskError;
        if (code == CURLE_ABORTED_BY_CALLBACK) return Error(code);
        const long status = Number(CURLINFO_RESPONSE_CODE);
        if (IsHttps(m_uri) && status >= 200 && !IsWholeFile(status)) {
            return TransferError(kHttpStatus + static_cast<int>(status), "");
        }
        if (code != CURLE_HTTP_RETURNED_ERROR) return Error(code);
        // libcurl has no text for a proxy that refuses the tunnel.
        return TransferError(code, "The proxy answered HTTP status " +
                                       std::to_string(Number(CURLINFO_HTTP_CONNECTCODE)));
    }

    bool AnswerIsFile() const {
        return IsSftp(m_uri) || IsWholeFile(Number(CURLINFO_RESPONSE_CODE));
    }

    long Number(CURLINFO information) const {
        long number = 0;
        curl_easy_getinfo(m_handle.get(), information, &number);
        return number;
    }

    const std::string& m_localPath;
    PartFile m_file;
    ExcessBytes m_excess;
    std::error_code m_diskError;
};

}  // namespace

std::error_code file_client::ls_directory(const Uri& uri, std::list<std::string>& names) {
    try {
        return Listing(uri).Run(names);
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
