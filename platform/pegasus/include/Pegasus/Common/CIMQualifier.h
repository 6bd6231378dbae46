// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMQUALIFIER_H
#define PEGASUS_CIMQUALIFIER_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMValue.h>

#include <memory>

namespace Pegasus {

// A handle: copies share the qualifier, which never changes.
class CIMQualifier {
public:
    CIMQualifier(const CIMName& name, const CIMValue& value)
        : m_rep(std::make_shared<const Rep>(Rep{name, value})) {}

    const CIMName& getName() const { return m_rep->name; }
    const CIMValue& getValue() const { return m_rep->value; }
    CIMType getType() const { return getValue().getType(); }
    Boolean isArray() const { return getValue().isArray(); }

private:
    struct Rep {
        CIMName name;
        CIMValue value;
    };

    std::shared_ptr<const Rep> m_rep;
};

using CIMConstQualifier = CIMQualifier;

}  // namespace Pegasus

#endif
