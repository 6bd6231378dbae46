// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMINSTANCE_H
#define PEGASUS_CIMINSTANCE_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMObjectPath.h>
#include <Pegasus/Common/CIMProperty.h>

#include <memory>

namespace Pegasus {

// A handle: copies share the instance. Default-constructed ones throw UninitializedObjectException
// when used. Properties keep the order in which they were added.
class CIMInstance {
public:
    CIMInstance() = default;
    CIMInstance(const CIMName& className);

    // What an enumeration returned has neither host nor namespace in its path.
    const CIMObjectPath& getPath() const;
    void setPath(const CIMObjectPath& path);

    // Throws AlreadyExistsException: already exists: property "NAME"
    CIMInstance& addProperty(const CIMProperty& property);
    // The position, or PEG_NOT_FOUND; ignores case.
    Uint32 findProperty(const CIMName& name) const;
    // Throws IndexOutOfBoundsException.
    CIMProperty getProperty(Uint32 index);
    Uint32 getPropertyCount() const;

    Boolean isUninitialized() const { return !m_rep; }

private:
    struct Rep;
    Rep& Held() const;

    std::shared_ptr<Rep> m_rep;
};

}  // namespace Pegasus

#endif
