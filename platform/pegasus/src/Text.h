// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_TEXT_H
#define VARNEX_PEGASUS_TEXT_H

#include <Pegasus/Common/String.h>

#include <string>
#include <string_view>
#include <utility>

namespace Pegasus {

// The one way for the library's own code to the bytes of a text.
struct StringBytes {
    static const std::string& Of(const String& text) { return text.m_bytes; }
    // `utf8` is known to be that.
    static String Make(std::string utf8) {
        String text;
        text.m_bytes = std::move(utf8);
        return text;
    }
};

namespace Internal {

// Throws Exception where the bytes are not UTF-8.
String FromUtf8(std::string_view bytes);
// For texts of a peer that must not fail again: UTF-8, or else Latin-1.
String FromPeer(std::string_view bytes);
inline const std::string& ToUtf8(const String& text) { return StringBytes::Of(text); }
// One byte per UTF-16 unit, its lower half.
std::string ToLatin1(const String& text);

// Below, at or above 0, without the case of A to Z.
int CompareNoCase(const String& a, const String& b);

// Without blanks, tabs and line ends at both ends.
std::string_view Trimmed(std::string_view text);

// "%2F" for "/" and so on. Letters, digits and -_.!~*'() stay.
std::string PercentEncode(std::string_view bytes);

}  // namespace Internal
}  // namespace Pegasus

#endif
