// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_CIMOM_CIMFUNC_H
#define VARNEX_COMMON_CIMOM_CIMFUNC_H

#include <Pegasus/Client/CIMClient.h>

#include <map>
#include <memory>
#include <string>

#include "varnex/ConnectionInfo.h"

namespace Varnex {

// One connection to a BMC's CIM server (DMTF DSP0200), in one CIM namespace.
//
// Making a connection blocks: up to 40 minutes an attempt, three attempts, 10 s after each that
// failed.
class CimClientHolder {
public:
    // Connects; GetClient() tells whether that worked.
    CimClientHolder(const Pegasus::CIMNamespaceName& nameSpace,
                    const VarnexConnection::ConnectionInfo& connection);
    ~CimClientHolder();

    CimClientHolder(const CimClientHolder&) = delete;
    CimClientHolder& operator=(const CimClientHolder&) = delete;

    // Null: not connected. Owned by the holder, replaced by ReConnect().
    Pegasus::CIMClient* GetClient() const;
    const Pegasus::CIMNamespaceName& GetNamespace() const;

    // Drops the client and connects anew. 0 connected, else ConnectToCimServer's code.
    int ReConnect();

    // 0, or 1 when the host is empty, there is no client, or no connection could be made.
    int ConnectToCimServer();

    // 0, or 1 when all attempts failed or the connection case is not one for CIM. A connection type
    // that is neither plain nor TLS returns 0 with a client that is not connected.
    static int ConnectCimServer(Pegasus::CIMClient& client,
                                const VarnexConnection::ConnectionInfo& connection);

private:
    Pegasus::CIMNamespaceName m_namespace;
    std::unique_ptr<Pegasus::CIMClient> m_client;  // null unless the last attempt succeeded
    VarnexConnection::ConnectionInfo m_connection;
};

// `text` for the CIM library: UTF-8, or Latin-1 where it is not valid UTF-8.
Pegasus::String ToCimString(const std::string& text);

// The UTF-8 of `text`.
std::string ToUtf8(const Pegasus::String& text);

// The instances of `className` and its subclasses in the holder's namespace, into `instances`.
// Blocks up to `timeoutMs`, and for a reconnection: first when the holder has no client, last when
// the server reported an error.
// 0, or with `instances` as they were: 1, or 6 when the server does not know the namespace.
int GetCIMArrayFromEnumerateInstances(const std::string& className, CimClientHolder& holder,
                                      Pegasus::Array<Pegasus::CIMInstance>& instances,
                                      unsigned int timeoutMs);

// Fills in the values of the keys that `properties` has; a key that `instance` lacks keeps its own,
// as all do where `instance` is not initialized.
void GetProperties(Pegasus::CIMInstance instance, std::map<std::string, std::string>& properties);

// The property's value as text, without white space at its ends; or what its value map (the
// qualifiers ValueMap and Values, DSP0004) says that the value means.
std::string GetPropertyValueText(const Pegasus::CIMProperty& property);

}  // namespace Varnex

#endif
