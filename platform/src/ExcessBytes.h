// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_EXCESSBYTES_H
#define VARNEX_PLATFORM_SRC_EXCESSBYTES_H

#include <curl/curl.h>

#include <cstdint>

#include "transfer_settings.h"

// Whether an HTTPS server sends more than the length that it announced: libcurl takes that for the
// whole file. To be asked once, after a transfer that libcurl calls a success; outlives it.
class ExcessBytes {
public:
    void Watch(Settings& settings);

    // `received`: bytes of the file. Waits a moment for what may still be on its way.
    bool Any(CURL* handle, std::uint64_t received) const;

private:
    static int OnTraffic(CURL* handle, curl_infotype type, char* data, std::size_t size,
                         void* self);

    std::uint64_t m_body = 0;  // bytes behind the last header, as libcurl read them
};

#endif
