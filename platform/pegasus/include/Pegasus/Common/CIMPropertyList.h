// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMPROPERTYLIST_H
#define PEGASUS_CIMPROPERTYLIST_H

#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMName.h>

namespace Pegasus {

// Which properties are wanted. Null, the default, means all; empty means none.
class CIMPropertyList {
public:
    CIMPropertyList() = default;
    CIMPropertyList(const Array<CIMName>& propertyNames)
        : m_isNull(false), m_names(propertyNames) {}

    Boolean isNull() const { return m_isNull; }
    const Array<CIMName>& getPropertyNameArray() const { return m_names; }

private:
    Boolean m_isNull = true;
    Array<CIMName> m_names;
};

}  // namespace Pegasus

#endif
