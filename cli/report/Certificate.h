// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_CERTIFICATE_H
#define KEMFFDC_REPORT_CERTIFICATE_H

#include <optional>
#include <string>

struct x509_st;  // OpenSSL's X509

namespace Kemffdc {

// Why a run takes a certificate for the BMC's.
enum class CertificateTrust {
    kNobody,  // nothing was asked for
    kCaFile,
    kFingerprint,  // that of --fingerprint
    kKnown,        // remembered from an earlier run
    kFirstUse,
    kReplaced,  // another one was remembered, and the operator takes the new one
};

// The certificate that a BMC showed.
struct Certificate {
    std::string sha256;  // of the DER form, upper-case hexadecimal with colons
    std::string subject;
    std::string issuer;
    std::string notBefore;  // UTC, "2026-11-20T20:25:00Z"
    std::string notAfter;
    bool validNow = false;  // by this machine's clock
    bool selfSigned = false;
    // In the same handshake; verified: by what was known of it beforehand.
    bool verified = false;
    CertificateTrust trust = CertificateTrust::kNobody;
};

// What a certificate in PEM form says; nothing when it cannot be read.
std::optional<Certificate> ReadCertificate(const std::string& pem);

// What one says that OpenSSL has read already, as in a handshake.
Certificate DescribeCertificate(const x509_st& read);

}  // namespace Kemffdc

#endif
