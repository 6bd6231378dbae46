// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_STRING_H
#define PEGASUS_STRING_H

#include <Pegasus/Common/Config.h>

#include <string>
#include <utility>

namespace Pegasus {

// UTF-8 text that outlives nothing: the pointer belongs to this object.
//
//   std::string text((const char*)string.getCString());  // fine: dies after the expression
//   const char* p = string.getCString();                  // dangling
class CString {
public:
    CString() = default;

    operator const char*() const { return m_text.c_str(); }

private:
    friend class String;
    explicit CString(std::string text) : m_text(std::move(text)) {}

    std::string m_text;
};

// Text, in UTF-16 inside and UTF-8 outside; round trips are exact, embedded NULs survive.
// Positions and sizes count UTF-16 units.
class String {
public:
    String() = default;
    String(const String&) = default;
    // UTF-8. Throws Exception for bytes that are not, a NullPointer for null.
    String(const char* text);
    String(const char* text, Uint32 n);
    String& operator=(const String&) = default;
    // A moved-from text is empty.
    String(String&& other) noexcept { m_units.swap(other.m_units); }
    String& operator=(String&& other) noexcept {
        m_units.swap(other.m_units);
        return *this;
    }
    ~String() = default;

    static const String EMPTY;

    Uint32 size() const { return static_cast<Uint32>(m_units.size()); }
    CString getCString() const;
    String& append(const String& text);
    // From `index` to the end or `n` units; throws IndexOutOfBoundsException beyond the end.
    String subString(Uint32 index, Uint32 n = PEG_NOT_FOUND) const;
    // The position of the first occurrence, or PEG_NOT_FOUND.
    Uint32 find(const String& text) const;

    static Boolean equal(const String& a, const String& b) { return a.m_units == b.m_units; }
    // Without regard to the case of the letters A to Z.
    static Boolean equalNoCase(const String& a, const String& b);

private:
    friend struct StringUnits;

    std::u16string m_units;
};

inline bool operator==(const String& a, const String& b) { return String::equal(a, b); }
inline bool operator!=(const String& a, const String& b) { return !String::equal(a, b); }
String operator+(const String& a, const String& b);
// Not UTF-8: one byte per character up to U+00FF. Write getCString() where UTF-8 is wanted.

}  // namespace Pegasus

#endif
