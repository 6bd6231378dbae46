// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_MASKING_H
#define VARNEX_PLATFORM_SRC_MASKING_H

#include <functional>
#include <string>
#include <string_view>

// `text` for a terminal or a file, handed over piece by piece: memory does not grow with it.
//
// Ten asterisks stand in the place of each secret:
//   - those that the host has named (HiddenSecrets.h);
//   - the value of a header line "X-Auth-Token:" or "Authorization:" up to the end of the line
//     (continued lines included), or of the string where the name is a JSON member's;
//   - the value, of whatever type, of a JSON member whose name ends in "Password", also inside
//     JSON that is itself escaped as a string, once or several times;
//   - the password of scheme://user:password@.
// Letter case, blanks and \u escapes make no difference. What is cut off is masked to its end.
// Takes time in proportion to the length.
//
// The rest is one line that cannot steer a terminal: control bytes (C0, DEL, C1 also as UTF-8),
// bytes that are no UTF-8, line and paragraph separators and marks that turn the direction of
// writing are written as \xNN, byte by byte.
void ForDisplay(std::string_view text, const std::function<void(const std::string&)>& write);
std::string ForDisplay(std::string_view text);

// `text` with ten asterisks in the place of those secrets that the host has named, and else as it
// is.
std::string WithoutHidden(std::string_view text);

#endif
