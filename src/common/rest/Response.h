// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_REST_RESPONSE_H
#define VARNEX_COMMON_REST_RESPONSE_H

#include <cstdint>
#include <list>
#include <map>
#include <string>

namespace Rest {

// What became of one request.
struct Response {
    // libcurl's result; -1 while no transfer ran.
    std::int32_t curlCode = -1;

    // HTTP status (RFC 9110); -1 when the transfer failed or none ran.
    std::int32_t httpCode = -1;

    // Body of the answer; after a failed transfer the text for the error, mostly libcurl's.
    std::string body;

    // One entry per header line, names as the server spelled them. The last of several lines of a
    // name wins. The status line and other lines without a colon map to "present".
    std::map<std::string, std::string> headers;

    // The cookies known after the transfer, in the Netscape file format, in libcurl's order.
    std::list<std::string> cookies;
};

// An exchange without a usable answer. Redirects that were not followed are no failure.
inline bool Failed(const Response& response) {
    return response.curlCode != 0 || response.httpCode >= 400;
}

}  // namespace Rest

#endif
