// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_BASE64_H
#define VARNEX_SHARED_BASE64_H

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace shared {

// RFC 4648, section 4, in one line.
inline std::string ToBase64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');  // OpenSSL ends it with a NUL
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// Empty where `text` is none.
inline std::string FromBase64(const std::string& text) {
    std::string bytes(text.size(), '\0');
    const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&bytes[0]),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    // OpenSSL counts the bytes that the padding stands for.
    const auto padding = std::count(
        text.end() - std::min<std::ptrdiff_t>(2, static_cast<std::ptrdiff_t>(text.size())),
        text.end(), '=');
    bytes.resize(size < padding ? 0 : static_cast<std::size_t>(size - padding));
    return bytes;
}

}  // namespace shared

#endif
