// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_IPMI_MODULE_H
#define VARNEX_PLATFORM_IPMI_MODULE_H

// What IpmiClient and libvarnexplatform-ipmi.so say to each other. The module is loaded when it is
// first needed and holds all that depends on FreeIPMI: it is therefore under the GNU General Public
// License, version 3 or later, as soon as it is linked, and nothing else of ours is. A replacement
// over another library needs this file alone.
//
// C, so that neither side has to know the other's C++ library. The module logs nothing, keeps
// nothing that two sessions share, and lets no exception out.

// NOLINTBEGIN

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VARNEX_IPMI_MODULE_VERSION 3

// Why an operation failed. Numbers of IpmiClient.h; those that only the module tells apart.
enum varnex_ipmi_result {
    VARNEX_IPMI_DONE = 0,
    VARNEX_IPMI_BAD_ARGUMENT = 2,
    VARNEX_IPMI_NO_ANSWER = 5,
    VARNEX_IPMI_WRONG_PASSWORD = 6,
    VARNEX_IPMI_UNKNOWN_USER = 7,
    VARNEX_IPMI_NO_CIPHER_SUITE = 8,
    VARNEX_IPMI_NO_PRIVILEGE = 9,
    VARNEX_IPMI_NO_DEVICE = 10,
    VARNEX_IPMI_NO_PERMISSION = 11,
    VARNEX_IPMI_FAILED = 13,
    VARNEX_IPMI_REFUSED = 14,  // the session, with a status code that the library does not hand out
    VARNEX_IPMI_DISTURBED = 15  // by answers that belong to other requests
};

struct varnex_ipmi_session;  // one session, or one open device; one thread at a time

struct varnex_ipmi_lan {
    const char* endpoint;  // "192.0.2.1:623" or "[2001:db8::1]:623": numbers, no scope
    const char* user;
    const char* password;
    uint8_t cipher_suite;
    uint32_t session_timeout;         // milliseconds without a sign of life
    uint32_t retransmission_timeout;  // milliseconds before the first copy; less than the above
};

// The library's own words for a failure; cut where they do not fit.
struct varnex_ipmi_error {
    char text[200];
};

struct varnex_ipmi_module {
    uint32_t version;  // VARNEX_IPMI_MODULE_VERSION

    const char* library;  // what it was built with: "FreeIPMI 1.6.10"
    const char* licence;  // of the module as it is linked, as an SPDX expression

    // Whether a session can be set up with this cipher suite, 1 or 0, and the numbers of its
    // algorithms: authentication, integrity, confidentiality.
    int (*knows_cipher_suite)(uint16_t cipher_suite, uint8_t algorithms[3]);

    // On success *session is set, to be given back to close(); else it is null and *error is set.
    int (*open_lan)(const struct varnex_ipmi_lan* lan, struct varnex_ipmi_session** session,
                    struct varnex_ipmi_error* error);
    int (*open_device)(const char* device, struct varnex_ipmi_session** session,
                       struct varnex_ipmi_error* error);

    // One request to LUN 0. The answer to any of its copies is taken, one that names another
    // command or network function is not. `answer` receives the completion code and the data,
    // *answer_size their number, at least 1; an answer longer than `capacity` is a failure.
    int (*send)(struct varnex_ipmi_session* session, uint8_t netfn, uint8_t command,
                const uint8_t* data, size_t data_size, uint8_t* answer, size_t capacity,
                size_t* answer_size, struct varnex_ipmi_error* error);

    // Ends the session. Where the last send() got no answer the BMC is not told: it would cost the
    // whole time-out again.
    void (*close)(struct varnex_ipmi_session* session);
};

// The one function that the module exports, under VARNEX_IPMI_MODULE_ENTRY. Never null.
typedef const struct varnex_ipmi_module* (*varnex_ipmi_module_entry)(void);
#define VARNEX_IPMI_MODULE_ENTRY "varnex_ipmi_module_get"
__attribute__((visibility("default"))) const struct varnex_ipmi_module* varnex_ipmi_module_get(
    void);

#ifdef __cplusplus
}
#endif

// NOLINTEND

#endif
