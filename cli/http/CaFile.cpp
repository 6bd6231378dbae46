// SPDX-License-Identifier: Apache-2.0
#include "cli/http/CaFile.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr char kVariable[] = "VARNEX_CA_FILE";
constexpr off_t kMaxSize = off_t{64} * 1024 * 1024;  // the largest collections have half a MiB

struct FreeBio {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
struct FreeInfos {
    void operator()(STACK_OF(X509_INFO) * infos) const {
        sk_X509_INFO_pop_free(infos, X509_INFO_free);
    }
};

Outcome Unusable(const std::string& file, const std::string& why) {
    return Failure(kLocalFile, "The CA file " + Clean(file) + " " + why);
}

// Only a plain file can be read several times: here, for the requests and for the download.
Outcome CheckIsFile(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return Unusable(file, std::string("cannot be read: ") + std::strerror(errno) +
                                  ". Correct --ca-file or VARNEX_CA_FILE.");
    }
    if (!S_ISREG(status.st_mode)) return Unusable(file, "is not a plain file.");
    if (status.st_size > kMaxSize) return Unusable(file, "is larger than 64 MiB.");
    return {};
}

}  // namespace

void AnnounceCaFile(const std::string& file) {
    if (file.empty()) {
        unsetenv(kVariable);
    } else {
        setenv(kVariable, file.c_str(), 1);
    }
}

Outcome CheckCaFile(const std::string& file) {
    if (file.empty()) return {};
    Outcome outcome = CheckIsFile(file);
    if (!outcome.Ok()) return outcome;
    errno = 0;
    const std::unique_ptr<BIO, FreeBio> bio(BIO_new_file(file.c_str(), "r"));
    if (!bio) {
        return Unusable(file, std::string("cannot be read: ") + std::strerror(errno) +
                                  ". Correct --ca-file or VARNEX_CA_FILE.");
    }
    const std::unique_ptr<STACK_OF(X509_INFO), FreeInfos> infos(
        PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    if (!infos) return Unusable(file, "holds a certificate that cannot be read.");
    for (int i = 0; i < sk_X509_INFO_num(infos.get()); ++i) {
        if (sk_X509_INFO_value(infos.get(), i)->x509 != nullptr) return {};
    }
    return Unusable(file, "holds no certificate in PEM form (-----BEGIN CERTIFICATE-----).");
}

}  // namespace Kemffdc
