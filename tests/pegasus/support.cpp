// SPDX-License-Identifier: Apache-2.0
#include "support.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <typeinfo>

using namespace Pegasus;

std::string Utf8(const String& text) { return {static_cast<const char*>(text.getCString())}; }

namespace {

std::string ClassName(const Exception& exception) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(exception).name(), nullptr, nullptr, nullptr), &std::free);
    const std::string full = name.get();
    return full.substr(full.rfind(':') + 1);
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

std::string Document(const std::string& inside) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
           "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
           "<MESSAGE ID=\"@ID@\" PROTOCOLVERSION=\"1.0\">\n"
           "<SIMPLERSP>\n" +
           inside + "</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
}

}  // namespace

const char kOneInstance[] =
    "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"ZOR_X\"></INSTANCENAME>"
    "<INSTANCE CLASSNAME=\"ZOR_X\"></INSTANCE></VALUE.NAMEDINSTANCE>";

CIMObjectPath Path(const char* className, std::initializer_list<CIMKeyBinding> keys) {
    Array<CIMKeyBinding> array;
    for (const CIMKeyBinding& key : keys) array.append(key);
    return {String(), CIMNamespaceName(), className, array};
}

std::string Thrown(const std::function<void()>& action) {
    try {
        action();
        return "";
    } catch (const CIMException& e) {
        return "CIMException " + std::to_string(static_cast<unsigned>(e.getCode())) + ": " +
               Utf8(e.getMessage());
    } catch (const Exception& e) {
        return ClassName(e) + ": " + Utf8(e.getMessage());
    }
}

std::string MessageId(const std::string& request) {
    static constexpr char kStart[] = "<MESSAGE ID=\"";
    const std::size_t at = request.find(kStart);
    if (at == std::string::npos) return "none";
    const std::size_t first = at + sizeof kStart - 1;
    return request.substr(first, request.find('"', first) - first);
}

std::string EnumerationXml(const std::string& inside) {
    return Document("<IMETHODRESPONSE NAME=\"EnumerateInstances\"><IRETURNVALUE>" + inside +
                    "</IRETURNVALUE></IMETHODRESPONSE>\n");
}

std::string MethodXml(const std::string& inside) {
    return Document("<METHODRESPONSE NAME=\"Do\">" + inside + "</METHODRESPONSE>\n");
}

std::string WithLength(const std::string& request, const std::string& xml,
                       const std::string& moreHeaders) {
    const std::string body = Replaced(xml, "@ID@", MessageId(request));
    return "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=utf-8\r\ncontent-length: " +
           std::to_string(body.size()) + "\r\nCIMOperation: MethodResponse\r\n" + moreHeaders +
           "\r\n" + body;
}

std::string Chunked(const std::string& request, const std::string& xml,
                    const std::string& trailer) {
    const std::string body = Replaced(xml, "@ID@", MessageId(request));
    char size[24];
    std::snprintf(size, sizeof size, "%zx\r\n", body.size());
    const std::string chunk = body.empty() ? "" : size + body + "\r\n";
    return "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=utf-8\r\n"
           "transfer-encoding: chunked\r\nCIMOperation: MethodResponse\r\n"
           "Trailer: CIMStatusCode, CIMStatusCodeDescription, Content-Language\r\n\r\n" +
           chunk + "0\r\n" + trailer + "\r\n";
}

ScriptedServer::Scene Answering(std::function<std::string(const std::string&)> answer) {
    return [answer = std::move(answer)](Peer& peer) {
        for (std::string request = peer.Request(); !request.empty(); request = peer.Request()) {
            peer.Send(answer(request));
        }
    };
}

ScriptedServer::Scene AnsweringXml(const std::string& xml) {
    return Answering([xml](const std::string& request) { return WithLength(request, xml); });
}

ConnectedClient::ConnectedClient(const ScriptedServer& server, const char* user,
                                 const char* password) {
    m_client.setTimeout(3000);
    m_client.connect("127.0.0.1", server.Port(), user, password);
}

Array<CIMInstance> ConnectedClient::Enumerate() {
    return m_client.enumerateInstances("root/cimv2", "ZOR_X");
}

CIMValue ConnectedClient::Invoke() {
    Array<CIMParamValue> out;
    return Invoke(out);
}

CIMValue ConnectedClient::Invoke(Array<CIMParamValue>& out) {
    const CIMObjectPath object = Path("ZOR_X", {CIMKeyBinding("K", "v", CIMKeyBinding::STRING)});
    return m_client.invokeMethod("root/cimv2", object, "Do", Array<CIMParamValue>(), out);
}
