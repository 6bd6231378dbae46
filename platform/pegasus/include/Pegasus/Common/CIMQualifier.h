// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMQUALIFIER_H
#define PEGASUS_CIMQUALIFIER_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMValue.h>

#include <memory>

namespace Pegasus {

// A handle: copies share the qualifier. Default-constructed ones throw
// UninitializedObjectException when used.
class CIMQualifier {
public:
    CIMQualifier() = default;
    CIMQualifier(const CIMName& name, const CIMValue& value);

    const CIMName& getName() const;
    const CIMValue& getValue() const;
    CIMType getType() const { return getValue().getType(); }
    Boolean isArray() const { return getValue().isArray(); }
    Boolean isUninitialized() const { return !m_rep; }

private:
    struct Rep;
    const Rep& Held() const;

    std::shared_ptr<const Rep> m_rep;
};

// The same, for reading.
class CIMConstQualifier {
public:
    CIMConstQualifier() = default;
    CIMConstQualifier(const CIMQualifier& qualifier) : m_qualifier(qualifier) {}

    const CIMName& getName() const { return m_qualifier.getName(); }
    const CIMValue& getValue() const { return m_qualifier.getValue(); }
    CIMType getType() const { return m_qualifier.getType(); }
    Boolean isArray() const { return m_qualifier.isArray(); }
    Boolean isUninitialized() const { return m_qualifier.isUninitialized(); }

private:
    CIMQualifier m_qualifier;
};

}  // namespace Pegasus

#endif
