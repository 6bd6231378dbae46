// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_ENCODINGS_H
#define VARNEX_PLATFORM_SRC_ENCODINGS_H

#include <openssl/evp.h>

#include <cstddef>
#include <string>

// -1 where `c` is no hexadecimal digit.
inline int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// What a character behind a backslash stands for, as in JSON; itself where that is nothing else.
inline char MeantBy(char escaped) {
    switch (escaped) {
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return escaped;
    }
}

// Two digits for each byte, of those in `digits`.
inline std::string ToHex(const std::string& bytes, const char* digits = "0123456789abcdef",
                         const std::string& between = "") {
    std::string out;
    for (const char c : bytes) {
        if (!out.empty()) out += between;
        out += digits[static_cast<unsigned char>(c) >> 4];
        out += digits[static_cast<unsigned char>(c) & 0x0F];
    }
    return out;
}

inline std::string ToBase64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    out.resize(static_cast<std::size_t>(size));
    return out;
}

#endif
