// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Certificate.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <ctime>
#include <memory>

#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

struct FreeOpenSsl {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};

std::string Fingerprint(const X509* certificate) {
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (X509_digest(certificate, EVP_sha256(), hash, &length) != 1) return "";
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        char digits[4];
        (void)std::snprintf(digits, sizeof digits, i == 0 ? "%02X" : ":%02X", hash[i]);
        text += digits;
    }
    return text;
}

std::string NameText(const X509_NAME* name) {
    const std::unique_ptr<BIO, FreeOpenSsl> bio(BIO_new(BIO_s_mem()));
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0) return "";
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &bytes);
    return Clean(std::string(bytes, static_cast<std::size_t>(length)));
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm when{};
    if (ASN1_TIME_to_tm(time, &when) != 1) return "";
    char text[32];
    (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &when);
    return text;
}

}  // namespace

std::optional<Certificate> ReadCertificate(const std::string& pem) {
    const std::unique_ptr<BIO, FreeOpenSsl> bio(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    if (!bio) return std::nullopt;
    const std::unique_ptr<X509, FreeOpenSsl> read(
        PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!read) return std::nullopt;
    return DescribeCertificate(*read);
}

Certificate DescribeCertificate(const X509& read) {
    const ASN1_TIME* begin = X509_get0_notBefore(&read);
    const ASN1_TIME* end = X509_get0_notAfter(&read);
    Certificate certificate;
    certificate.sha256 = Fingerprint(&read);
    certificate.subject = NameText(X509_get_subject_name(&read));
    certificate.issuer = NameText(X509_get_issuer_name(&read));
    certificate.notBefore = TimeText(begin);
    certificate.notAfter = TimeText(end);
    certificate.validNow = X509_cmp_current_time(begin) < 0 && X509_cmp_current_time(end) > 0;
    certificate.selfSigned = X509_self_signed(const_cast<X509*>(&read), 0) == 1;
    return certificate;
}

}  // namespace Kemffdc
