// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CURLHANDLE_H
#define KEMFFDC_HTTP_CURLHANDLE_H

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "cli/report/Certificate.h"

namespace Kemffdc {

// The easy handle for one request after another.
//
// In a libcurl older than 8.1.0, a handle that is used again keeps a pointer into freed memory when
// the first header line of an answer begins with a blank or a tab: any BMC could corrupt this
// process. There, each request gets a handle of its own, and connections and TLS sessions are
// carried over in a share. For one thread.
class CurlHandle {
public:
    CurlHandle();  // throws std::bad_alloc

    // For the next request: no option is set. What the last one gave ends here.
    // Throws std::bad_alloc.
    CURL* Renew();

    CURL* Get() const { return m_easy.get(); }

private:
    struct FreeEasy {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct FreeShare {
        void operator()(CURLSH* share) const { curl_share_cleanup(share); }
    };

    std::unique_ptr<CURLSH, FreeShare> m_share;  // null where one handle is enough
    std::unique_ptr<CURL, FreeEasy> m_easy;      // goes before the share
};

// The peer's certificate is verified against the CAs of that file and no others, and for the name
// or address in the URL; not at all where `caFile` is empty.
void SetVerification(CURL* easy, const std::string& caFile);

// What the server showed in the handshake of the last transfer, which is to have had
// CURLOPT_CERTINFO; nothing where there was none.
std::optional<Certificate> CertificateOf(CURL* easy, bool verified);

}  // namespace Kemffdc

#endif
