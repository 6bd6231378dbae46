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

// Text that is well-formed UTF-8. NULs survive, but end it for a reader of getCString().
class String {
public:
    String() = default;
    // UTF-8. Throws Exception for bytes that are not, a NullPointer for null.
    String(const char* text);

    static const String EMPTY;

    CString getCString() const { return CString(m_bytes); }

    static Boolean equal(const String& a, const String& b) { return a.m_bytes == b.m_bytes; }
    // Without regard to the case of the letters A to Z.
    static Boolean equalNoCase(const String& a, const String& b);

private:
    friend struct StringBytes;

    std::string m_bytes;
};

inline bool operator==(const String& a, const String& b) { return String::equal(a, b); }
inline bool operator!=(const String& a, const String& b) { return !String::equal(a, b); }
String operator+(const String& a, const String& b);

}  // namespace Pegasus

#endif
