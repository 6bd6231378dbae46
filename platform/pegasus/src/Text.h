// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_TEXT_H
#define VARNEX_PEGASUS_TEXT_H

#include <Pegasus/Common/String.h>

#include <string>
#include <string_view>

namespace Pegasus {

// The one way for the library's own code to the units of a text.
struct StringUnits {
    static const std::u16string& Of(const String& text) { return text.m_units; }
    static String Make(std::u16string units) {
        String text;
        text.m_units.swap(units);
        return text;
    }
};

namespace Internal {

// Throws Exception where the bytes are not UTF-8.
String FromUtf8(std::string_view bytes);
// For texts of a peer that must not fail again: UTF-8, or else Latin-1.
String FromPeer(std::string_view bytes);
// Half a surrogate pair becomes U+FFFD.
std::string ToUtf8(const String& text);
// One byte per unit, its lower half.
std::string ToLatin1(const String& text);

inline char16_t FoldCase(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
}
// Below, at or above 0, by units without the case of A to Z.
int CompareNoCase(const String& a, const String& b);

// Without blanks, tabs and line ends at both ends.
std::string_view Trimmed(std::string_view text);

// "%2F" for "/" and so on. Letters, digits and -_.!~*'() stay.
std::string PercentEncode(std::string_view bytes);

}  // namespace Internal
}  // namespace Pegasus

#endif
