// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/String.h>

#include <Pegasus/Common/Exception.h>

#include <algorithm>
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

// Where the first byte stands that is no UTF-8, or npos.
std::size_t FirstBad(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = shared::FirstUtf8(bytes.substr(at)).length;
        if (length == 0) return at;
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

unsigned char Folded(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
}

bool StaysPlain(char c) {
    const bool alphanumeric =
        (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return alphanumeric || (c != '\0' && std::strchr("-_.!~*'()", c) != nullptr);
}

}  // namespace

const String String::EMPTY;

String::String(const char* text) : String(Internal::FromUtf8(NotNull(text))) {}

Boolean String::equalNoCase(const String& a, const String& b) {
    return Internal::CompareNoCase(a, b) == 0;
}

String operator+(const String& a, const String& b) {
    return StringBytes::Make(StringBytes::Of(a) + StringBytes::Of(b));
}

namespace Internal {

String FromUtf8(std::string_view bytes) {
    const std::size_t bad = FirstBad(bytes);
    if (bad != std::string_view::npos) ThrowNotUtf8(bytes, bad);
    return StringBytes::Make(std::string(bytes));
}

String FromPeer(std::string_view bytes) {
    if (FirstBad(bytes) == std::string_view::npos) return StringBytes::Make(std::string(bytes));
    std::string utf8;
    for (const char c : bytes) shared::AppendUtf8(utf8, static_cast<unsigned char>(c));
    return StringBytes::Make(std::move(utf8));
}

std::string ToLatin1(const String& text) {
    std::string latin1;
    std::string_view rest = ToUtf8(text);
    while (!rest.empty()) {
        const auto [length, code] = shared::FirstUtf8(rest);
        if (code >= 0x10000) latin1 += static_cast<char>(((code - 0x10000) >> 10U) & 0xFFU);
        latin1 += static_cast<char>(code & 0xFFU);
        rest.remove_prefix(length);
    }
    return latin1;
}

int CompareNoCase(const String& a, const String& b) {
    const std::string& left = ToUtf8(a);
    const std::string& right = ToUtf8(b);
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = Folded(left[i]) - Folded(right[i]);
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
