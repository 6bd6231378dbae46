// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMPROPERTY_H
#define PEGASUS_CIMPROPERTY_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMQualifier.h>
#include <Pegasus/Common/CIMValue.h>

#include <memory>

namespace Pegasus {

// A handle: copies share the property.
class CIMProperty {
public:
    CIMProperty(const CIMName& name, const CIMValue& value);

    const CIMName& getName() const;
    const CIMValue& getValue() const;

    // Throws AlreadyExistsException.
    CIMProperty& addQualifier(const CIMQualifier& qualifier);
    // The position, or PEG_NOT_FOUND; ignores case.
    Uint32 findQualifier(const CIMName& name) const;
    // Throws IndexOutOfBoundsException.
    CIMConstQualifier getQualifier(Uint32 index) const;

private:
    struct Rep;

    std::shared_ptr<Rep> m_rep;
};

}  // namespace Pegasus

#endif
