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
    const std::size_t end = std::min(text.find('='), text.size());
    const std::size_t padding = text.size() - end;  // OpenSSL counts the bytes that it stands for
    if (padding > 2 || text.find_first_not_of('=', end) != std::string::npos) return "";
    std::string bytes(text.size(), '\0');
    const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&bytes[0]),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    bytes.resize(size < static_cast<int>(padding) ? 0 : static_cast<std::size_t>(size) - padding);
    return bytes;
}

}  // namespace shared

#endif
