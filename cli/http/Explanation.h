// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_EXPLANATION_H
#define KEMFFDC_HTTP_EXPLANATION_H

#include <string>

#include "cli/http/ConnectionWatch.h"
#include "cli/http/Endpoint.h"
#include "cli/http/ServiceKind.h"
#include "cli/http/Transport.h"

namespace Kemffdc {

// What is known of a request that got no answer.
struct FailedExchange {
    const Endpoint& endpoint;
    const ServiceKind& kind;
    const std::string& caFile;     // of the trust; empty: none
    const ConnectionWatch& watch;  // of its last connection
    int curlCode;
    std::string detail;  // libcurl's
    int seconds;         // that it was given
    int connectSeconds;  // and those of them for the connection

    long tunnelCode = 0;       // HTTP status of a proxy; 0: there was none
    std::string proxy{};       // that the environment names, whether it was used or not
    bool isResolved = false;   // the name
    bool isConnected = false;  // to the service or to a proxy
    bool isEncrypted = false;  // the TLS handshake is over
    bool isBegun = false;      // the answer
    bool headersEndless = false;
};

// An answer that failed, with the stage and a reason that tells what to do.
Answer Explain(const FailedExchange& failed);

// That of a handshake which failed where an earlier one was good.
Answer ExplainRecheck(const FailedExchange& failed);

// A failed answer.
Answer Failed(Stage stage, const std::string& reason);

}  // namespace Kemffdc

#endif
