// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_SHARED_UTF8_H
#define VARNEX_SHARED_UTF8_H

#include <boost/nowide/utf/utf.hpp>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>

namespace shared {

struct Utf8Character {
    std::size_t length;  // bytes; 0: these begin no well-formed character (RFC 3629)
    char32_t code;
};

// The one that `text`, which is not empty, begins with.
inline Utf8Character FirstUtf8(std::string_view text) {
    namespace utf = boost::nowide::utf;
    const char* at = text.data();
    const utf::code_point code = utf::utf_traits<char>::decode(at, text.data() + text.size());
    if (!utf::is_valid_codepoint(code)) return {0, 0};
    return {static_cast<std::size_t>(at - text.data()), static_cast<char32_t>(code)};
}

inline void AppendUtf8(std::string& bytes, char32_t code) {
    boost::nowide::utf::utf_traits<char>::encode(code, std::back_inserter(bytes));
}

}  // namespace shared

#endif
