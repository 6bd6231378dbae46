// SPDX-License-Identifier: Apache-2.0
#include "TransferError.h"

#include <curl/curl.h>

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

class TransferCategory : public std::error_category {
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

}  // namespace

// A proxy's address in an error text may hold credentials without a scheme before them.
std::string WithoutUserInfo(std::string text) {
    const std::size_t at = text.rfind('@');
    if (at == std::string::npos) return text;
    const std::size_t before = text.find_last_of(" '\"/", at);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    return text.replace(begin, at - begin, "**********");
}

std::error_code TransferError(int number, const std::string& text) {
    static const TransferCategory& category = *new TransferCategory;  // outlives every code
    LastOfThisThread() = {number, ForDisplay(text), false};
    return {number, category};
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
