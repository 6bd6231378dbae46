// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_REST_MIMEPART_H
#define VARNEX_COMMON_REST_MIMEPART_H

#include <curl/curl.h>

namespace Rest {

// One part of a multipart form (RFC 7578).
class MimePart {
public:
    virtual ~MimePart() = default;

    // Fills `part`, which belongs to libcurl. Whatever libcurl does not copy has to live until the
    // request has ended.
    virtual void AddTo(curl_mimepart* part) const = 0;
};

}  // namespace Rest

#endif
