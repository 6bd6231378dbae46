// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_EXCEPTION_H
#define PEGASUS_EXCEPTION_H

#include <Pegasus/Common/CIMStatusCode.h>
#include <Pegasus/Common/String.h>

namespace Pegasus {

// Base of everything that this library throws; all others derive from it directly. Not a
// std::exception.
class Exception {
public:
    explicit Exception(const String& message);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    virtual ~Exception();

    virtual const String& getMessage() const;

private:
    String m_message;
};

// The server, or the provider behind it, reports a CIM error. The message is the server's own
// text, untouched; a trailer without one gives the code's name.
class CIMException : public Exception {
public:
    explicit CIMException(CIMStatusCode code = CIM_ERR_SUCCESS, const String& message = String());
    ~CIMException() override;

    CIMStatusCode getCode() const { return m_code; }

private:
    CIMStatusCode m_code;
};

// "null pointer"
class NullPointer : public Exception {
public:
    NullPointer();
    ~NullPointer() override;
};

// "index out of bounds"
class IndexOutOfBoundsException : public Exception {
public:
    IndexOutOfBoundsException();
    ~IndexOutOfBoundsException() override;
};

// "already exists: " + what
class AlreadyExistsException : public Exception {
public:
    explicit AlreadyExistsException(const String& what);
    ~AlreadyExistsException() override;
};

// "The CIM name is not valid: " + name
class InvalidNameException : public Exception {
public:
    explicit InvalidNameException(const String& name);
    ~InvalidNameException() override;
};

// "invalid CIM namespace name: " + name
class InvalidNamespaceNameException : public Exception {
public:
    explicit InvalidNamespaceNameException(const String& name);
    ~InvalidNamespaceNameException() override;
};

// "malformed object name: " + text
class MalformedObjectNameException : public Exception {
public:
    explicit MalformedObjectNameException(const String& text);
    ~MalformedObjectNameException() override;
};

// "type mismatch"
class TypeMismatchException : public Exception {
public:
    TypeMismatchException();
    ~TypeMismatchException() override;
};

// "uninitialized object": use of a default-constructed instance, property or qualifier.
class UninitializedObjectException : public Exception {
public:
    UninitializedObjectException();
    ~UninitializedObjectException() override;
};

// "invalid datetime format: " + text
class InvalidDateTimeFormatException : public Exception {
public:
    explicit InvalidDateTimeFormatException(const String& text);
    ~InvalidDateTimeFormatException() override;
};

// "already connected"
class AlreadyConnectedException : public Exception {
public:
    AlreadyConnectedException();
    ~AlreadyConnectedException() override;
};

// "not connected"
class NotConnectedException : public Exception {
public:
    NotConnectedException();
    ~NotConnectedException() override;
};

// "Cannot connect to HOST:PORT. Connection failed."
class CannotConnectException : public Exception {
public:
    explicit CannotConnectException(const String& message);
    ~CannotConnectException() override;
};

class CannotCreateSocketException : public Exception {
public:
    CannotCreateSocketException();
    ~CannotCreateSocketException() override;
};

// "Invalid locator: HOST:PORT": the host's name is unknown.
class InvalidLocatorException : public Exception {
public:
    explicit InvalidLocatorException(const String& locator);
    ~InvalidLocatorException() override;
};

// "connection timed out": the complete answer was not there in time.
class ConnectionTimeoutException : public Exception {
public:
    ConnectionTimeoutException();
    ~ConnectionTimeoutException() override;
};

// TLS cannot be set up on this side.
class SSLException : public Exception {
public:
    explicit SSLException(const String& message);
    ~SSLException() override;
};

}  // namespace Pegasus

#endif
