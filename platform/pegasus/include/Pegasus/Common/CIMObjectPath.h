// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMOBJECTPATH_H
#define PEGASUS_CIMOBJECTPATH_H

#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMName.h>

#include <memory>

namespace Pegasus {

class CIMObjectPath;

// One key of an instance's path.
class CIMKeyBinding {
public:
    enum Type { BOOLEAN, STRING, NUMERIC, REFERENCE };

    // The value is kept as the text that it came as. Throws TypeMismatchException for a REFERENCE.
    CIMKeyBinding(const CIMName& name, const String& value, Type type);
    // A REFERENCE.
    CIMKeyBinding(const CIMName& name, const CIMObjectPath& reference);

    const CIMName& getName() const { return m_name; }
    Type getType() const { return m_type; }
    // Of a reference: its text.
    String getValue() const;
    // Null unless it is a REFERENCE.
    const CIMObjectPath* Reference() const { return m_reference.get(); }

private:
    CIMName m_name;
    String m_value;
    Type m_type;
    std::shared_ptr<const CIMObjectPath> m_reference;
};

// The path of a class or an instance:
//
//   [//HOST/]NAMESPACE:CLASS[.KEY=VALUE[,KEY=VALUE]...]
//
// Keys are sorted by their names, without regard to case. A path without host and namespace has no
// ":" either.
class CIMObjectPath {
public:
    CIMObjectPath() = default;
    CIMObjectPath(const String& host, const CIMNamespaceName& nameSpace, const CIMName& className,
                  const Array<CIMKeyBinding>& keyBindings = Array<CIMKeyBinding>());

    const String& getHost() const { return m_host; }
    const CIMNamespaceName& getNameSpace() const { return m_nameSpace; }
    const CIMName& getClassName() const { return m_className; }
    const Array<CIMKeyBinding>& getKeyBindings() const { return m_keys; }
    void setHost(const String& host) { m_host = host; }
    void setNameSpace(const CIMNamespaceName& nameSpace) { m_nameSpace = nameSpace; }

    String toString() const;

private:
    String m_host;
    CIMNamespaceName m_nameSpace;
    CIMName m_className;
    Array<CIMKeyBinding> m_keys;
};

}  // namespace Pegasus

#endif
