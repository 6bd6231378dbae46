// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_VERSION_H
#define VARNEX_VERSION_H

// The version, for hosts that are built with more than one. Within a major version a later library
// runs every host that was built with an earlier one.
#define VARNEX_FFDC_VERSION_MAJOR 1
#define VARNEX_FFDC_VERSION_MINOR 0
#define VARNEX_FFDC_VERSION_PATCH 0

// One number to compare: #if VARNEX_FFDC_VERSION >= VARNEX_FFDC_VERSION_NUMBER(1, 2, 0)
#define VARNEX_FFDC_VERSION                                                          \
    VARNEX_FFDC_VERSION_NUMBER(VARNEX_FFDC_VERSION_MAJOR, VARNEX_FFDC_VERSION_MINOR, \
                               VARNEX_FFDC_VERSION_PATCH)
#define VARNEX_FFDC_VERSION_NUMBER(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))

#endif
