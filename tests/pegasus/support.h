// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PEGASUS_SUPPORT_H
#define VARNEX_TESTS_PEGASUS_SUPPORT_H

#include <Pegasus/Client/CIMClient.h>

#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>

#include "ScriptedServer.h"

// What a text is in UTF-8.
std::string Utf8(const Pegasus::String& text);

// The path of an instance without host and namespace.
Pegasus::CIMObjectPath Path(const char* className,
                            std::initializer_list<Pegasus::CIMKeyBinding> keys);

// "" when nothing is thrown, else the class and the message:
//   CIMException 3: CIM_ERR_INVALID_NAMESPACE: root/x
//   NotConnectedException: not connected
std::string Thrown(const std::function<void()>& action);

// The number of the message that a request carries.
std::string MessageId(const std::string& request);

// A body for an answer, "@ID@" for the number of the message.
std::string EnumerationXml(const std::string& inside);  // within IRETURNVALUE
std::string MethodXml(const std::string& inside);       // within METHODRESPONSE
// One instance of ZOR_X without properties.
extern const char kOneInstance[];

// Whole answers to `request`, with its message number put in.
std::string WithLength(const std::string& request, const std::string& xml,
                       const std::string& moreHeaders = "");
std::string Chunked(const std::string& request, const std::string& xml,
                    const std::string& trailer = "");

// A scene that answers any number of requests the same way until the client closes.
ScriptedServer::Scene Answering(std::function<std::string(const std::string& request)> answer);
// The same, with a body for which length and number are put in.
ScriptedServer::Scene AnsweringXml(const std::string& xml);

// A client for the server, with three seconds to answer.
class ConnectedClient {
public:
    explicit ConnectedClient(const ScriptedServer& server, const char* user = "user",
                             const char* password = "pass word");

    Pegasus::CIMClient* operator->() { return &m_client; }

    Pegasus::Array<Pegasus::CIMInstance> Enumerate();
    // The return value of a method without parameters.
    Pegasus::CIMValue Invoke();
    Pegasus::CIMValue Invoke(Pegasus::Array<Pegasus::CIMParamValue>& out);

private:
    Pegasus::CIMClient m_client;
};

#endif
