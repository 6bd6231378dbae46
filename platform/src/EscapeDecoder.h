// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_ESCAPEDECODER_H
#define VARNEX_PLATFORM_SRC_ESCAPEDECODER_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "shared/Utf8.h"

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

// One byte as it is meant, and the piece of the text that says so.
struct MeantByte {
    unsigned char byte = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
};

// Takes one level of escapes off a text, byte by byte: %41, \u0041 (pairs of surrogates too), \x41,
// \n, \/, &#65;, &#x41;, &amp;. A run of backslashes counts as one, however long: strings in
// strings double it at each level. What only looks like an escape stays as it is.
class EscapeDecoder {
public:
    // Up to a dozen bytes wait until it is known whether they are an escape.
    template <class Take>
    void Push(const MeantByte& next, Take&& take) {
        if (m_size == 0 && !IsLead(next.byte)) {
            take(next);
            return;
        }
        Hold(next);
        while (m_size > 0 && Reduce(take)) {
        }
    }

    // What waits at the end of a text is no escape, but for a backslash before a letter: cut off,
    // it is read as it would be with other text behind it.
    template <class Take>
    void End(Take&& take) {
        while (m_size > 0) {
            if (m_size > 1 && m_held[0].byte == '\\') {
                PassEscape(Single(), take);
            } else {
                PassFirst(take);
            }
        }
    }

    // Where the bytes that wait begin; `otherwise` where there are none.
    std::size_t WaitsFrom(std::size_t otherwise) const {
        if (m_high != 0) return m_highBegin;
        return m_size > 0 ? m_held[0].begin : otherwise;
    }

    static bool IsLead(unsigned char byte) { return byte == '%' || byte == '\\' || byte == '&'; }

private:
    static constexpr std::size_t kLongest = 12;  // "&#0001114111;" is more than anybody writes

    // What the held bytes are: `size` of them, 0 while that cannot be told yet.
    struct Token {
        std::size_t size = 0;
        bool escape = false;
        bool codePoint = false;  // else a byte
        std::uint32_t value = 0;
    };

    void Hold(const MeantByte& next);
    void Drop(std::size_t count);
    Token Read() const;
    Token ReadHex(std::size_t from, std::size_t digits, bool codePoint, Token otherwise) const;
    Token ReadBackslash() const;
    Token Single() const;  // a backslash and one letter
    Token ReadEntity() const;
    Token Entity() const;

    // False: more bytes are needed.
    template <class Take>
    bool Reduce(Take& take) {
        const Token token = Read();
        if (token.size == 0) return false;
        if (!token.escape) {
            PassFirst(take);
            return true;
        }
        PassEscape(token, take);
        return true;
    }

    template <class Take>
    void PassEscape(const Token& token, Take& take) {
        const std::size_t begin = m_held[0].begin;
        const std::size_t end = m_held[token.size - 1].end;
        Drop(token.size);
        if (token.codePoint) {
            PassCodePoint(token.value, begin, end, take);
        } else {
            m_high = 0;
            take(MeantByte{static_cast<unsigned char>(token.value), begin, end});
        }
    }

    template <class Take>
    void PassFirst(Take& take) {
        const MeantByte first = m_held[0];
        Drop(1);
        m_high = 0;
        take(first);
    }

    template <class Take>
    void PassCodePoint(std::uint32_t code, std::size_t begin, std::size_t end, Take& take) {
        if (code >= 0xD800 && code < 0xDC00) {
            m_high = code;
            m_highBegin = begin;
            return;
        }
        if (code >= 0xDC00 && code < 0xE000 && m_high != 0) {
            code = 0x10000 + ((m_high - 0xD800) << 10) + (code - 0xDC00);
            begin = m_highBegin;
        }
        m_high = 0;
        std::string bytes;
        shared::AppendUtf8(bytes, code);
        for (const char byte : bytes) {
            take(MeantByte{static_cast<unsigned char>(byte), begin, end});
        }
    }

    MeantByte m_held[kLongest + 1];
    std::size_t m_size = 0;
    std::uint32_t m_high = 0;  // first half of a pair of surrogates; 0: none
    std::size_t m_highBegin = 0;
};

#endif
