// SPDX-License-Identifier: Apache-2.0
//
// Addresses out of a BMC's paths and an operator's host: either refused, or one that libcurl reads
// as the same host, and that shows no password.
#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "Support.h"
#include "Uri.h"

namespace {

struct CleanUp {
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};

// The first line is the host, the rest the path.
void Try(const std::string& host, const std::string& path) {
    const std::string password = "zQ7vXw9";
    const Uri uri("https", host, 443, "user", password, path);
    const std::string text = uri.str();

    const std::unique_ptr<CURLU, CleanUp> url(curl_url());
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return;
    char* part = nullptr;
    Require(curl_url_get(url.get(), CURLUPART_USER, &part, 0) == CURLUE_NO_USER);
    Require(curl_url_get(url.get(), CURLUPART_QUERY, &part, 0) == CURLUE_NO_QUERY);
    Require(curl_url_get(url.get(), CURLUPART_FRAGMENT, &part, 0) == CURLUE_NO_FRAGMENT);
    if (host.find(password) == std::string::npos && path.find(password) == std::string::npos) {
        Require(text.find(password) == std::string::npos);
    }
    Require(Uri(uri).str() == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t end = text.find('\n');
    const std::string host = text.substr(0, end);
    const std::string path = end == std::string::npos ? "" : text.substr(end + 1);
    try {
        Try(host, path);
    } catch (const std::invalid_argument&) {
    }
    for (const char c : Uri::encodeURI(text)) Require(c > 0x20 && c < 0x7F);
    (void)Uri::join_path(host, path);
    return 0;
}
