// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/String.h>

#include <Pegasus/Common/Exception.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Text.h"
#include "shared/Percent.h"
#include "shared/Utf8.h"

namespace Pegasus {

namespace {

const char* NotNull(const char* text) {
    if (text == nullptr) throw NullPointer();
    return text;
}

void AppendUnits(std::u16string& units, char32_t codePoint) {
    if (codePoint < 0x10000) {
        units += static_cast<char16_t>(codePoint);
        return;
    }
    codePoint -= 0x10000;
    units += static_cast<char16_t>(0xD800 + (codePoint >> 10U));
    units += static_cast<char16_t>(0xDC00 + (codePoint & 0x3FFU));
}

// Where the first byte stands that is no UTF-8, or npos.
std::size_t Convert(std::string_view bytes, std::u16string& units) {
    units.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const auto [length, codePoint] = shared::FirstUtf8(bytes.substr(at));
        if (length == 0) return at;
        AppendUnits(units, codePoint);
        at += length;
    }
    return std::string_view::npos;
}

[[noreturn]] void ThrowNotUtf8(std::string_view bytes, std::size_t index) {
    std::string message = "The byte sequence starting at index " + std::to_string(index) +
                          " is not valid UTF-8 encoding:";
    for (const char c : bytes.substr(index, 4)) {
        message += " 0x";
        shared::AppendHex(message, c, shared::kUpperDigits);
    }
    throw Exception(String(message.c_str()));
}

// The code point at `at`, which moves behind it.
char32_t NextCodePoint(const std::u16string& units, std::size_t& at) {
    const char16_t unit = units[at++];
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    const bool pair =
        unit < 0xDC00 && at < units.size() && units[at] >= 0xDC00 && units[at] <= 0xDFFF;
    if (!pair) return 0xFFFD;
    const char16_t low = units[at++];
    return 0x10000U + (static_cast<char32_t>(unit - 0xD800) << 10U) + (low - 0xDC00U);
}

bool StaysPlain(char c) {
    const bool alphanumeric =
        (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return alphanumeric || (c != '\0' && std::strchr("-_.!~*'()", c) != nullptr);
}

}  // namespace

const String String::EMPTY;

String::String(const char* text) : String(Internal::FromUtf8(NotNull(text))) {}

String::String(const char* text, Uint32 n) : String(Internal::FromUtf8({NotNull(text), n})) {}

CString String::getCString() const { return CString(Internal::ToUtf8(*this)); }

String& String::append(const String& text) {
    m_units += text.m_units;
    return *this;
}

String String::subString(Uint32 index, Uint32 n) const {
    if (index > m_units.size()) throw IndexOutOfBoundsException();
    return StringUnits::Make(m_units.substr(index, n));
}

Uint32 String::find(const String& text) const {
    const std::size_t at = m_units.find(text.m_units);
    return at == std::u16string::npos ? PEG_NOT_FOUND : static_cast<Uint32>(at);
}

Boolean String::equalNoCase(const String& a, const String& b) {
    return a.size() == b.size() && Internal::CompareNoCase(a, b) == 0;
}

String operator+(const String& a, const String& b) { return String(a).append(b); }

namespace Internal {

String FromUtf8(std::string_view bytes) {
    std::u16string units;
    const std::size_t bad = Convert(bytes, units);
    if (bad != std::string_view::npos) ThrowNotUtf8(bytes, bad);
    return StringUnits::Make(std::move(units));
}

String FromPeer(std::string_view bytes) {
    std::u16string units;
    if (Convert(bytes, units) != std::string_view::npos) {
        units.clear();
        for (const char c : bytes) units += static_cast<char16_t>(static_cast<unsigned char>(c));
    }
    return StringUnits::Make(std::move(units));
}

std::string ToUtf8(const String& text) {
    const std::u16string& units = StringUnits::Of(text);
    std::string bytes;
    bytes.reserve(units.size());
    for (std::size_t at = 0; at < units.size();)
        shared::AppendUtf8(bytes, NextCodePoint(units, at));
    return bytes;
}

std::string ToLatin1(const String& text) {
    std::string bytes;
    for (const char16_t unit : StringUnits::Of(text)) bytes += static_cast<char>(unit & 0xFFU);
    return bytes;
}

int CompareNoCase(const String& a, const String& b) {
    const std::u16string& left = StringUnits::Of(a);
    const std::u16string& right = StringUnits::Of(b);
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = FoldCase(left[i]) - FoldCase(right[i]);
        if (difference != 0) return difference;
    }
    if (left.size() == right.size()) return 0;
    return left.size() < right.size() ? -1 : 1;
}

std::string_view Trimmed(std::string_view text) {
    static constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string PercentEncode(std::string_view bytes) {
    return shared::PercentEncoded(bytes, StaysPlain);
}

}  // namespace Internal
}  // namespace Pegasus
