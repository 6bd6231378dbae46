// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_SERVICEKIND_H
#define KEMFFDC_HTTP_SERVICEKIND_H

#include <cstddef>

namespace Kemffdc {

// A kind of web service: how the tool asks it, which is as the library does, and the words for it.
// Each channel has one constant of it.
struct ServiceKind {
    bool followsRedirects;  // over HTTPS, on the same host
    bool usesProxies;       // those that the environment names
    bool readsRefusals;     // the bodies of answers other than 200; else the status is enough
    long newestTls;         // CURL_SSLVERSION_MAX_...
    std::size_t maxBody;    // bytes; a longer answer is a failure

    const char* name;           // "Redfish service": what an answer may show that it is not
    const char* offer;          // "web service": what is behind the port, and may be switched off
    const char* protocol;       // "HTTPS"
    const char* takesRequests;  // "speaks HTTPS": what it does that does not answer
    const char* tooLong;        // "1 MiB where a few hundred bytes are due"
    const char* optionsOfPort;  // "--port": what may be wrong where nothing is said
    const char* portAdvice;     // the sentence for a port with another protocol
};

}  // namespace Kemffdc

#endif
