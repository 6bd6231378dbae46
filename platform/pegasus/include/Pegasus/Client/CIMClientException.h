// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CLIENT_CIMCLIENTEXCEPTION_H
#define PEGASUS_CLIENT_CIMCLIENTEXCEPTION_H

#include <Pegasus/Common/Exception.h>

namespace Pegasus {

// The peer does not speak HTTP as a CIM server does, or it closed the connection.
class CIMClientMalformedHTTPException : public Exception {
public:
    explicit CIMClientMalformedHTTPException(const String& message) : Exception(message) {}
};

// An answer that is not 200, or a CIMError header:
//
//   HTTP Error (400 Bad Request): CIMError = "request-not-valid" Detail = "...".
class CIMClientHTTPErrorException : public Exception {
public:
    // The last two are empty where the answer has none.
    CIMClientHTTPErrorException(Uint32 httpStatusCode, const String& reasonPhrase,
                                const String& cimError, const String& cimErrorDetail);
};

// The answer's body is not XML, or not the CIM-XML that was asked for.
class CIMClientXmlException : public Exception {
public:
    explicit CIMClientXmlException(const String& message) : Exception(message) {}
};

// The answer belongs to another request or another protocol version.
class CIMClientResponseException : public Exception {
public:
    explicit CIMClientResponseException(const String& message) : Exception(message) {}
};

}  // namespace Pegasus

#endif
