// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CIMOBJECT_H
#define PEGASUS_CIMOBJECT_H

#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMObjectPath.h>

#include <memory>

namespace Pegasus {

class CIMInstance;

// An instance as a value of type object. (A class could be one too; this library has none.)
class CIMObject {
public:
    CIMObject() = default;
    CIMObject(const CIMInstance& instance);

    const CIMName& getClassName() const;
    const CIMObjectPath& getPath() const;
    Boolean isUninitialized() const { return !m_instance; }
    Boolean isInstance() const { return !isUninitialized(); }
    // Throws UninitializedObjectException.
    const CIMInstance& getInstance() const;

private:
    std::shared_ptr<const CIMInstance> m_instance;
};

bool operator==(const CIMObject& a, const CIMObject& b);

}  // namespace Pegasus

#endif
