// SPDX-License-Identifier: Apache-2.0
#include "ValueText.h"

#include <array>
#include <charconv>

#include "Text.h"
#include "shared/Utf8.h"

namespace Pegasus::Internal {

namespace {

using Read = std::optional<std::string>;

Read Boolean(std::string_view text) {
    const String word = FromPeer(Trimmed(text));
    if (String::equalNoCase(word, "TRUE")) return "TRUE";
    if (String::equalNoCase(word, "FALSE")) return "FALSE";
    return {};
}

// Decimal or hexadecimal ("0x1F"), with blanks around. Unsigned ones have no sign; leading zeros
// are no decimal number. `most` is the greatest of its type.
Read Integer(std::string_view text, std::uint64_t most, bool isSigned) {
    text = Trimmed(text);
    const bool negative = !text.empty() && text[0] == '-';
    if (negative || (!text.empty() && text[0] == '+')) {
        if (!isSigned) return {};
        text.remove_prefix(1);
    }
    const bool hexadecimal =
        text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (hexadecimal) text.remove_prefix(2);
    if (!hexadecimal && text.size() > 1 && text[0] == '0') return {};
    std::uint64_t magnitude = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
    if (read.ec != std::errc() || read.ptr != end) return {};
    if (magnitude > (negative ? most + 1 : most)) return {};
    return (negative && magnitude != 0 ? "-" : "") + std::to_string(magnitude);
}

Read IntegerOf(CIMType type, std::string_view text) {
    // The types stand in pairs, uint8 and sint8 first.
    const unsigned bits = 8U << ((type - CIMTYPE_UINT8) / 2U);
    const bool isSigned = (type - CIMTYPE_UINT8) % 2U == 1;
    return Integer(text, ~std::uint64_t{0} >> (64 - bits + (isSigned ? 1 : 0)), isSigned);
}

// As printf's "%.16e" writes in the C locale, whatever the locale is.
template <class T>
Read Real(std::string_view text) {
    text = Trimmed(text);
    if (!text.empty() && text[0] == '+') text.remove_prefix(1);
    if (text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) return {};
    T number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return {};
    std::array<char, 40> written{};
    const auto last = std::to_chars(written.data(), written.data() + written.size(),
                                    static_cast<double>(number), std::chars_format::scientific, 16);
    return std::string(written.data(), last.ptr);
}

// One UTF-16 unit.
Read Character(const std::string& text) {
    if (text.empty()) return {};
    const shared::Utf8Character first = shared::FirstUtf8(text);
    return first.length == text.size() && first.code < 0x10000 ? Read(text) : Read();
}

// "d" stands for a digit or "*", which is a digit that is not known; "+" for a sign.
bool Matches(std::string_view text, std::string_view shape) {
    if (text.size() != shape.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string_view allowed = shape[i] == 'd'   ? "0123456789*"
                                         : shape[i] == '+' ? "+-"
                                                           : shape.substr(i, 1);
        if (allowed.find(text[i]) == std::string_view::npos) return false;
    }
    return true;
}

bool Within(std::string_view digits, int least, int most) {
    if (digits.find('*') != std::string_view::npos) return true;
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number >= least && number <= most;
}

// A time stamp "yyyymmddhhmmss.mmmmmmsutc" or an interval "ddddddddhhmmss.mmmmmm:000" (DSP0004).
Read DateTime(const std::string& text) {
    if (text.empty()) return "00000000000000.000000:000";
    const bool interval = Matches(text, "dddddddddddddd.dddddd:000");
    if (!interval && !Matches(text, "dddddddddddddd.dddddd+ddd")) return {};
    const std::string_view digits = text;
    const bool date =
        interval || (Within(digits.substr(4, 2), 1, 12) && Within(digits.substr(6, 2), 1, 31));
    const bool time = Within(digits.substr(8, 2), 0, 23) && Within(digits.substr(10, 2), 0, 59) &&
                      Within(digits.substr(12, 2), 0, 59);
    return date && time ? Read(text) : Read();
}

}  // namespace

std::optional<std::string> ValueText(CIMType type, const std::string& text) {
    switch (type) {
        case CIMTYPE_BOOLEAN:
            return Boolean(text);
        case CIMTYPE_REAL32:
            return Real<float>(text);
        case CIMTYPE_REAL64:
            return Real<double>(text);
        case CIMTYPE_CHAR16:
            return Character(text);
        case CIMTYPE_STRING:
        case CIMTYPE_REFERENCE:
            return text;
        case CIMTYPE_DATETIME:
            return DateTime(text);
        default:
            return IntegerOf(type, text);
    }
}

}  // namespace Pegasus::Internal
