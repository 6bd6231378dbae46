// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMNAME_H
#define PEGASUS_CIMNAME_H

#include <Pegasus/Common/String.h>

namespace Pegasus {

// The name of a class, property, method and so on: letters, digits, "_" and characters from U+0080
// on, not beginning with a digit.
class CIMName {
public:
    // Null: the name of nothing.
    CIMName() = default;
    // Throws InvalidNameException.
    CIMName(const String& name);
    CIMName(const char* name) : CIMName(String(name)) {}

    const String& getString() const { return m_name; }
    Boolean isNull() const { return m_name == String::EMPTY; }
    // Whether a name could be made of it.
    static Boolean legal(const String& name);

private:
    String m_name;
};

// Names with "/" between; one leading "/" is dropped.
class CIMNamespaceName {
public:
    CIMNamespaceName() = default;
    // Throws InvalidNamespaceNameException.
    CIMNamespaceName(const String& name);
    CIMNamespaceName(const char* name) : CIMNamespaceName(String(name)) {}

    const String& getString() const { return m_name; }
    Boolean isNull() const { return m_name == String::EMPTY; }

private:
    String m_name;
};

}  // namespace Pegasus

#endif
