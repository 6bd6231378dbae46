// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CHAR16_H
#define PEGASUS_CHAR16_H

#include <Pegasus/Common/Config.h>

namespace Pegasus {

// One UTF-16 unit.
class Char16 {
public:
    Char16() = default;
    Char16(Uint16 unit) : m_unit(unit) {}

    operator Uint16() const { return m_unit; }

private:
    Uint16 m_unit = 0;
};

inline bool operator==(const Char16& a, const Char16& b) { return Uint16(a) == Uint16(b); }
inline bool operator!=(const Char16& a, const Char16& b) { return !(a == b); }

}  // namespace Pegasus

#endif
