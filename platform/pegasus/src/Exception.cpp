// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/Exception.h>

#include <Pegasus/Client/CIMClientException.h>

namespace Pegasus {

namespace {

String HttpErrorText(Uint32 status, const String& reason, const String& cimError,
                     const String& detail) {
    String text("HTTP Error (");
    text.append(String(std::to_string(status).c_str()));
    if (reason.size() != 0) text.append(String(" ")).append(reason);
    text.append(String(")"));
    if (cimError.size() != 0 || detail.size() != 0) text.append(String(":"));
    if (cimError.size() != 0) {
        text.append(String(" CIMError = \"")).append(cimError).append(String("\""));
    }
    if (detail.size() != 0) text.append(String(" Detail = \"")).append(detail).append(String("\""));
    return text.append(String("."));
}

}  // namespace

Exception::Exception(const String& message) : m_message(message) {}
Exception::~Exception() = default;
const String& Exception::getMessage() const { return m_message; }

CIMException::CIMException(CIMStatusCode code, const String& message)
    : Exception(message), m_code(code) {}
CIMException::~CIMException() = default;

NullPointer::NullPointer() : Exception("null pointer") {}
NullPointer::~NullPointer() = default;

IndexOutOfBoundsException::IndexOutOfBoundsException() : Exception("index out of bounds") {}
IndexOutOfBoundsException::~IndexOutOfBoundsException() = default;

AlreadyExistsException::AlreadyExistsException(const String& what)
    : Exception("already exists: " + what) {}
AlreadyExistsException::~AlreadyExistsException() = default;

InvalidNameException::InvalidNameException(const String& name)
    : Exception("The CIM name is not valid: " + name) {}
InvalidNameException::~InvalidNameException() = default;

InvalidNamespaceNameException::InvalidNamespaceNameException(const String& name)
    : Exception("invalid CIM namespace name: " + name) {}
InvalidNamespaceNameException::~InvalidNamespaceNameException() = default;

MalformedObjectNameException::MalformedObjectNameException(const String& text)
    : Exception("malformed object name: " + text) {}
MalformedObjectNameException::~MalformedObjectNameException() = default;

TypeMismatchException::TypeMismatchException() : Exception("type mismatch") {}
TypeMismatchException::~TypeMismatchException() = default;

UninitializedObjectException::UninitializedObjectException() : Exception("uninitialized object") {}
UninitializedObjectException::~UninitializedObjectException() = default;

InvalidDateTimeFormatException::InvalidDateTimeFormatException(const String& text)
    : Exception("invalid datetime format: " + text) {}
InvalidDateTimeFormatException::~InvalidDateTimeFormatException() = default;

AlreadyConnectedException::AlreadyConnectedException() : Exception("already connected") {}
AlreadyConnectedException::~AlreadyConnectedException() = default;

NotConnectedException::NotConnectedException() : Exception("not connected") {}
NotConnectedException::~NotConnectedException() = default;

CannotConnectException::CannotConnectException(const String& message) : Exception(message) {}
CannotConnectException::~CannotConnectException() = default;

CannotCreateSocketException::CannotCreateSocketException() : Exception("cannot create socket") {}
CannotCreateSocketException::~CannotCreateSocketException() = default;

InvalidLocatorException::InvalidLocatorException(const String& locator)
    : Exception("Invalid locator: " + locator) {}
InvalidLocatorException::~InvalidLocatorException() = default;

ConnectionTimeoutException::ConnectionTimeoutException() : Exception("connection timed out") {}
ConnectionTimeoutException::~ConnectionTimeoutException() = default;

SSLException::SSLException(const String& message) : Exception(message) {}
SSLException::~SSLException() = default;

CIMClientMalformedHTTPException::CIMClientMalformedHTTPException(const String& message)
    : Exception(message) {}
CIMClientMalformedHTTPException::~CIMClientMalformedHTTPException() = default;

CIMClientHTTPErrorException::CIMClientHTTPErrorException(Uint32 httpStatusCode,
                                                         const String& reasonPhrase,
                                                         const String& cimError,
                                                         const String& cimErrorDetail)
    : Exception(HttpErrorText(httpStatusCode, reasonPhrase, cimError, cimErrorDetail)),
      m_code(httpStatusCode),
      m_cimError(cimError),
      m_cimErrorDetail(cimErrorDetail) {}
CIMClientHTTPErrorException::~CIMClientHTTPErrorException() = default;

CIMClientXmlException::CIMClientXmlException(const String& message) : Exception(message) {}
CIMClientXmlException::~CIMClientXmlException() = default;

CIMClientResponseException::CIMClientResponseException(const String& message)
    : Exception(message) {}
CIMClientResponseException::~CIMClientResponseException() = default;

}  // namespace Pegasus
