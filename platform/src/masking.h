// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_MASKING_H
#define VARNEX_PLATFORM_SRC_MASKING_H

#include <string>

// `text` with ten asterisks in the place of each secret:
//   - the value of a header line "X-Auth-Token:" or "Authorization:" up to the end of the line
//     (continued lines included), or of the string where the name is a JSON member's;
//   - the value, of whatever type, of a JSON member whose name ends in "Password", also inside
//     JSON that is itself escaped as a string, once or several times;
//   - the password of scheme://user:password@.
// Letter case, blanks and \u escapes make no difference. What is cut off is masked to its end.
// Takes time in proportion to the length.
std::string WithoutSecrets(const std::string& text);

// `text` as one line that cannot steer a terminal: control bytes (C0, DEL, C1 also as UTF-8), bytes
// that are no UTF-8, line and paragraph separators and marks that turn the direction of writing
// are written as \xNN, byte by byte.
std::string WithoutControls(const std::string& text);

inline std::string ForDisplay(const std::string& text) {
    return WithoutControls(WithoutSecrets(text));
}

#endif
