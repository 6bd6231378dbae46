// SPDX-License-Identifier: Apache-2.0
#include "cli/http/Login.h"

#include <openssl/evp.h>

namespace Kemffdc {
namespace {

std::string Base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

}  // namespace

Login BasicLogin(const std::string& user, const std::string& password) {
    const Secret both(user + ":" + password);
    const Secret encoded(Base64(both.Reveal()));
    return {Secret("Authorization: Basic " + encoded.Reveal())};
}

Login TokenLogin(const Secret& token) { return {Secret("X-Auth-Token: " + token.Reveal())}; }

}  // namespace Kemffdc
