// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_CERTIFICATE_H
#define KEMFFDC_REPORT_CERTIFICATE_H

#include <optional>
#include <string>

namespace Kemffdc {

// The certificate that a BMC showed.
struct Certificate {
    std::string sha256;  // of the DER form, upper-case hexadecimal with colons
    std::string subject;
    std::string issuer;
    std::string notBefore;  // UTC, "2026-11-20T20:25:00Z"
    std::string notAfter;
    bool validNow = false;  // by this machine's clock
    bool selfSigned = false;
    bool verified = false;  // against the run's CA file, in the same handshake
};

// What a certificate in PEM form says; nothing when it cannot be read.
std::optional<Certificate> ReadCertificate(const std::string& pem);

}  // namespace Kemffdc

#endif
