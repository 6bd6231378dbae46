// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_CLIENT_CIMCLIENT_H
#define PEGASUS_CLIENT_CIMCLIENT_H

#include <Pegasus/Client/CIMClientException.h>
#include <Pegasus/Common/Array.h>
#include <Pegasus/Common/CIMInstance.h>
#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMObjectPath.h>
#include <Pegasus/Common/CIMParamValue.h>
#include <Pegasus/Common/CIMProperty.h>
#include <Pegasus/Common/CIMPropertyList.h>
#include <Pegasus/Common/CIMQualifier.h>
#include <Pegasus/Common/CIMStatusCode.h>
#include <Pegasus/Common/CIMType.h>
#include <Pegasus/Common/CIMValue.h>
#include <Pegasus/Common/Exception.h>
#include <Pegasus/Common/SSLContext.h>
#include <Pegasus/Common/String.h>

#include <memory>

namespace Pegasus {

// A connection to one CIM server: CIM-XML (DSP0200, DSP0201) over HTTP or HTTPS. Every operation
// blocks; only Pegasus::Exception and what derives from it is thrown (and std::bad_alloc).
//
// One connection is kept for all requests. Where the server closed it in between, the next request
// opens it again without a word; after a time-out or a loss while waiting, the request fails and
// the next one opens it again. Credentials go out only after the server asked for them (Basic),
// then with every request until such a failure.
//
// One thread at a time.
class CIMClient {
public:
    CIMClient();
    // Disconnects.
    ~CIMClient();
    CIMClient(const CIMClient&) = delete;
    CIMClient& operator=(const CIMClient&) = delete;

    // Milliseconds, 20000 unless set: from sending a request to having its complete answer, however
    // slowly it trickles; for `connect`, TCP and the TLS handshake each.
    void setTimeout(Uint32 milliseconds);

    // Opens the connection and sends nothing: wrong credentials, and a peer that is no CIM server,
    // show at the first request. `host` is a name or an address, IPv6 without brackets; empty means
    // localhost.
    // Throws AlreadyConnectedException, InvalidLocatorException, CannotConnectException,
    // CannotCreateSocketException, SSLException.
    void connect(const String& host, Uint32 port, const String& userName, const String& password);
    void connect(const String& host, Uint32 port, const SSLContext& sslContext,
                 const String& userName, const String& password);
    // Without a connection it does nothing.
    void disconnect();

    // The instances of the class, with paths that have neither host nor namespace.
    Array<CIMInstance> enumerateInstances(const CIMNamespaceName& nameSpace,
                                          const CIMName& className, Boolean deepInheritance = true,
                                          Boolean localOnly = true,
                                          Boolean includeQualifiers = false,
                                          Boolean includeClassOrigin = false,
                                          const CIMPropertyList& propertyList = CIMPropertyList());

    // The method's return value, a null boolean where the answer has none. The host and namespace
    // in `instanceName` are ignored. `outParameters` is replaced on success only.
    CIMValue invokeMethod(const CIMNamespaceName& nameSpace, const CIMObjectPath& instanceName,
                          const CIMName& methodName, const Array<CIMParamValue>& inParameters,
                          Array<CIMParamValue>& outParameters);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Pegasus

#endif
