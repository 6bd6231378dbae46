// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PEGASUS_XMLREADER_H
#define VARNEX_PEGASUS_XMLREADER_H

#include <Pegasus/Common/CIMInstance.h>
#include <Pegasus/Common/CIMParamValue.h>

#include <optional>
#include <string>

// Answers as CIM-XML documents (DSP0201). Every element must be where the DTD has it. Nothing is
// fetched, declared entities are never expanded, and the depth of the calls does not depend on the
// depth of the document (nested references aside, which are limited).
namespace Pegasus::Internal {

struct CimError {
    CIMStatusCode code;
    String description;
};

struct EnumerateInstancesAnswer {
    std::optional<CimError> error;
    Array<CIMInstance> instances;
};

struct InvokeMethodAnswer {
    std::optional<CimError> error;
    CIMValue returnValue;
    Array<CIMParamValue> outParameters;
};

// `document` is parsed in place: it is of no use afterwards. Throw CIMClientXmlException, and
// CIMClientResponseException for another protocol version or message number.
EnumerateInstancesAnswer ReadEnumerateInstances(std::string& document, Uint32 messageId);
InvokeMethodAnswer ReadInvokeMethod(std::string& document, Uint32 messageId);

}  // namespace Pegasus::Internal

#endif
