// SPDX-License-Identifier: Apache-2.0
#include "EscapeDecoder.h"

#include <algorithm>
#include <string_view>

#include "shared/Hex.h"

namespace {

struct NamedEntity {
    std::string_view name;
    char meant;
};
constexpr NamedEntity kEntities[] = {
    {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};

}  // namespace

void EscapeDecoder::Hold(const MeantByte& next) {
    if (m_size == 1 && m_held[0].byte == '\\' && next.byte == '\\') {
        m_held[0].end = next.end;
        return;
    }
    m_held[m_size++] = next;
}

void EscapeDecoder::Drop(std::size_t count) {
    std::copy(m_held + count, m_held + m_size, m_held);
    m_size -= count;
}

EscapeDecoder::Token EscapeDecoder::Read() const {
    switch (m_held[0].byte) {
        case '%':
            return ReadHex(1, 2, false, {1, false, false, 0});
        case '\\':
            return ReadBackslash();
        case '&':
            return ReadEntity();
        default:
            return {1, false, false, 0};
    }
}

EscapeDecoder::Token EscapeDecoder::ReadHex(std::size_t from, std::size_t digits, bool codePoint,
                                            Token otherwise) const {
    std::uint32_t value = 0;
    for (std::size_t i = from; i < from + digits; ++i) {
        if (i == m_size) return {};
        const int digit = shared::HexValue(static_cast<char>(m_held[i].byte));
        if (digit < 0) return otherwise;
        value = value << 4 | static_cast<std::uint32_t>(digit);
    }
    return {from + digits, true, codePoint, value};
}

EscapeDecoder::Token EscapeDecoder::ReadBackslash() const {
    if (m_size < 2) return {};
    const unsigned char letter = m_held[1].byte;
    if (letter == 'u') return ReadHex(2, 4, true, Single());
    if (letter == 'x') return ReadHex(2, 2, false, Single());
    return Single();
}

EscapeDecoder::Token EscapeDecoder::Single() const {
    return {2, true, false, static_cast<unsigned char>(MeantBy(static_cast<char>(m_held[1].byte)))};
}

EscapeDecoder::Token EscapeDecoder::ReadEntity() const {
    const Token none{1, false, false, 0};
    if (m_held[m_size - 1].byte == ';') return Entity();
    const unsigned char last = m_held[m_size - 1].byte;
    const bool letter = (last >= '0' && last <= '9') || (last >= 'a' && last <= 'z') ||
                        (last >= 'A' && last <= 'Z') || last == '#';
    if (m_size > 1 && !letter) return none;
    return m_size < kLongest ? Token{} : none;
}

EscapeDecoder::Token EscapeDecoder::Entity() const {
    std::string_view::value_type text[kLongest];
    const std::size_t size = m_size - 2;  // between "&" and ";"
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(m_held[i + 1].byte);
    const std::string_view name(text, size);
    for (const NamedEntity& entity : kEntities) {
        if (entity.name == name) return {m_size, true, false, static_cast<unsigned>(entity.meant)};
    }
    const Token none{1, false, false, 0};
    if (size < 2 || name[0] != '#') return none;
    const bool hex = name[1] == 'x' || name[1] == 'X';
    std::uint32_t value = 0;
    for (const char c : name.substr(hex ? 2 : 1)) {
        const int digit = shared::HexValue(c);
        if (digit < 0 || (!hex && digit > 9)) return none;
        value = value * (hex ? 16 : 10) + static_cast<std::uint32_t>(digit);
        if (value > 0x10FFFF) return none;
    }
    return {m_size, true, true, value};
}
