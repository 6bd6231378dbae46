// SPDX-License-Identifier: Apache-2.0
// Qualifiers, properties, instances, objects: handles on shared content.
#include <Pegasus/Common/CIMInstance.h>

#include <algorithm>

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

bool SameQualifier(const CIMQualifier& a, const CIMQualifier& b) {
    return a.getName() == b.getName() && a.getValue() == b.getValue();
}

bool SameProperty(const CIMProperty& a, const CIMProperty& b) {
    if (a.getName() != b.getName() || a.getValue() != b.getValue()) return false;
    if (a.getQualifierCount() != b.getQualifierCount()) return false;
    for (Uint32 i = 0; i < a.getQualifierCount(); ++i) {
        if (a.getQualifier(i).getName() != b.getQualifier(i).getName()) return false;
        if (a.getQualifier(i).getValue() != b.getQualifier(i).getValue()) return false;
    }
    return true;
}

}  // namespace

struct CIMQualifier::Rep {
    CIMName name;
    CIMValue value;
    CIMFlavor flavor;
    Boolean propagated;
};

CIMQualifier::CIMQualifier(const CIMName& name, const CIMValue& value, const CIMFlavor& flavor,
                           Boolean propagated)
    : m_rep(std::make_shared<Rep>(Rep{name, value, flavor, propagated})) {
    if (name.isNull()) throw UninitializedObjectException();
}

CIMQualifier::Rep& CIMQualifier::Held() const { return Initialized(m_rep); }
const CIMName& CIMQualifier::getName() const { return Held().name; }
const CIMValue& CIMQualifier::getValue() const { return Held().value; }
const CIMFlavor& CIMQualifier::getFlavor() const { return Held().flavor; }
Boolean CIMQualifier::getPropagated() const { return Held().propagated; }
void CIMQualifier::setValue(const CIMValue& value) { Held().value = value; }

struct CIMProperty::Rep {
    CIMName name;
    CIMValue value;
    // Rare things stand behind one pointer: an enumeration can bring many thousand properties.
    struct Rare {
        Uint32 arraySize = 0;
        CIMName referenceClassName;
        CIMName classOrigin;
        Boolean propagated = false;
        Qualifiers qualifiers;
    };
    std::unique_ptr<Rare> rare;

    static const Rare kNone;
    const Rare& Details() const { return rare ? *rare : kNone; }
    Rare& WritableDetails() {
        if (!rare) rare = std::make_unique<Rare>();
        return *rare;
    }
};

const CIMProperty::Rep::Rare CIMProperty::Rep::kNone;

CIMProperty::CIMProperty(const CIMName& name, const CIMValue& value, Uint32 arraySize,
                         const CIMName& referenceClassName, const CIMName& classOrigin,
                         Boolean propagated)
    : m_rep(std::make_shared<Rep>(Rep{name, value, nullptr})) {
    if (name.isNull()) throw UninitializedObjectException();
    if (arraySize == 0 && referenceClassName.isNull() && classOrigin.isNull() && !propagated)
        return;
    m_rep->rare = std::make_unique<Rep::Rare>(
        Rep::Rare{arraySize, referenceClassName, classOrigin, propagated, {}});
}

CIMProperty::Rep& CIMProperty::Held() const { return Initialized(m_rep); }
const CIMName& CIMProperty::getName() const { return Held().name; }
const CIMValue& CIMProperty::getValue() const { return Held().value; }
Uint32 CIMProperty::getArraySize() const { return Held().Details().arraySize; }
const CIMName& CIMProperty::getReferenceClassName() const {
    return Held().Details().referenceClassName;
}
const CIMName& CIMProperty::getClassOrigin() const { return Held().Details().classOrigin; }
Boolean CIMProperty::getPropagated() const { return Held().Details().propagated; }

void CIMProperty::setValue(const CIMValue& value) {
    if (value.getType() != getType() || value.isArray() != isArray()) throw TypeMismatchException();
    Held().value = value;
}

CIMProperty& CIMProperty::addQualifier(const CIMQualifier& qualifier) {
    Add(Held().WritableDetails().qualifiers, qualifier);
    return *this;
}

Uint32 CIMProperty::findQualifier(const CIMName& name) const {
    return Held().Details().qualifiers.Find(name);
}

CIMQualifier CIMProperty::getQualifier(Uint32 index) {
    return Held().Details().qualifiers.At(index);
}

CIMConstQualifier CIMProperty::getQualifier(Uint32 index) const {
    return Held().Details().qualifiers.At(index);
}

Uint32 CIMProperty::getQualifierCount() const { return Held().Details().qualifiers.Size(); }

CIMProperty CIMProperty::clone() const {
    CIMProperty copy(getName(), getValue(), getArraySize(), getReferenceClassName(),
                     getClassOrigin(), getPropagated());
    for (const CIMQualifier& qualifier : Held().Details().qualifiers) {
        copy.addQualifier(CIMQualifier(qualifier.getName(), qualifier.getValue(),
                                       qualifier.getFlavor(), qualifier.getPropagated()));
    }
    return copy;
}

struct CIMInstance::Rep {
    CIMObjectPath path;  // its class name is the instance's
    Qualifiers qualifiers;
    Internal::NamedList<CIMProperty> properties;
};

CIMInstance::CIMInstance(const CIMName& className)
    : m_rep(std::make_shared<Rep>(Rep{{String(), CIMNamespaceName(), className}, {}, {}})) {
    if (className.isNull()) throw UninitializedObjectException();
}

CIMInstance::Rep& CIMInstance::Held() const { return Initialized(m_rep); }
const CIMName& CIMInstance::getClassName() const { return Held().path.getClassName(); }
const CIMObjectPath& CIMInstance::getPath() const { return Held().path; }
void CIMInstance::setPath(const CIMObjectPath& path) { Held().path = path; }

CIMInstance& CIMInstance::addQualifier(const CIMQualifier& qualifier) {
    Add(Held().qualifiers, qualifier);
    return *this;
}

Uint32 CIMInstance::findQualifier(const CIMName& name) const {
    return Held().qualifiers.Find(name);
}

CIMConstQualifier CIMInstance::getQualifier(Uint32 index) const {
    return Held().qualifiers.At(index);
}

Uint32 CIMInstance::getQualifierCount() const { return Held().qualifiers.Size(); }

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

void CIMInstance::removeProperty(Uint32 index) { Held().properties.Remove(index); }

Uint32 CIMInstance::getPropertyCount() const { return Held().properties.Size(); }

CIMInstance CIMInstance::clone() const {
    CIMInstance copy(getClassName());
    copy.setPath(getPath());
    for (const CIMQualifier& qualifier : Held().qualifiers) copy.addQualifier(qualifier);
    for (const CIMProperty& property : Held().properties) copy.addProperty(property.clone());
    return copy;
}

Boolean CIMInstance::identical(const CIMInstance& other) const {
    if (m_rep == other.m_rep) return true;
    if (!m_rep || !other.m_rep) return false;
    const Rep& a = *m_rep;
    const Rep& b = *other.m_rep;
    return a.path == b.path &&
           std::equal(a.qualifiers.begin(), a.qualifiers.end(), b.qualifiers.begin(),
                      b.qualifiers.end(), SameQualifier) &&
           std::equal(a.properties.begin(), a.properties.end(), b.properties.begin(),
                      b.properties.end(), SameProperty);
}

CIMObject::CIMObject(const CIMInstance& instance)
    : m_instance(std::make_shared<const CIMInstance>(instance)) {
    if (instance.isUninitialized()) throw UninitializedObjectException();
}

const CIMInstance& CIMObject::getInstance() const {
    if (!m_instance) throw UninitializedObjectException();
    return *m_instance;
}

const CIMName& CIMObject::getClassName() const { return getInstance().getClassName(); }
const CIMObjectPath& CIMObject::getPath() const { return getInstance().getPath(); }

bool operator==(const CIMObject& a, const CIMObject& b) {
    if (a.isUninitialized() || b.isUninitialized())
        return a.isUninitialized() == b.isUninitialized();
    return a.getInstance() == b.getInstance();
}

}  // namespace Pegasus
