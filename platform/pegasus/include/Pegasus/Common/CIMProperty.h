// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMPROPERTY_H
#define PEGASUS_CIMPROPERTY_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMQualifier.h>
#include <Pegasus/Common/CIMValue.h>

#include <memory>

namespace Pegasus {

// A handle: copies share the property. Default-constructed ones throw
// UninitializedObjectException when used.
class CIMProperty {
public:
    CIMProperty() = default;
    CIMProperty(const CIMName& name, const CIMValue& value);

    const CIMName& getName() const;
    const CIMValue& getValue() const;
    CIMType getType() const { return getValue().getType(); }
    Boolean isArray() const { return getValue().isArray(); }
    // Throws TypeMismatchException when the type or being an array differs.
    void setValue(const CIMValue& value);

    // Throws AlreadyExistsException.
    CIMProperty& addQualifier(const CIMQualifier& qualifier);
    // The position, or PEG_NOT_FOUND; ignores case.
    Uint32 findQualifier(const CIMName& name) const;
    // Throws IndexOutOfBoundsException.
    CIMQualifier getQualifier(Uint32 index);
    CIMConstQualifier getQualifier(Uint32 index) const;
    Uint32 getQualifierCount() const;

    Boolean isUninitialized() const { return !m_rep; }

private:
    struct Rep;
    Rep& Held() const;

    std::shared_ptr<Rep> m_rep;
};

// The same, for reading.
class CIMConstProperty {
public:
    CIMConstProperty() = default;
    CIMConstProperty(const CIMProperty& property) : m_property(property) {}

    const CIMName& getName() const { return m_property.getName(); }
    const CIMValue& getValue() const { return m_property.getValue(); }
    CIMType getType() const { return m_property.getType(); }
    Boolean isArray() const { return m_property.isArray(); }
    Uint32 findQualifier(const CIMName& name) const { return m_property.findQualifier(name); }
    CIMConstQualifier getQualifier(Uint32 index) const { return m_property.getQualifier(index); }
    Uint32 getQualifierCount() const { return m_property.getQualifierCount(); }
    Boolean isUninitialized() const { return m_property.isUninitialized(); }

private:
    CIMProperty m_property;
};

}  // namespace Pegasus

#endif
