// SPDX-License-Identifier: Apache-2.0
// Qualifiers, properties, instances: handles on shared content.
#include <Pegasus/Common/CIMInstance.h>

#include "NamedList.h"

namespace Pegasus {

namespace {

template <class Rep>
Rep& Initialized(const std::shared_ptr<Rep>& rep) {
    if (!rep) throw UninitializedObjectException();
    return *rep;
}

using Qualifiers = Internal::NamedList<CIMQualifier>;

void Add(Qualifiers& qualifiers, const CIMQualifier& qualifier) {
    if (qualifiers.Add(qualifier)) return;
    throw AlreadyExistsException("qualifier \"" + qualifier.getName().getString() + "\"");
}

}  // namespace

struct CIMQualifier::Rep {
    CIMName name;
    CIMValue value;
};

CIMQualifier::CIMQualifier(const CIMName& name, const CIMValue& value)
    : m_rep(std::make_shared<const Rep>(Rep{name, value})) {
    if (name.isNull()) throw UninitializedObjectException();
}

const CIMQualifier::Rep& CIMQualifier::Held() const { return Initialized(m_rep); }
const CIMName& CIMQualifier::getName() const { return Held().name; }
const CIMValue& CIMQualifier::getValue() const { return Held().value; }

struct CIMProperty::Rep {
    CIMName name;
    CIMValue value;
    // Rare, so behind a pointer: an enumeration can bring many thousand properties.
    std::unique_ptr<Qualifiers> own;

    static const Qualifiers kNone;
    const Qualifiers& AllQualifiers() const { return own ? *own : kNone; }
};

const Qualifiers CIMProperty::Rep::kNone;

CIMProperty::CIMProperty(const CIMName& name, const CIMValue& value)
    : m_rep(std::make_shared<Rep>(Rep{name, value, nullptr})) {
    if (name.isNull()) throw UninitializedObjectException();
}

CIMProperty::Rep& CIMProperty::Held() const { return Initialized(m_rep); }
const CIMName& CIMProperty::getName() const { return Held().name; }
const CIMValue& CIMProperty::getValue() const { return Held().value; }

void CIMProperty::setValue(const CIMValue& value) {
    if (value.getType() != getType() || value.isArray() != isArray()) throw TypeMismatchException();
    Held().value = value;
}

CIMProperty& CIMProperty::addQualifier(const CIMQualifier& qualifier) {
    Rep& held = Held();
    if (!held.own) held.own = std::make_unique<Qualifiers>();
    Add(*held.own, qualifier);
    return *this;
}

Uint32 CIMProperty::findQualifier(const CIMName& name) const {
    return Held().AllQualifiers().Find(name);
}

CIMQualifier CIMProperty::getQualifier(Uint32 index) { return Held().AllQualifiers().At(index); }

CIMConstQualifier CIMProperty::getQualifier(Uint32 index) const {
    return Held().AllQualifiers().At(index);
}

Uint32 CIMProperty::getQualifierCount() const { return Held().AllQualifiers().Size(); }

struct CIMInstance::Rep {
    CIMObjectPath path;  // its class name is the instance's
    Internal::NamedList<CIMProperty> properties;
};

CIMInstance::CIMInstance(const CIMName& className)
    : m_rep(std::make_shared<Rep>(Rep{{String(), CIMNamespaceName(), className}, {}})) {
    if (className.isNull()) throw UninitializedObjectException();
}

CIMInstance::Rep& CIMInstance::Held() const { return Initialized(m_rep); }
const CIMName& CIMInstance::getClassName() const { return Held().path.getClassName(); }
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

CIMConstProperty CIMInstance::getProperty(Uint32 index) const {
    return Held().properties.At(index);
}

Uint32 CIMInstance::getPropertyCount() const { return Held().properties.Size(); }

}  // namespace Pegasus
