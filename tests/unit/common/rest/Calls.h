// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_UNIT_COMMON_REST_CALLS_H
#define VARNEX_TESTS_UNIT_COMMON_REST_CALLS_H

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

// What the engine does with libcurl, as fakes::FakeCurl::TakeCalls() lists it.
using Calls = std::vector<std::string>;

// A GET of https://bmc/ by a client that nothing was set on, answered. The three options before the
// perform are ours alone; safeguards_test.cpp says what each is for.
inline Calls PlainGet() {
    return {"CURLOPT_URL https://bmc/",
            "CURLOPT_WRITEFUNCTION function",
            "CURLOPT_WRITEDATA pointer",
            "CURLOPT_HEADERFUNCTION function",
            "CURLOPT_HEADERDATA pointer",
            "CURLOPT_HTTPHEADER null",
            "CURLOPT_USERAGENT QTVE_TESSEL",
            "CURLOPT_LOW_SPEED_TIME 60",
            "CURLOPT_LOW_SPEED_LIMIT 30",
            "CURLOPT_NOSIGNAL 1",
            "CURLOPT_COOKIEJAR -",
            "CURLOPT_ERRORBUFFER pointer",
            "CURLOPT_HTTP_VERSION 2",  // 1.1
            "CURLOPT_REDIR_PROTOCOLS_STR https",
            "CURLOPT_OPENSOCKETFUNCTION function",
            "curl_easy_perform",
            "CURLINFO_RESPONSE_CODE",
            "CURLINFO_COOKIELIST",
            "curl_easy_reset"};
}

inline Calls Concatenated(const Calls& first, const Calls& second) {
    Calls all = first;
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

// The same with `more` right before the only line that begins with `anchor`.
inline Calls WithBefore(Calls calls, const std::string& anchor, const Calls& more) {
    const auto place = std::find_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.compare(0, anchor.size(), anchor) == 0;
    });
    if (place == calls.end()) ADD_FAILURE() << "no call begins with " << anchor;
    calls.insert(place, more.begin(), more.end());
    return calls;
}

// The same without the lines that begin with `anchor`.
inline Calls Without(Calls calls, const std::string& anchor) {
    const auto rest = std::remove_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.compare(0, anchor.size(), anchor) == 0;
    });
    if (rest == calls.end()) ADD_FAILURE() << "no call begins with " << anchor;
    calls.erase(rest, calls.end());
    return calls;
}

#endif
