// SPDX-License-Identifier: Apache-2.0
#include "TransferError.h"

#include <curl/curl.h>

#include "Lasting.h"
#include "masking.h"

namespace {

struct LastFailure {
    int number = 0;
    std::string text;
    bool isFolder = false;
};

LastFailure& LastOfThisThread() {
    static thread_local LastFailure failure;
    return failure;
}

std::string HttpText(int status) {
    std::string text = "The server answered HTTP status " + std::to_string(status);
    if (status >= 300 && status < 400) return text + ", a redirect; downloads follow none";
    if (status == 401 || status == 403) return text + ": access denied";
    if (status < 300) return text + ": not a whole file";
    return text;
}

class Category : public std::error_category {
public:
    const char* name() const noexcept override { return "varnex.transfer"; }

    std::string message(int number) const override {
        if (number >= kHttpStatus) return HttpText(number - kHttpStatus);
        const LastFailure& last = LastOfThisThread();
        if (last.number == number && !last.text.empty()) return last.text;
        return curl_easy_strerror(static_cast<CURLcode>(number));
    }

    std::error_condition default_error_condition(int number) const noexcept override {
        const LastFailure& last = LastOfThisThread();
        if (last.number == number && last.isFolder) return std::errc::is_a_directory;
        switch (number) {
            case CURLE_OPERATION_TIMEDOUT:
                return std::errc::timed_out;
            case CURLE_ABORTED_BY_CALLBACK:
                return std::errc::operation_canceled;
            default:
                return {number, *this};
        }
    }
};

using Varnex::TransferFault;

TransferFault FaultOfStatus(int status) {
    switch (status) {
        case 401:
            return TransferFault::kLoginRefused;
        case 403:
            return TransferFault::kNotPermitted;
        case 404:
        case 410:
            return TransferFault::kNotThere;
        default:
            return {};
    }
}

// {} for what is none.
TransferFault FaultOf(int number) {
    if (number >= kHttpStatus) return FaultOfStatus(number - kHttpStatus);
    switch (number) {
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
            return TransferFault::kUnreachable;
        case CURLE_OPERATION_TIMEDOUT:
            return TransferFault::kSilent;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CIPHER:
            return TransferFault::kTlsFailed;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_ISSUER_ERROR:
            return TransferFault::kUntrusted;
        case CURLE_LOGIN_DENIED:
            return TransferFault::kLoginRefused;
        case CURLE_REMOTE_ACCESS_DENIED:
            return TransferFault::kNotPermitted;
        case CURLE_REMOTE_FILE_NOT_FOUND:
            return TransferFault::kNotThere;
        case CURLE_PARTIAL_FILE:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_SSH:
            return TransferFault::kLost;
        case CURLE_FILESIZE_EXCEEDED:
            return TransferFault::kTooLarge;
        case CURLE_ABORTED_BY_CALLBACK:
            return TransferFault::kStopped;
        default:
            return {};
    }
}

class FaultCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "varnex.transfer fault"; }

    std::string message(int) const override { return "a failed transfer"; }

    bool equivalent(const std::error_code& error, int fault) const noexcept override {
        if (error.category() != Varnex::TransferCategory()) return false;
        if (error == std::errc::is_a_directory) {
            return fault == static_cast<int>(TransferFault::kFolder);
        }
        return fault == static_cast<int>(FaultOf(error.value()));
    }
};

}  // namespace

const std::error_category& Varnex::TransferCategory() noexcept {
    static const Lasting<Category> lasting;  // a code holds a pointer to it
    return lasting.value;
}

std::error_condition Varnex::make_error_condition(TransferFault fault) noexcept {
    static const Lasting<FaultCategory> lasting;
    return {static_cast<int>(fault), lasting.value};
}

int Varnex::HttpStatusOf(const std::error_code& error) noexcept {
    const bool http = error.category() == TransferCategory() && error.value() >= kHttpStatus;
    return http ? error.value() - kHttpStatus : 0;
}

// A proxy's address in an error text may hold credentials without a scheme before them.
std::string WithoutUserInfo(std::string text) {
    const std::size_t at = text.rfind('@');
    if (at == std::string::npos) return text;
    const std::size_t before = text.find_last_of(" '\"/", at);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    return text.replace(begin, at - begin, "**********");
}

std::error_code TransferError(int number, const std::string& text) {
    LastOfThisThread() = {number, ForDisplay(text), false};
    return {number, Varnex::TransferCategory()};
}

std::error_code FolderError(const std::string& path) {
    const std::error_code error = TransferError(CURLE_SSH, "\"" + path + "\" is a folder");
    LastOfThisThread().isFolder = true;
    return error;
}

std::error_code StoppedError() {
    return TransferError(CURLE_ABORTED_BY_CALLBACK, "The download was stopped");
}

std::error_code LibcurlError(int number, const std::string& text) {
    return TransferError(number, WithoutUserInfo(text));
}
