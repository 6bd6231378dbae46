// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMPARAMVALUE_H
#define PEGASUS_CIMPARAMVALUE_H

#include <Pegasus/Common/CIMValue.h>

namespace Pegasus {

// One parameter of a method.
class CIMParamValue {
public:
    // Untyped ones go out without their type.
    CIMParamValue(const String& parameterName, const CIMValue& value, Boolean isTyped = true)
        : m_name(parameterName), m_value(value), m_isTyped(isTyped) {}

    const String& getParameterName() const { return m_name; }
    const CIMValue& getValue() const { return m_value; }
    Boolean isTyped() const { return m_isTyped; }

private:
    String m_name;
    CIMValue m_value;
    Boolean m_isTyped;
};

}  // namespace Pegasus

#endif
