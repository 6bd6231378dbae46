// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeCim.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <utility>

#include "fakes/Journal.h"

namespace {

using Pegasus::String;

struct Server {
    std::deque<std::function<void()>> connects;
    std::deque<std::function<fakes::FakeCim::Instances()>> enumerations;
    std::deque<std::function<Pegasus::CIMValue()>> invocations;
    bool sslContextThrows = false;
};

std::unique_ptr<Server> g_server;

std::string Text(const String& text) {
    return std::string(static_cast<const char*>(text.getCString()));
}

std::string Account(const String& host, Pegasus::Uint32 port, const String& user,
                    const String& password) {
    return Text(host) + " " + std::to_string(port) + " " + Text(user) + " " + Text(password);
}

template <typename Action>
Action TakeFirst(std::deque<Action>& actions, const char* what) {
    if (actions.empty()) {
        ADD_FAILURE() << "no script for " << what;
        throw Pegasus::Exception(String("no script"));
    }
    Action action = std::move(actions.front());
    actions.pop_front();
    return action;
}

void Connect() {
    if (!g_server->connects.empty()) TakeFirst(g_server->connects, "connect")();
}

std::string Parameters(const Pegasus::Array<Pegasus::CIMParamValue>& parameters) {
    std::string text;
    for (Pegasus::Uint32 i = 0; i < parameters.size(); ++i) {
        const Pegasus::CIMValue value = parameters[i].getValue();
        text += " " + Text(parameters[i].getParameterName()) + "=";
        text += parameters[i].isTyped() ? Pegasus::cimTypeToString(value.getType()) : "untyped";
        text += ":" + Text(value.toString());
    }
    return text;
}

}  // namespace

namespace Pegasus {

SSLContext::SSLContext(const String& trustStore, SSLCertificateVerifyFunction* verifyCert,
                       const String& randomFile) {
    fakes::Journal::Append("ssl context '" + Text(trustStore) + "'" +
                           (verifyCert != nullptr ? " callback" : "") + " '" + Text(randomFile) +
                           "'");
    if (std::exchange(g_server->sslContextThrows, false)) {
        throw SSLException(String("no SSL here"));
    }
}

struct CIMClient::Impl {};

CIMClient::CIMClient() : m_impl(new Impl) { fakes::Journal::Append("client"); }
CIMClient::~CIMClient() { fakes::Journal::Append("client destroyed"); }

void CIMClient::setTimeout(Uint32 milliseconds) {
    fakes::Journal::Append("timeout " + std::to_string(milliseconds));
}

void CIMClient::connect(const String& host, Uint32 port, const String& user,
                        const String& password) {
    fakes::Journal::Append("connect " + Account(host, port, user, password));
    Connect();
}

void CIMClient::connect(const String& host, Uint32 port, const SSLContext&, const String& user,
                        const String& password) {
    fakes::Journal::Append("connect ssl " + Account(host, port, user, password));
    Connect();
}

void CIMClient::disconnect() { fakes::Journal::Append("disconnect"); }

Array<CIMInstance> CIMClient::enumerateInstances(const CIMNamespaceName& nameSpace,
                                                 const CIMName& className, Boolean deepInheritance,
                                                 Boolean localOnly, Boolean includeQualifiers,
                                                 Boolean includeClassOrigin,
                                                 const CIMPropertyList& propertyList) {
    fakes::Journal::Append("enumerate " + Text(nameSpace.getString()) + " " +
                           Text(className.getString()) + (deepInheritance ? " deep" : "") +
                           (localOnly ? " local" : "") + (includeQualifiers ? " qualifiers" : "") +
                           (includeClassOrigin ? " origin" : "") +
                           (propertyList.isNull() ? "" : " properties"));
    return TakeFirst(g_server->enumerations, "enumerateInstances")();
}

CIMValue CIMClient::invokeMethod(const CIMNamespaceName& nameSpace,
                                 const CIMObjectPath& instanceName, const CIMName& methodName,
                                 const Array<CIMParamValue>& inParameters, Array<CIMParamValue>&) {
    fakes::Journal::Append("invoke " + Text(nameSpace.getString()) + " " +
                           Text(instanceName.toString()) + " " + Text(methodName.getString()) +
                           Parameters(inParameters));
    return TakeFirst(g_server->invocations, "invokeMethod")();
}

}  // namespace Pegasus

namespace fakes {

FakeCim::FakeCim() {
    g_server = std::make_unique<Server>();
    Journal::Take();
}

FakeCim::~FakeCim() { g_server.reset(); }

void FakeCim::NextConnect(std::function<void()> action) {
    g_server->connects.push_back(std::move(action));
}

void FakeCim::NextEnumeration(std::function<Instances()> action) {
    g_server->enumerations.push_back(std::move(action));
}

void FakeCim::NextInvocation(std::function<Pegasus::CIMValue()> action) {
    g_server->invocations.push_back(std::move(action));
}

void FakeCim::SslContextThrows() { g_server->sslContextThrows = true; }

void FakeCim::RefuseConnect(const std::string& message) {
    NextConnect([message] { throw Pegasus::CannotConnectException(String(message.c_str())); });
}

void FakeCim::Enumerate(const std::vector<Pegasus::CIMInstance>& instances) {
    NextEnumeration([instances] {
        Instances array;
        for (const Pegasus::CIMInstance& instance : instances) array.append(instance);
        return array;
    });
}

void FakeCim::Return(const Pegasus::CIMValue& value) {
    NextInvocation([value] { return value; });
}

Pegasus::CIMInstance MakeInstance(const std::string& className, const std::string& id,
                                  const std::string& type) {
    const Pegasus::CIMName name(className.c_str());
    Pegasus::CIMInstance instance(name);
    Pegasus::Array<Pegasus::CIMKeyBinding> keys;
    keys.append(Pegasus::CIMKeyBinding(Pegasus::CIMName("InstanceID"), String(id.c_str()),
                                       Pegasus::CIMKeyBinding::STRING));
    instance.setPath(Pegasus::CIMObjectPath(String(), Pegasus::CIMNamespaceName(), name, keys));
    if (!type.empty()) {
        instance.addProperty(Pegasus::CIMProperty(Pegasus::CIMName("DataCollectionType"),
                                                  Pegasus::CIMValue(String(type.c_str()))));
    }
    return instance;
}

}  // namespace fakes
