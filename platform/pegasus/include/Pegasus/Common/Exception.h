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
    explicit Exception(const String& message) : m_message(message) {}
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
    CIMException(CIMStatusCode code, const String& message) : Exception(message), m_code(code) {}

    CIMStatusCode getCode() const { return m_code; }

private:
    CIMStatusCode m_code;
};

// A text that is to be made of no bytes at all.
class NullPointer : public Exception {
public:
    NullPointer() : Exception("null pointer") {}
};

// An element that a list does not have.
class IndexOutOfBoundsException : public Exception {
public:
    IndexOutOfBoundsException() : Exception("index out of bounds") {}
};

// A second property or qualifier of one name.
class AlreadyExistsException : public Exception {
public:
    explicit AlreadyExistsException(const String& what) : Exception("already exists: " + what) {}
};

// A text that is no CIM name.
class InvalidNameException : public Exception {
public:
    explicit InvalidNameException(const String& name)
        : Exception("The CIM name is not valid: " + name) {}
};

// The same for a namespace.
class InvalidNamespaceNameException : public Exception {
public:
    explicit InvalidNamespaceNameException(const String& name)
        : Exception("invalid CIM namespace name: " + name) {}
};

// A value of another type than was asked for.
class TypeMismatchException : public Exception {
public:
    TypeMismatchException() : Exception("type mismatch") {}
};

// Use of a default-constructed instance, property or qualifier.
class UninitializedObjectException : public Exception {
public:
    UninitializedObjectException() : Exception("uninitialized object") {}
};

// A second connect without a disconnect.
class AlreadyConnectedException : public Exception {
public:
    AlreadyConnectedException() : Exception("already connected") {}
};

// A request without a connection.
class NotConnectedException : public Exception {
public:
    NotConnectedException() : Exception("not connected") {}
};

// "Cannot connect to HOST:PORT. Connection failed."
class CannotConnectException : public Exception {
public:
    explicit CannotConnectException(const String& message) : Exception(message) {}
};

// This side has no more sockets.
class CannotCreateSocketException : public Exception {
public:
    CannotCreateSocketException() : Exception("cannot create socket") {}
};

// "Invalid locator: HOST:PORT": the host's name is unknown.
class InvalidLocatorException : public Exception {
public:
    explicit InvalidLocatorException(const String& locator)
        : Exception("Invalid locator: " + locator) {}
};

// The complete answer was not there in time.
class ConnectionTimeoutException : public Exception {
public:
    ConnectionTimeoutException() : Exception("connection timed out") {}
};

// TLS cannot be set up on this side.
class SSLException : public Exception {
public:
    explicit SSLException(const String& message) : Exception(message) {}
};

}  // namespace Pegasus

#endif
