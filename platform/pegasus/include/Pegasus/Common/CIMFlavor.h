// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMFLAVOR_H
#define PEGASUS_CIMFLAVOR_H

#include <Pegasus/Common/Config.h>

namespace Pegasus {

// How a qualifier spreads.
class CIMFlavor {
public:
    CIMFlavor() = default;
    explicit CIMFlavor(Uint32 bits) : m_bits(bits) {}

    static const CIMFlavor NONE;
    static const CIMFlavor OVERRIDABLE;
    static const CIMFlavor TOSUBCLASS;
    static const CIMFlavor TOINSTANCE;
    static const CIMFlavor TRANSLATABLE;

    Boolean hasFlavor(const CIMFlavor& flavor) const {
        return (m_bits & flavor.m_bits) == flavor.m_bits;
    }

private:
    Uint32 m_bits = 0;
};

}  // namespace Pegasus

#endif
