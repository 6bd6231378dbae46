// SPDX-License-Identifier: Apache-2.0
//
// The certificate that a server shows: DER of any kind, or text where PEM is due. What is made of
// it goes to a terminal and into JSON.
#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/http/Transport.h"
#include "cli/terminal/Text.h"

namespace {

constexpr char kBegin[] = "-----BEGIN CERTIFICATE-----\n";
constexpr char kEnd[] = "\n-----END CERTIFICATE-----\n";

std::string AsPem(const std::uint8_t* data, std::size_t size) {
    std::vector<unsigned char> text(4 * ((size + 2) / 3) + 1);
    EVP_EncodeBlock(text.data(), data, static_cast<int>(size));
    std::string pem = kBegin;
    for (std::size_t at = 0; at + 1 < text.size(); at += 64) {
        const std::size_t length = std::min<std::size_t>(64, text.size() - 1 - at);
        pem.append(reinterpret_cast<const char*>(text.data()) + at, length).append("\n");
    }
    pem.pop_back();
    return pem + kEnd;
}

void ExpectFitForDisplay(const std::string& text) {
    if (text.size() > 400 || Kemffdc::ValidUtf8(text) != text) std::abort();
    for (const char c : text) {
        if ((c >= 0 && c < 0x20) || c == 0x7F) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool isPem = text.compare(0, 5, "-----") == 0;
    const auto read = Kemffdc::ReadCertificate(isPem ? text : AsPem(data, size));
    if (!read) return 0;
    if (read->sha256.size() != 95) std::abort();
    for (const std::string& field :
         {read->sha256, read->subject, read->issuer, read->notBefore, read->notAfter}) {
        ExpectFitForDisplay(field);
    }
    return 0;
}
