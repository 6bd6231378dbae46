// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMDATETIME_H
#define PEGASUS_CIMDATETIME_H

#include <Pegasus/Common/String.h>

namespace Pegasus {

// A time stamp "yyyymmddhhmmss.mmmmmmsutc" or an interval "ddddddddhhmmss.mmmmmm:000" (DSP0004);
// "*" stands for digits that are not known.
class CIMDateTime {
public:
    // The interval of no length.
    CIMDateTime();
    // Throws InvalidDateTimeFormatException.
    CIMDateTime(const String& text);

    const String& toString() const { return m_text; }

private:
    String m_text;
};

inline bool operator==(const CIMDateTime& a, const CIMDateTime& b) {
    return a.toString() == b.toString();
}
inline bool operator!=(const CIMDateTime& a, const CIMDateTime& b) { return !(a == b); }

}  // namespace Pegasus

#endif
