// SPDX-License-Identifier: Apache-2.0
// The whole of class CIMClient stands here and nothing else, so that a program can bring its own.
#include <Pegasus/Client/CIMClient.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>

#include "HttpConnection.h"
#include "Text.h"
#include "XmlReader.h"
#include "XmlWriter.h"
#include "shared/Base64.h"
#include "shared/HostName.h"
#include "shared/Percent.h"

namespace Pegasus {

using Internal::FromPeer;
using Internal::HttpAnswer;
using Internal::HttpConnection;
using Internal::PercentEncode;
using Internal::ToLatin1;
using Internal::ToUtf8;
using Internal::Transport;
using Internal::Trimmed;

namespace {

// Counts through the whole process, whoever asks.
Uint32 NextMessageId() {
    static std::atomic<Uint32> next{1000};
    return next++;
}

// "0000000393"
std::string TenDigits(std::size_t number) {
    const std::string digits = std::to_string(number);
    return std::string(10 - std::min<std::size_t>(digits.size(), 10), '0') + digits;
}

// A literal IPv6 address stands in brackets and without its zone, which is of no meaning elsewhere.
std::string HostHeader(const std::string& host, Uint32 port) {
    return shared::HostAndPort(host.substr(0, host.find('%')), port);
}

// "name=value", the value perhaps in quotes; empty where the name is another.
std::string_view ParameterValue(std::string_view parameter, const char* name) {
    const std::size_t equals = parameter.find('=');
    if (equals == std::string_view::npos) return {};
    if (!String::equalNoCase(FromPeer(Trimmed(parameter.substr(0, equals))), name)) return {};
    std::string_view value = Trimmed(parameter.substr(equals + 1));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    return value;
}

// XML in UTF-8, or nothing said of the encoding.
bool IsXmlType(std::string_view contentType) {
    std::size_t semicolon = contentType.find(';');
    const String type = FromPeer(Trimmed(contentType.substr(0, semicolon)));
    if (!String::equalNoCase(type, "application/xml") && !String::equalNoCase(type, "text/xml")) {
        return false;
    }
    while (semicolon != std::string_view::npos) {
        contentType.remove_prefix(semicolon + 1);
        semicolon = contentType.find(';');
        const auto charset = ParameterValue(contentType.substr(0, semicolon), "charset");
        if (!charset.empty() && !String::equalNoCase(FromPeer(charset), "utf-8")) return false;
    }
    return true;
}

// Under DSP0200's extension scheme "CIMOperation" can be called "36-CIMOperation": then the header
// "Man" says which number it is.
std::string FieldPrefix(const HttpAnswer& answer) {
    const std::string* man = answer.Find("Man");
    if (man == nullptr) return {};
    const std::size_t semicolon = man->find(';');
    if (semicolon == std::string::npos) return {};
    const auto number = ParameterValue(std::string_view(*man).substr(semicolon + 1), "ns");
    return number.empty() ? std::string() : std::string(number) + "-";
}

const std::string* FindField(const HttpAnswer& answer, const std::string& name) {
    const std::string* prefixed = answer.Find(FieldPrefix(answer) + name);
    return prefixed != nullptr ? prefixed : answer.Find(name);
}

String Decoded(const std::string* field) {
    return field == nullptr ? String() : FromPeer(shared::PercentDecoded(*field));
}

[[noreturn]] void ThrowHttpError(Uint32 status, const std::string& reason,
                                 const HttpAnswer& answer) {
    const std::string* cimError = FindField(answer, "CIMError");
    throw CIMClientHTTPErrorException(status, FromPeer(reason),
                                      cimError == nullptr ? String() : FromPeer(*cimError),
                                      Decoded(FindField(answer, "PGErrorDetail")));
}

// Whether a 401 asks for what we have: Basic with a realm in quotes. A Digest challenge, or none,
// does not; what is none of these is no challenge that a CIM server sends.
bool AsksForBasic(const HttpAnswer& answer) {
    const std::string* challenge = answer.Find("WWW-Authenticate");
    if (challenge == nullptr) return false;
    const std::size_t blank = std::min(challenge->find(' '), challenge->size());
    const std::string scheme = challenge->substr(0, blank);
    if (scheme == "Digest") return false;
    static constexpr std::string_view kRealm = "realm=\"";
    const std::string_view rest = Trimmed(std::string_view(*challenge).substr(blank));
    const bool realm = rest.substr(0, kRealm.size()) == kRealm &&
                       rest.find('"', kRealm.size()) != std::string_view::npos;
    if (scheme == "Basic" && realm) return true;
    throw CIMClientMalformedHTTPException("Invalid Authorization header");
}

// Everything about an answer that shows before its document is read.
void RequireCimAnswer(const HttpAnswer& answer) {
    if (answer.status != 200) ThrowHttpError(answer.status, answer.reason, answer);
    // It can come in the trailer, when the status has long been sent.
    if (FindField(answer, "CIMError") != nullptr) ThrowHttpError(400, "Bad Request", answer);
    const std::string* operation = FindField(answer, "CIMOperation");
    if (operation == nullptr) {
        throw CIMClientMalformedHTTPException("Missing CIMOperation HTTP header");
    }
    const std::string* type = answer.Find("Content-Type");
    if (type != nullptr && !IsXmlType(*type)) {
        throw CIMClientMalformedHTTPException("Bad Content-Type HTTP header; " + FromPeer(*type));
    }
    if (!String::equalNoCase(FromPeer(*operation), "MethodResponse")) {
        throw CIMClientMalformedHTTPException(
            FromPeer("Received CIMOperation HTTP header value \"" + *operation +
                     "\", expected \"MethodResponse\""));
    }
}

// A server that was told that trailers are welcome reports CIM errors there and nowhere else: the
// document then looks like an empty success, or there is none.
void ThrowIfFailed(const HttpAnswer& answer) {
    const std::string* code = FindField(answer, "CIMStatusCode");
    if (code == nullptr) return;
    const bool number = !code->empty() && code->size() <= 9 &&
                        code->find_first_not_of("0123456789") == std::string::npos;
    if (!number) {
        throw CIMClientMalformedHTTPException(FromPeer("Bad CIMStatusCode HTTP header; " + *code));
    }
    const auto status = static_cast<CIMStatusCode>(std::stoul(*code));
    if (status == CIM_ERR_SUCCESS) return;
    const std::string* description = FindField(answer, "CIMStatusCodeDescription");
    throw CIMException(
        status, description != nullptr ? Decoded(description) : cimStatusCodeToString(status));
}

void ThrowIfFailed(const std::optional<Internal::CimError>& error) {
    if (error) throw CIMException(error->code, error->description);
}

}  // namespace

struct CIMClient::Impl {
    using Milliseconds = std::chrono::milliseconds;

    struct Peer {
        std::string host;
        Uint32 port;
        bool tls;
        std::string credentials;  // user:password in Base64
    };

    void Connect(const String& host, Uint32 port, bool tls, const String& userName,
                 const String& password) {
        if (peer) throw AlreadyConnectedException();
        Peer wanted{host == String::EMPTY ? "localhost" : ToUtf8(host), port, tls,
                    shared::ToBase64(ToLatin1(userName) + ":" + ToLatin1(password))};
        authorized = false;
        Open(wanted);
        peer = std::move(wanted);
    }

    void Disconnect() {
        connection.reset();
        peer.reset();
    }

    void Open(const Peer& to) {
        connection.reset();
        connection = std::make_unique<HttpConnection>(
            Transport::Open(to.host, to.port, to.tls, Milliseconds(timeout)));
    }

    void RequireConnected() const {
        if (!peer) throw NotConnectedException();
    }

    std::string Head(const std::string& method, const std::string& object,
                     std::size_t bodySize) const {
        std::string head = "POST /cimom HTTP/1.1\r\nHOST: " + HostHeader(peer->host, peer->port) +
                           "\r\nContent-Type: application/xml; charset=utf-8\r\n"
                           "content-length: " +
                           TenDigits(bodySize) +
                           "\r\nTE: chunked, trailers\r\nCIMOperation: MethodCall\r\nCIMMethod: " +
                           PercentEncode(method) + "\r\nCIMObject: " + PercentEncode(object) +
                           "\r\n";
        if (authorized) head += "Authorization: Basic " + peer->credentials + "\r\n";
        return head + "\r\n";
    }

    // Sends a request and again, with credentials, when the server asks for them. The time runs
    // from the sending; a new connection starts it anew.
    HttpAnswer Ask(const std::string& method, const std::string& object, const std::string& body) {
        std::optional<Transport::Clock::time_point> deadline;
        for (;;) {
            if (!connection || connection->IsStale()) {
                Open(*peer);
                deadline.reset();
            }
            if (!deadline) deadline = Transport::Clock::now() + Milliseconds(timeout);
            HttpAnswer answer = Exchange(Head(method, object, body.size()), body, *deadline);
            if (answer.status != 401 || authorized || !AsksForBasic(answer)) {
                RequireCimAnswer(answer);
                return answer;
            }
            authorized = true;
        }
    }

    HttpAnswer Exchange(const std::string& head, const std::string& body,
                        Transport::Clock::time_point deadline) {
        try {
            HttpAnswer answer = connection->Exchange(head, body, deadline);
            if (!answer.keepAlive) connection.reset();
            return answer;
        } catch (...) {
            connection.reset();  // the next request opens another, and starts without credentials
            authorized = false;
            throw;
        }
    }

    Uint32 timeout = 20000;
    std::optional<Peer> peer;                    // set from connect to disconnect
    std::unique_ptr<HttpConnection> connection;  // null after a loss, until the next request
    bool authorized = false;                     // the server asked for credentials
};

CIMClient::CIMClient() : m_impl(std::make_unique<Impl>()) {}
CIMClient::~CIMClient() = default;

void CIMClient::setTimeout(Uint32 milliseconds) { m_impl->timeout = milliseconds; }

void CIMClient::connect(const String& host, Uint32 port, const String& userName,
                        const String& password) {
    m_impl->Connect(host, port, false, userName, password);
}

void CIMClient::connect(const String& host, Uint32 port, const SSLContext&, const String& userName,
                        const String& password) {
    m_impl->Connect(host, port, true, userName, password);
}

void CIMClient::disconnect() { m_impl->Disconnect(); }

Array<CIMInstance> CIMClient::enumerateInstances(const CIMNamespaceName& nameSpace,
                                                 const CIMName& className, Boolean deepInheritance,
                                                 Boolean localOnly, Boolean includeQualifiers,
                                                 Boolean includeClassOrigin,
                                                 const CIMPropertyList& propertyList) {
    m_impl->RequireConnected();
    const Uint32 id = NextMessageId();
    HttpAnswer answer = m_impl->Ask("EnumerateInstances", ToUtf8(nameSpace.getString()),
                                    Internal::WriteEnumerateInstances(
                                        id, {nameSpace, className, deepInheritance, localOnly,
                                             includeQualifiers, includeClassOrigin, propertyList}));
    if (answer.body.empty()) ThrowIfFailed(answer);
    Internal::EnumerateInstancesAnswer read = Internal::ReadEnumerateInstances(answer.body, id);
    ThrowIfFailed(answer);
    ThrowIfFailed(read.error);
    return read.instances;
}

CIMValue CIMClient::invokeMethod(const CIMNamespaceName& nameSpace,
                                 const CIMObjectPath& instanceName, const CIMName& methodName,
                                 const Array<CIMParamValue>& inParameters,
                                 Array<CIMParamValue>& outParameters) {
    m_impl->RequireConnected();
    const Uint32 id = NextMessageId();
    const CIMObjectPath target(String(), nameSpace, instanceName.getClassName(),
                               instanceName.getKeyBindings());
    HttpAnswer answer = m_impl->Ask(
        ToUtf8(methodName.getString()), ToUtf8(target.toString()),
        Internal::WriteInvokeMethod(id, nameSpace, instanceName, methodName, inParameters));
    if (answer.body.empty()) ThrowIfFailed(answer);
    Internal::InvokeMethodAnswer read = Internal::ReadInvokeMethod(answer.body, id);
    ThrowIfFailed(answer);
    ThrowIfFailed(read.error);
    outParameters = read.outParameters;
    return read.returnValue;
}

}  // namespace Pegasus
