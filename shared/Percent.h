// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_PERCENT_H
#define VARNEX_SHARED_PERCENT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "shared/Hex.h"

namespace shared {

// RFC 3986, section 2.1: "%20" for a blank.

// Whether "%" and two hexadecimal digits stand at `at`.
inline bool IsPercentEncoded(std::string_view text, std::size_t at) {
    return at + 2 < text.size() && text[at] == '%' && HexValue(text[at + 1]) >= 0 &&
           HexValue(text[at + 2]) >= 0;
}

inline void AppendPercentEncoded(std::string& text, char byte) {
    text += '%';
    AppendHex(text, byte, kUpperDigits);
}

// Every byte but those that `stays` says.
template <class Stays>
std::string PercentEncoded(std::string_view bytes, const Stays& stays) {
    std::string text;
    for (const char byte : bytes) {
        if (stays(byte)) {
            text += byte;
        } else {
            AppendPercentEncoded(text, byte);
        }
    }
    return text;
}

// What is not encoded stays, a lone "%" too.
inline std::string PercentDecoded(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool encoded = IsPercentEncoded(text, at);
        bytes += encoded ? static_cast<char>(HexValue(text[at + 1]) * 16 + HexValue(text[at + 2]))
                         : text[at];
        if (encoded) at += 2;
    }
    return bytes;
}

}  // namespace shared

#endif
