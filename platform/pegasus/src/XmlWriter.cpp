// SPDX-License-Identifier: Apache-2.0
#include "XmlWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <type_traits>

#include "Text.h"

namespace Pegasus::Internal {

namespace {

const char* NamedEntity(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&apos;";
        default:
            return nullptr;
    }
}

std::string Escaped(const String& text) {
    std::string xml;
    AppendEscaped(xml, text);
    return xml;
}

std::string Escaped(const CIMName& name) { return Escaped(name.getString()); }

// `digits` behind the point: as many as the type holds.
template <class T>
std::string RealText(T value, int digits) {
    std::array<char, 40> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::scientific, digits);
    return {text.data(), end.ptr};
}

void AppendReference(std::string& xml, const CIMObjectPath& path);

template <class T>
String WireString(const T& value) {
    if constexpr (std::is_same_v<T, Real32>) {
        return FromUtf8(RealText(value, 7));
    } else {
        return CIMValue(value).toString();
    }
}

template <class T>
void AppendElement(std::string& xml, const T& value) {
    if constexpr (std::is_same_v<T, CIMObjectPath>) {
        AppendReference(xml, value);
    } else {
        xml += "<VALUE>";
        AppendEscaped(xml, WireString(value));
        xml += "</VALUE>\n";
    }
}

template <class T>
void AppendTyped(std::string& xml, const CIMValue& value) {
    if (!value.isArray()) {
        T item{};
        value.get(item);
        AppendElement(xml, item);
        return;
    }
    Array<T> items;
    value.get(items);
    const char* element = std::is_same_v<T, CIMObjectPath> ? "VALUE.REFARRAY>\n" : "VALUE.ARRAY>\n";
    xml.append("<").append(element);
    for (Uint32 i = 0; i < items.size(); ++i) AppendElement(xml, items[i]);
    xml.append("</").append(element);
}

void AppendNameSpace(std::string& xml, const CIMNamespaceName& nameSpace) {
    xml += "<LOCALNAMESPACEPATH>\n";
    const std::string text = ToUtf8(nameSpace.getString());
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t slash = std::min(text.find('/', at), text.size());
        if (slash > at) xml += "<NAMESPACE NAME=\"" + text.substr(at, slash - at) + "\"/>\n";
        at = slash + 1;
    }
    xml += "</LOCALNAMESPACEPATH>\n";
}

void AppendKeyValue(std::string& xml, const CIMKeyBinding& key) {
    static constexpr std::array<const char*, 3> kTypes = {"boolean", "string", "numeric"};
    if (key.getType() == CIMKeyBinding::REFERENCE) {
        AppendReference(xml, CIMObjectPath(key.getValue()));
        return;
    }
    xml.append("<KEYVALUE VALUETYPE=\"").append(kTypes[key.getType()]).append("\">");
    AppendEscaped(xml, key.getValue());
    xml += "</KEYVALUE>\n";
}

void AppendInstanceName(std::string& xml, const CIMObjectPath& path) {
    xml += "<INSTANCENAME CLASSNAME=\"" + Escaped(path.getClassName()) + "\">\n";
    for (Uint32 i = 0; i < path.getKeyBindings().size(); ++i) {
        const CIMKeyBinding& key = path.getKeyBindings()[i];
        if (key.getName().isNull()) {  // a single key that the server gave no name
            AppendKeyValue(xml, key);
            continue;
        }
        xml += "<KEYBINDING NAME=\"" + Escaped(key.getName()) + "\">\n";
        AppendKeyValue(xml, key);
        xml += "</KEYBINDING>\n";
    }
    xml += "</INSTANCENAME>\n";
}

void AppendLocalInstancePath(std::string& xml, const CIMNamespaceName& nameSpace,
                             const CIMObjectPath& path) {
    xml += "<LOCALINSTANCEPATH>\n";
    AppendNameSpace(xml, nameSpace);
    AppendInstanceName(xml, path);
    xml += "</LOCALINSTANCEPATH>\n";
}

void AppendReference(std::string& xml, const CIMObjectPath& path) {
    xml += "<VALUE.REFERENCE>\n";
    if (path.getHost().size() != 0) {
        xml += "<INSTANCEPATH>\n<NAMESPACEPATH>\n<HOST>" + Escaped(path.getHost()) + "</HOST>\n";
        AppendNameSpace(xml, path.getNameSpace());
        xml += "</NAMESPACEPATH>\n";
        AppendInstanceName(xml, path);
        xml += "</INSTANCEPATH>\n";
    } else if (!path.getNameSpace().isNull()) {
        AppendLocalInstancePath(xml, path.getNameSpace(), path);
    } else {
        AppendInstanceName(xml, path);
    }
    xml += "</VALUE.REFERENCE>\n";
}

void AppendParameter(std::string& xml, const CIMParamValue& parameter) {
    xml += "<PARAMVALUE NAME=\"" + Escaped(parameter.getParameterName()) + "\"";
    if (parameter.isTyped()) {
        xml +=
            std::string(" PARAMTYPE=\"") + cimTypeToString(parameter.getValue().getType()) + "\"";
    }
    xml += ">\n";
    AppendValue(xml, parameter.getValue());
    xml += "</PARAMVALUE>\n";
}

std::string Opening(Uint32 messageId) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
           "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
           "<MESSAGE ID=\"" +
           std::to_string(messageId) + "\" PROTOCOLVERSION=\"1.0\">\n<SIMPLEREQ>\n";
}

constexpr char kClosing[] = "</SIMPLEREQ>\n</MESSAGE>\n</CIM>\n";

void AppendFlag(std::string& xml, const char* name, bool value, bool byDefault) {
    if (value == byDefault) return;
    xml.append("<IPARAMVALUE NAME=\"").append(name).append("\">\n<VALUE>");
    xml.append(value ? "TRUE" : "FALSE").append("</VALUE>\n</IPARAMVALUE>\n");
}

void AppendPropertyList(std::string& xml, const CIMPropertyList& list) {
    if (list.isNull()) return;
    xml += "<IPARAMVALUE NAME=\"PropertyList\">\n<VALUE.ARRAY>\n";
    for (Uint32 i = 0; i < list.size(); ++i) AppendElement(xml, list[i].getString());
    xml += "</VALUE.ARRAY>\n</IPARAMVALUE>\n";
}

// A class's own method is invoked on its name.
void AppendTarget(std::string& xml, const CIMNamespaceName& nameSpace,
                  const CIMObjectPath& object) {
    if (object.getKeyBindings().size() != 0) {
        AppendLocalInstancePath(xml, nameSpace, object);
        return;
    }
    xml += "<LOCALCLASSPATH>\n";
    AppendNameSpace(xml, nameSpace);
    xml += "<CLASSNAME NAME=\"" + Escaped(object.getClassName()) + "\"/>\n</LOCALCLASSPATH>\n";
}

}  // namespace

void AppendEscaped(std::string& xml, const String& text) {
    const std::string bytes = ToUtf8(text);
    bool afterBlank = true;  // the first one counts as if after a blank
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        const auto code = static_cast<unsigned char>(c);
        const char* named = NamedEntity(c);
        const bool last = i + 1 == bytes.size();
        const bool byNumber = code < 32 || code == 127 || (c == ' ' && (afterBlank || last));
        if (named != nullptr) {
            xml += named;
        } else if (byNumber && code != 0) {  // no number is allowed for NUL
            xml += "&#" + std::to_string(code) + ";";
        } else {
            xml += c;
        }
        afterBlank = c == ' ' && !byNumber;
    }
}

void AppendValue(std::string& xml, const CIMValue& value) {
    if (value.isNull()) return;
    switch (value.getType()) {
        case CIMTYPE_BOOLEAN:
            return AppendTyped<Boolean>(xml, value);
        case CIMTYPE_UINT8:
            return AppendTyped<Uint8>(xml, value);
        case CIMTYPE_SINT8:
            return AppendTyped<Sint8>(xml, value);
        case CIMTYPE_UINT16:
            return AppendTyped<Uint16>(xml, value);
        case CIMTYPE_SINT16:
            return AppendTyped<Sint16>(xml, value);
        case CIMTYPE_UINT32:
            return AppendTyped<Uint32>(xml, value);
        case CIMTYPE_SINT32:
            return AppendTyped<Sint32>(xml, value);
        case CIMTYPE_UINT64:
            return AppendTyped<Uint64>(xml, value);
        case CIMTYPE_SINT64:
            return AppendTyped<Sint64>(xml, value);
        case CIMTYPE_REAL32:
            return AppendTyped<Real32>(xml, value);
        case CIMTYPE_REAL64:
            return AppendTyped<Real64>(xml, value);
        case CIMTYPE_CHAR16:
            return AppendTyped<Char16>(xml, value);
        case CIMTYPE_STRING:
            return AppendTyped<String>(xml, value);
        case CIMTYPE_DATETIME:
            return AppendTyped<CIMDateTime>(xml, value);
        default:  // no value is an object or an instance
            return AppendTyped<CIMObjectPath>(xml, value);
    }
}

std::string WriteEnumerateInstances(Uint32 messageId, const EnumerateInstancesRequest& request) {
    std::string xml = Opening(messageId);
    xml += "<IMETHODCALL NAME=\"EnumerateInstances\">\n";
    AppendNameSpace(xml, request.nameSpace);
    xml += "<IPARAMVALUE NAME=\"ClassName\">\n<CLASSNAME NAME=\"" + Escaped(request.className) +
           "\"/>\n</IPARAMVALUE>\n";
    AppendFlag(xml, "LocalOnly", request.localOnly, true);
    AppendFlag(xml, "DeepInheritance", request.deepInheritance, true);
    AppendFlag(xml, "IncludeQualifiers", request.includeQualifiers, false);
    AppendFlag(xml, "IncludeClassOrigin", request.includeClassOrigin, false);
    AppendPropertyList(xml, request.propertyList);
    return xml + "</IMETHODCALL>\n" + kClosing;
}

std::string WriteInvokeMethod(Uint32 messageId, const CIMNamespaceName& nameSpace,
                              const CIMObjectPath& object, const CIMName& method,
                              const Array<CIMParamValue>& parameters) {
    std::string xml = Opening(messageId);
    xml += "<METHODCALL NAME=\"" + Escaped(method) + "\">\n";
    AppendTarget(xml, nameSpace, object);
    for (Uint32 i = 0; i < parameters.size(); ++i) AppendParameter(xml, parameters[i]);
    return xml + "</METHODCALL>\n" + kClosing;
}

}  // namespace Pegasus::Internal
