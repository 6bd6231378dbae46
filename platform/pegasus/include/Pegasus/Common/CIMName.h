// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMNAME_H
#define PEGASUS_CIMNAME_H

#include <Pegasus/Common/String.h>

namespace Pegasus {

// The name of a class, property, method and so on: letters, digits, "_" and characters from U+0080
// on, not beginning with a digit. Comparison ignores case.
class CIMName {
public:
    // Null: the name of nothing.
    CIMName() = default;
    // Throws InvalidNameException.
    CIMName(const String& name);
    CIMName(const char* name);

    const String& getString() const { return m_name; }
    Boolean isNull() const { return m_name.size() == 0; }
    Boolean equal(const CIMName& other) const;
    // Whether a name could be made of it.
    static Boolean legal(const String& name);

private:
    String m_name;
};

inline bool operator==(const CIMName& a, const CIMName& b) { return a.equal(b); }
inline bool operator!=(const CIMName& a, const CIMName& b) { return !a.equal(b); }

// Names with "/" between; one leading "/" is dropped.
class CIMNamespaceName {
public:
    CIMNamespaceName() = default;
    // Throws InvalidNamespaceNameException.
    CIMNamespaceName(const String& name);
    CIMNamespaceName(const char* name);

    const String& getString() const { return m_name; }
    Boolean isNull() const { return m_name.size() == 0; }
    Boolean equal(const CIMNamespaceName& other) const;
    static Boolean legal(const String& name);

private:
    String m_name;
};

inline bool operator==(const CIMNamespaceName& a, const CIMNamespaceName& b) { return a.equal(b); }
inline bool operator!=(const CIMNamespaceName& a, const CIMNamespaceName& b) { return !a.equal(b); }

}  // namespace Pegasus

#endif
