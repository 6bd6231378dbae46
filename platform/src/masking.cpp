// SPDX-License-Identifier: Apache-2.0
#include "masking.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "HiddenSecrets.h"
#include "shared/Hex.h"
#include "shared/Utf8.h"

namespace {

using Text = std::string_view;
constexpr std::size_t kNone = Text::npos;
constexpr Text kMask = "**********";

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool IsLineEnd(char c) { return c == '\r' || c == '\n'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSchemeByte(char c) {
    const char lower = Lower(c);
    return (lower >= 'a' && lower <= 'z') || IsDigit(c) || c == '+' || c == '-' || c == '.';
}

std::size_t SkipBackslashes(Text text, std::size_t at) {
    while (at < text.size() && text[at] == '\\') ++at;
    return at;
}

// Start of the run of backslashes that ends before `end`.
std::size_t BackslashesBefore(Text text, std::size_t end) {
    while (end > 0 && text[end - 1] == '\\') --end;
    return end;
}

// The byte of a "u00HH" at `at`, without its backslash; -1 where there is none.
int UnicodeEscape(Text text, std::size_t at) {
    if (text.size() - at < 5 || Lower(text[at]) != 'u') return -1;
    if (text[at + 1] != '0' || text[at + 2] != '0') return -1;
    const int high = shared::HexValue(text[at + 3]);
    const int low = shared::HexValue(text[at + 4]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// One character of the text as it is meant: plain, or escaped at any depth of strings in strings.
struct Character {
    char meant = '\0';
    std::size_t begin = kNone;  // with its backslashes
    std::size_t end = kNone;
    std::size_t backslashes = 0;
};

Character CharacterAt(Text text, std::size_t at) {
    Character c;
    c.begin = at;
    const std::size_t body = SkipBackslashes(text, at);
    c.backslashes = body - at;
    if (body >= text.size()) return c;
    const int code = c.backslashes > 0 ? UnicodeEscape(text, body) : -1;
    c.end = body + (code >= 0 ? 5 : 1);
    c.meant = code >= 0 ? static_cast<char>(code)
                        : (c.backslashes > 0 ? MeantBy(text[body]) : text[body]);
    return c;
}

// The character that ends before `end`.
Character CharacterBefore(Text text, std::size_t end) {
    Character c;
    if (end == 0) return c;
    c.end = end;
    if (end >= 6 && text[end - 6] == '\\') {
        const int code = UnicodeEscape(text, end - 5);
        if (code >= 0) {
            c.begin = BackslashesBefore(text, end - 5);
            c.backslashes = end - 5 - c.begin;
            c.meant = static_cast<char>(code);
            return c;
        }
    }
    c.begin = BackslashesBefore(text, end - 1);
    c.backslashes = end - 1 - c.begin;
    c.meant = c.backslashes > 0 ? MeantBy(text[end - 1]) : text[end - 1];
    return c;
}

bool IsQuote(const Character& c) { return c.meant == '"' || c.meant == '\''; }

std::size_t SkipBlanks(Text text, std::size_t at) {
    while (at < text.size()) {
        const Character c = CharacterAt(text, at);
        if (c.end == kNone || !IsBlank(c.meant)) break;
        at = c.end;
    }
    return at;
}

std::size_t SkipBlanksBack(Text text, std::size_t end) {
    while (end > 0) {
        const Character c = CharacterBefore(text, end);
        if (!IsBlank(c.meant)) break;
        end = c.begin;
    }
    return end;
}

// Whether what ends before `end` spells `name`, which is in lower case.
bool NameEndsAt(Text text, std::size_t end, Text name) {
    for (std::size_t left = name.size(); left > 0; --left) {
        const Character c = CharacterBefore(text, end);
        if (c.begin == kNone || Lower(c.meant) != name[left - 1]) {
            // A letter that only looks escaped: the "n" of a name after a backslash, say.
            if (end == 0 || Lower(text[end - 1]) != name[left - 1]) return false;
            --end;
            continue;
        }
        end = c.begin;
    }
    return true;
}

enum class Secret { kNo, kHeader, kMember };

// What the colon at `colon` is behind of.
Secret SecretBefore(Text text, std::size_t colon) {
    std::size_t end = SkipBlanksBack(text, colon);
    const Character last = CharacterBefore(text, end);
    const bool quoted = last.begin != kNone && IsQuote(last);
    if (quoted) end = last.begin;
    if (NameEndsAt(text, end, "x-auth-token") || NameEndsAt(text, end, "authorization")) {
        return quoted ? Secret::kMember : Secret::kHeader;
    }
    return quoted && NameEndsAt(text, end, "password") ? Secret::kMember : Secret::kNo;
}

// End of the line at `at`; a line that begins with a blank continues the one before it.
std::size_t EndOfLine(Text text, std::size_t at) {
    while (true) {
        while (at < text.size() && !IsLineEnd(text[at])) ++at;
        std::size_t next = at;
        if (next < text.size() && text[next] == '\r') ++next;
        if (next < text.size() && text[next] == '\n') ++next;
        if (next >= text.size() || (text[next] != ' ' && text[next] != '\t')) return at;
        at = next;
    }
}

// Start of the quote that closes the string opened by `open`; the text's end where none does. At
// depth n a quote has 2^n - 1 backslashes; a backslash of the value, standing before it, adds
// 2^(n+1) of them, and a quote of the value has 2^n more.
std::size_t EndOfString(Text text, const Character& open) {
    const bool plain = open.end - open.begin == open.backslashes + 1;
    const std::size_t period = 2 * (open.backslashes + 1);
    std::size_t at = open.end;
    while (at < text.size()) {
        if (text[at] != '\\' && text[at] != open.meant) {
            ++at;
            continue;
        }
        const Character c = CharacterAt(text, at);
        if (c.end == kNone) break;
        const bool samePlain = c.end - c.begin == c.backslashes + 1;
        if (c.meant == open.meant && samePlain == plain &&
            c.backslashes % period == open.backslashes) {
            return c.end - (open.end - open.begin);
        }
        at = c.end;
    }
    return text.size();
}

// End of the object or array at `at`, its strings passed over.
std::size_t EndOfGroup(Text text, std::size_t at) {
    std::size_t depth = 0;
    while (at < text.size()) {
        const Character c = CharacterAt(text, at);
        if (c.end == kNone) break;
        at = c.end;
        if (c.meant == '"') {
            const std::size_t closing = EndOfString(text, c);
            if (closing >= text.size()) break;
            at = closing + (c.end - c.begin);
        } else if (c.meant == '{' || c.meant == '[') {
            ++depth;
        } else if ((c.meant == '}' || c.meant == ']') && --depth == 0) {
            return at;
        }
    }
    return text.size();
}

std::size_t EndOfWord(Text text, std::size_t at) {
    const std::size_t end = text.find_first_of(",}]\r\n", at);
    return end == kNone ? text.size() : end;
}

Span MemberValue(Text text, std::size_t at) {
    at = SkipBlanks(text, at);
    if (at >= text.size()) return {at, at};
    const Character first = CharacterAt(text, at);
    if (first.end == kNone) return {at, text.size()};
    if (IsQuote(first)) return {first.end, EndOfString(text, first)};
    if (first.meant == '{' || first.meant == '[') return {at, EndOfGroup(text, at)};
    return {at, EndOfWord(text, at)};
}

Span HeaderValue(Text text, std::size_t at) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
    return {at, EndOfLine(text, at)};
}

// Finds the password of the address whose "://" begins at a colon.
class AddressPassword {
public:
    explicit AddressPassword(Text text) : m_text(text) {}

    Span At(std::size_t colon) {
        const std::size_t start = AfterSlashes(colon);
        if (start == kNone) return {};
        const std::size_t authorityEnd = EndOfAuthority(start);
        const Text authority = m_text.substr(start, authorityEnd - start);
        const std::size_t colonInIt = authority.find(':');
        if (colonInIt == kNone || authority.front() == '[') return {};
        const std::size_t separator = start + colonInIt;
        std::size_t at = authority.rfind('@');
        at = at == kNone || at < colonInIt ? LaterAt(separator, authorityEnd) : start + at;
        return at == kNone ? Span{} : Span{separator + 1, at};
    }

private:
    // Behind "scheme://", the slashes perhaps escaped; kNone where there is no such thing.
    std::size_t AfterSlashes(std::size_t colon) const {
        if (colon == 0 || !IsSchemeByte(m_text[colon - 1])) return kNone;
        std::size_t at = colon + 1;
        for (int i = 0; i < 2; ++i) {
            at = SkipBackslashes(m_text, at);
            if (at >= m_text.size() || m_text[at] != '/') return kNone;
            ++at;
        }
        return at < m_text.size() ? at : kNone;
    }

    std::size_t EndOfAuthority(std::size_t start) const {
        const std::size_t end = m_text.find_first_of("/?#\\\"' \t\r\n<>", start);
        return end == kNone ? m_text.size() : end;
    }

    // A password with a "/" or the like in it as it is: up to the last "@" of the word. Where the
    // first piece is a port number, the "@" belongs to the path.
    std::size_t LaterAt(std::size_t separator, std::size_t authorityEnd) {
        std::size_t i = separator + 1;
        while (i < authorityEnd && IsDigit(m_text[i])) ++i;
        if (i == authorityEnd) return kNone;
        if (separator >= m_wordEnd) LookAtWord(separator);
        return m_lastAt != kNone && m_lastAt > separator ? m_lastAt : kNone;
    }

    void LookAtWord(std::size_t start) {
        m_wordEnd = start;
        m_lastAt = kNone;
        while (m_wordEnd < m_text.size()) {
            const Character c = CharacterAt(m_text, m_wordEnd);
            if (c.end == kNone || IsBlank(c.meant) || c.meant == '<' || c.meant == '>') break;
            if (c.backslashes == 0 && IsQuote(c)) break;
            if (c.meant == '@') m_lastAt = c.end - 1;
            m_wordEnd = c.end;
        }
        if (m_wordEnd == start) m_wordEnd = start + 1;
    }

    Text m_text;
    // Kept from address to address, so that no word is looked at twice.
    std::size_t m_wordEnd = 0;
    std::size_t m_lastAt = kNone;
};

Span SecretAt(Text text, std::size_t colon, AddressPassword& addresses) {
    switch (SecretBefore(text, colon)) {
        case Secret::kHeader:
            return HeaderValue(text, colon + 1);
        case Secret::kMember:
            return MemberValue(text, colon + 1);
        default:
            return addresses.At(colon);
    }
}

bool MaySteer(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F) ||     // C0, DEL, C1
           (code >= 0x2028 && code <= 0x202E) ||                // separators, embeddings, overrides
           (code >= 0x2066 && code <= 0x2069) ||                // isolates
           code == 0x200E || code == 0x200F || code == 0x061C;  // direction marks
}

void AppendEscaped(std::string& out, char c) {
    out += "\\x";
    shared::AppendHex(out, c, shared::kUpperDigits);
}

// The secrets that what stands around them gives away. Each stands behind a colon, so the text is
// walked from colon to colon: what stands before it says whether, and what behind it how far is to
// be masked. Nothing is walked twice.
class NamedSpans {
public:
    explicit NamedSpans(Text text) : m_text(text), m_addresses(text), m_colon(text.find(':')) {}

    // In order and apart from each other. False: there are no more.
    bool Next(Span& span) {
        while (m_colon != kNone) {
            span = SecretAt(m_text, m_colon, m_addresses);
            m_colon = m_text.find(':', std::max(span.end, m_colon + 1));
            if (span.end > span.begin) return true;
        }
        return false;
    }

private:
    Text m_text;
    AddressPassword m_addresses;
    std::size_t m_colon;
};

// Two rows of spans as one, overlapping ones joined.
class AllSpans {
public:
    explicit AllSpans(Text text) : m_named(text), m_hidden(text, hidden_secrets::Current()) {
        m_hasNamed = m_named.Next(m_nextNamed);
        m_hasHidden = m_hidden.Next(m_nextHidden);
    }

    bool Next(Span& span) {
        if (!m_hasNamed && !m_hasHidden) return false;
        span = Take(NamedIsFirst());
        while ((m_hasNamed && m_nextNamed.begin < span.end) ||
               (m_hasHidden && m_nextHidden.begin < span.end)) {
            span.end = std::max(span.end, Take(NamedIsFirst()).end);
        }
        return true;
    }

private:
    bool NamedIsFirst() const {
        return m_hasNamed && (!m_hasHidden || m_nextNamed.begin <= m_nextHidden.begin);
    }

    Span Take(bool named) {
        const Span taken = named ? m_nextNamed : m_nextHidden;
        if (named) {
            m_hasNamed = m_named.Next(m_nextNamed);
        } else {
            m_hasHidden = m_hidden.Next(m_nextHidden);
        }
        return taken;
    }

    NamedSpans m_named;
    HiddenSpans m_hidden;
    bool m_hasNamed = false;
    bool m_hasHidden = false;
    Span m_nextNamed;
    Span m_nextHidden;
};

// Appends one character of `text` at `at`, as it is or as \xNN; gives where the next one begins.
std::size_t AppendHarmless(std::string& out, Text text, std::size_t at) {
    const auto [length, code] = shared::FirstUtf8(text.substr(at));
    if (length > 0 && !MaySteer(code)) {
        out.append(text, at, length);
        return at + length;
    }
    const std::size_t end = at + std::max<std::size_t>(length, 1);
    for (; at < end; ++at) AppendEscaped(out, text[at]);
    return end;
}

// Collects what is to be written, and writes it in pieces.
class Pieces {
public:
    explicit Pieces(const std::function<void(const std::string&)>& write) : m_write(write) {}

    void Harmless(Text text) {
        for (std::size_t at = 0; at < text.size();) {
            at = AppendHarmless(m_piece, text, at);
            if (m_piece.size() >= kPiece) Flush();
        }
    }
    void Mask() { m_piece += kMask; }
    void Flush() {
        if (!m_piece.empty()) m_write(m_piece);
        m_piece.clear();
    }

private:
    static constexpr std::size_t kPiece = 65536;
    const std::function<void(const std::string&)>& m_write;
    std::string m_piece;
};

}  // namespace

void ForDisplay(std::string_view text, const std::function<void(const std::string&)>& write) {
    AllSpans spans(text);
    Pieces pieces(write);
    std::size_t shown = 0;
    for (Span span; spans.Next(span); shown = span.end) {
        pieces.Harmless(text.substr(shown, span.begin - shown));
        pieces.Mask();
    }
    pieces.Harmless(text.substr(shown));
    pieces.Flush();
}

std::string ForDisplay(std::string_view text) {
    std::string out;
    ForDisplay(text, [&out](const std::string& piece) { out += piece; });
    return out;
}

std::string WithoutHidden(std::string_view text) {
    HiddenSpans spans(text, hidden_secrets::Current());
    std::string out;
    std::size_t copied = 0;
    for (Span span; spans.Next(span); copied = span.end) {
        out.append(text, copied, span.begin - copied).append(kMask);
    }
    return out.append(text, copied);
}
