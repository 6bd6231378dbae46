// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CLIENT_CIMCLIENTEXCEPTION_H
#define PEGASUS_CLIENT_CIMCLIENTEXCEPTION_H

#include <Pegasus/Common/Exception.h>

namespace Pegasus {

// The peer does not speak HTTP as a CIM server does, or it closed the connection.
class CIMClientMalformedHTTPException : public Exception {
public:
    explicit CIMClientMalformedHTTPException(const String& message);
    ~CIMClientMalformedHTTPException() override;
};

// An answer that is not 200, or a CIMError header:
//
//   HTTP Error (400 Bad Request): CIMError = "request-not-valid" Detail = "...".
class CIMClientHTTPErrorException : public Exception {
public:
    CIMClientHTTPErrorException(Uint32 httpStatusCode, const String& reasonPhrase,
                                const String& cimError = String(),
                                const String& cimErrorDetail = String());
    ~CIMClientHTTPErrorException() override;

    // The HTTP status.
    Uint32 getCode() const { return m_code; }
    // Empty where the answer has none.
    const String& getCIMError() const { return m_cimError; }
    const String& getCIMErrorDetail() const { return m_cimErrorDetail; }

private:
    Uint32 m_code;
    String m_cimError;
    String m_cimErrorDetail;
};

// The answer's body is not XML, or not the CIM-XML that was asked for.
class CIMClientXmlException : public Exception {
public:
    explicit CIMClientXmlException(const String& message);
    ~CIMClientXmlException() override;
};

// The answer belongs to another request or another protocol version.
class CIMClientResponseException : public Exception {
public:
    explicit CIMClientResponseException(const String& message);
    ~CIMClientResponseException() override;
};

}  // namespace Pegasus

#endif
