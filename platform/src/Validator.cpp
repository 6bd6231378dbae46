// SPDX-License-Identifier: Apache-2.0
#include "Validator.h"

#include <algorithm>
#include <ctime>

namespace {

// A weak one begins with W/.
bool IsStrongTag(const std::string& text) {
    const auto ofTag = [](char c) {
        return c != '"' && c != '\x7F' && static_cast<unsigned char>(c) > ' ';
    };
    constexpr std::size_t kLongest = 1024;
    return text.size() >= 2 && text.size() <= kLongest && text.front() == '"' &&
           text.back() == '"' && std::all_of(text.begin() + 1, text.end() - 1, ofTag);
}

// Seconds since 1970, -1 where it is none.
std::time_t Date(const std::string& text) { return curl_getdate(text.c_str(), nullptr); }

bool IsDate(const std::string& text) {
    const auto ofDate = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == ' ' || c == ',' || c == ':';
    };
    return !text.empty() && std::all_of(text.begin(), text.end(), ofDate) && Date(text) >= 0;
}

}  // namespace

std::string AnswerHeader(CURL* handle, const char* name) {
    constexpr int kLastRequest = -1;
    curl_header* header = nullptr;
    if (curl_easy_header(handle, name, 0, CURLH_HEADER, kLastRequest, &header) != CURLHE_OK) {
        return {};
    }
    return header->amount == 1 ? std::string(header->value) : std::string();
}

std::string ValidatorOf(CURL* handle) {
    std::string tag = AnswerHeader(handle, "ETag");
    if (IsStrongTag(tag)) return tag;
    const std::string changed = AnswerHeader(handle, "Last-Modified");
    const std::string made = AnswerHeader(handle, "Date");
    return IsDate(changed) && IsDate(made) && Date(changed) < Date(made) ? changed : std::string();
}

bool OffersParts(CURL* handle) { return AnswerHeader(handle, "Accept-Ranges") != "none"; }

bool IsValidator(const std::string& text) { return IsStrongTag(text) || IsDate(text); }

bool Confirms(CURL* handle, const std::string& validator) {
    const char* name = IsStrongTag(validator) ? "ETag" : "Last-Modified";
    const std::string now = AnswerHeader(handle, name);
    return now.empty() || now == validator;
}
