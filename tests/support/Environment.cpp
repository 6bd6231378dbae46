// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <initializer_list>

namespace {

// What the machine sets for other programs, before any test and any library looks at it.
struct CleanEnvironment {
    CleanEnvironment() {
        for (const char* name : {"REQUESTS_CA_BUNDLE",
                                 "CURL_CA_BUNDLE",
                                 "SSL_CERT_FILE",
                                 "SSL_CERT_DIR",
                                 "http_proxy",
                                 "https_proxy",
                                 "HTTPS_PROXY",
                                 "all_proxy",
                                 "ALL_PROXY",
                                 "no_proxy",
                                 "NO_PROXY",
                                 "VARNEX_CONFIG",
                                 "VARNEX_LOG_LEVEL",
                                 "VARNEX_LOG_FILE",
                                 "VARNEX_LOG_FORMAT",
                                 "VARNEX_CA_FILE",
                                 "VARNEX_KNOWN_HOSTS",
                                 "VARNEX_SFTP_HOST_KEYS",
                                 "VARNEX_TRANSFER_STALL_TIME",
                                 "VARNEX_TRANSFER_CONNECT_TIME"}) {
            unsetenv(name);
        }
    }
};

const CleanEnvironment kCleanEnvironment;

}  // namespace
