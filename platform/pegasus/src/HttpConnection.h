// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_HTTPCONNECTION_H
#define VARNEX_PEGASUS_HTTPCONNECTION_H

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Transport.h"

namespace Pegasus::Internal {

struct HttpAnswer {
    unsigned status = 0;
    std::string reason;  // the status's usual one where the peer sends none
    // Header and trailer, in the order of arrival.
    std::vector<std::pair<std::string, std::string>> fields;
    std::string body;  // of an answer other than 200: perhaps not all of it
    // The connection is good for another request.
    bool keepAlive = false;

    // The first of this name, whatever its case, or null.
    const std::string* Find(std::string_view name) const;
};

// One connection for any number of requests, one after the other.
class HttpConnection {
public:
    explicit HttpConnection(std::unique_ptr<Transport> transport);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    // The peer closed it, or sent something that no request asked for.
    bool IsStale();

    // Sends a request and takes its whole answer, trailers included. An answer other than 200 that
    // tells no length has no body: servers leave the connection open after it. A body that it
    // announces is waited for a second at most, and then the connection is of no more use.
    // Throws ConnectionTimeoutException and CIMClientMalformedHTTPException; the connection is
    // then of no more use.
    HttpAnswer Exchange(std::string_view head, std::string_view body,
                        Transport::Clock::time_point deadline);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Pegasus::Internal

#endif
