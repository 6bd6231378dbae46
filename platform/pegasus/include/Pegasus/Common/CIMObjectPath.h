// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMOBJECTPATH_H
#define PEGASUS_CIMOBJECTPATH_H

#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMName.h>

namespace Pegasus {

class CIMValue;

// One key of an instance's path: the value is kept as the text that it came as.
class CIMKeyBinding {
public:
    enum Type { BOOLEAN, STRING, NUMERIC, REFERENCE };

    CIMKeyBinding() = default;
    CIMKeyBinding(const CIMName& name, const String& value, Type type);
    // Throws TypeMismatchException for arrays and values that no key can have.
    CIMKeyBinding(const CIMName& name, const CIMValue& value);

    const CIMName& getName() const { return m_name; }
    const String& getValue() const { return m_value; }
    Type getType() const { return m_type; }

private:
    CIMName m_name;
    String m_value;
    Type m_type = STRING;
};

// Names compare without case; the rest as text.
bool operator==(const CIMKeyBinding& a, const CIMKeyBinding& b);
inline bool operator!=(const CIMKeyBinding& a, const CIMKeyBinding& b) { return !(a == b); }

// The path of a class or an instance:
//
//   [//HOST/]NAMESPACE:CLASS[.KEY=VALUE[,KEY=VALUE]...]
//
// Keys are sorted by their names, without regard to case, as soon as they enter. A path without
// host and namespace has no ":" either.
class CIMObjectPath {
public:
    CIMObjectPath() = default;
    // Throws MalformedObjectNameException, for a bad namespace InvalidNamespaceNameException.
    CIMObjectPath(const String& text);
    CIMObjectPath(const char* text);
    CIMObjectPath(const String& host, const CIMNamespaceName& nameSpace, const CIMName& className,
                  const Array<CIMKeyBinding>& keyBindings = Array<CIMKeyBinding>());

    const String& getHost() const { return m_host; }
    const CIMNamespaceName& getNameSpace() const { return m_nameSpace; }
    const CIMName& getClassName() const { return m_className; }
    const Array<CIMKeyBinding>& getKeyBindings() const { return m_keys; }
    void setHost(const String& host) { m_host = host; }
    void setNameSpace(const CIMNamespaceName& nameSpace) { m_nameSpace = nameSpace; }
    void setClassName(const CIMName& className) { m_className = className; }
    void setKeyBindings(const Array<CIMKeyBinding>& keyBindings);

    String toString() const;
    Boolean identical(const CIMObjectPath& other) const;

private:
    String m_host;
    CIMNamespaceName m_nameSpace;
    CIMName m_className;
    Array<CIMKeyBinding> m_keys;
};

inline bool operator==(const CIMObjectPath& a, const CIMObjectPath& b) { return a.identical(b); }
inline bool operator!=(const CIMObjectPath& a, const CIMObjectPath& b) { return !a.identical(b); }

}  // namespace Pegasus

#endif
