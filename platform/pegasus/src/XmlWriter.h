// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_XMLWRITER_H
#define VARNEX_PEGASUS_XMLWRITER_H

#include <Pegasus/Common/CIMObjectPath.h>
#include <Pegasus/Common/CIMParamValue.h>
#include <Pegasus/Common/CIMPropertyList.h>

#include <string>

// CIM-XML (DSP0201) as it goes out: a line end after each element, values escaped.
namespace Pegasus::Internal {

struct EnumerateInstancesRequest {
    CIMNamespaceName nameSpace;
    CIMName className;
    Boolean deepInheritance;
    Boolean localOnly;
    Boolean includeQualifiers;
    Boolean includeClassOrigin;
    CIMPropertyList propertyList;
};

// Whole documents. Parameters that have their default value are left out.
std::string WriteEnumerateInstances(Uint32 messageId, const EnumerateInstancesRequest& request);
std::string WriteInvokeMethod(Uint32 messageId, const CIMNamespaceName& nameSpace,
                              const CIMObjectPath& object, const CIMName& method,
                              const Array<CIMParamValue>& parameters);

}  // namespace Pegasus::Internal

#endif
