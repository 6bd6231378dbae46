// SPDX-License-Identifier: Apache-2.0
// Properties and instances: handles on shared content.
#include <Pegasus/Common/CIMInstance.h>

#include "NamedList.h"

namespace Pegasus {

struct CIMProperty::Rep {
    CIMName name;
    CIMValue value;
    // Rare, so behind a pointer: an enumeration can bring many thousand properties.
    std::unique_ptr<Internal::NamedList<CIMQualifier>> qualifiers;
};

CIMProperty::CIMProperty(const CIMName& name, const CIMValue& value)
    : m_rep(std::make_shared<Rep>(Rep{name, value, nullptr})) {}

const CIMName& CIMProperty::getName() const { return m_rep->name; }
const CIMValue& CIMProperty::getValue() const { return m_rep->value; }

CIMProperty& CIMProperty::addQualifier(const CIMQualifier& qualifier) {
    if (!m_rep->qualifiers) {
        m_rep->qualifiers = std::make_unique<Internal::NamedList<CIMQualifier>>();
    }
    if (!m_rep->qualifiers->Add(qualifier)) {
        throw AlreadyExistsException("qualifier \"" + qualifier.getName().getString() + "\"");
    }
    return *this;
}

Uint32 CIMProperty::findQualifier(const CIMName& name) const {
    return m_rep->qualifiers ? m_rep->qualifiers->Find(name) : PEG_NOT_FOUND;
}

CIMConstQualifier CIMProperty::getQualifier(Uint32 index) const {
    if (!m_rep->qualifiers) throw IndexOutOfBoundsException();
    return m_rep->qualifiers->At(index);
}

struct CIMInstance::Rep {
    CIMObjectPath path;  // its class name is the instance's
    Internal::NamedList<CIMProperty> properties;
};

CIMInstance::CIMInstance(const CIMName& className)
    : m_rep(std::make_shared<Rep>(Rep{{String(), CIMNamespaceName(), className}, {}})) {}

CIMInstance::Rep& CIMInstance::Held() const {
    if (!m_rep) throw UninitializedObjectException();
    return *m_rep;
}

const CIMObjectPath& CIMInstance::getPath() const { return Held().path; }
void CIMInstance::setPath(const CIMObjectPath& path) { Held().path = path; }

CIMInstance& CIMInstance::addProperty(const CIMProperty& property) {
    if (!Held().properties.Add(property)) {
        throw AlreadyExistsException("property \"" + property.getName().getString() + "\"");
    }
    return *this;
}

Uint32 CIMInstance::findProperty(const CIMName& name) const { return Held().properties.Find(name); }
CIMProperty CIMInstance::getProperty(Uint32 index) { return Held().properties.At(index); }
Uint32 CIMInstance::getPropertyCount() const { return Held().properties.Size(); }

}  // namespace Pegasus
