// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_HEX_H
#define VARNEX_SHARED_HEX_H

#include <string>

namespace shared {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

// -1 where `c` is no hexadecimal digit.
inline int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

inline void AppendHex(std::string& text, char byte, const char* digits = kLowerDigits) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 0x0F];
}

// Two digits for each byte.
inline std::string ToHex(const std::string& bytes, const char* digits = kLowerDigits,
                         const std::string& between = "") {
    std::string text;
    for (const char byte : bytes) {
        if (!text.empty()) text += between;
        AppendHex(text, byte, digits);
    }
    return text;
}

}  // namespace shared

#endif
