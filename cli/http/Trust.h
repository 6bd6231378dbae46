// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_TRUST_H
#define KEMFFDC_HTTP_TRUST_H

#include <cstdint>
#include <functional>
#include <string>

#include "cli/report/Certificate.h"

namespace Kemffdc {

// Whom a request may go to. Judged inside the TLS handshake, so nothing of a request, and no
// credential, has left before: the transport asks nobody else. Over plain HTTP nothing is judged.
struct Trust {
    // PEM file: the certificate must be good for its CAs, and no others, and for the name or
    // address that was asked for. Empty: the next one judges.
    std::string caFile;

    // Told the certificate that the peer shows on that port of the BMC; returns why its owner must
    // not be spoken to, a whole sentence fit for display, or nothing where he may. Null: everybody
    // is trusted. Runs on the thread of the request; throws nothing but std::bad_alloc.
    std::function<std::string(std::uint16_t port, const Certificate& shown)> judge;

    bool IsAnybodys() const { return caFile.empty() && !judge; }
};

}  // namespace Kemffdc

#endif
