// SPDX-License-Identifier: Apache-2.0
#include "XmlWriter.h"

#include <algorithm>
#include <array>

#include "Text.h"
#include "ValueContent.h"

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

// & < > " ' by name, controls by number; a blank by number where a reader would drop it: first,
// last, or after a blank that is written plainly.
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

std::string Escaped(const String& text) {
    std::string xml;
    AppendEscaped(xml, text);
    return xml;
}

std::string Escaped(const CIMName& name) { return Escaped(name.getString()); }

void AppendReference(std::string& xml, const CIMObjectPath& path);

void AppendElement(std::string& xml, const String& text) {
    xml += "<VALUE>";
    AppendEscaped(xml, text);
    xml += "</VALUE>\n";
}

void AppendArray(std::string& xml, const Array<String>& texts) {
    xml += "<VALUE.ARRAY>\n";
    for (Uint32 i = 0; i < texts.size(); ++i) AppendElement(xml, texts[i]);
    xml += "</VALUE.ARRAY>\n";
}

void AppendValue(std::string& xml, const CIMValue& value) {
    if (value.isNull()) return;
    const auto& content = ValueContent::Of(value);
    if (const auto* text = std::get_if<String>(&content)) return AppendElement(xml, *text);
    if (const auto* texts = std::get_if<Array<String>>(&content)) return AppendArray(xml, *texts);
    AppendReference(xml, *std::get<std::shared_ptr<const CIMObjectPath>>(content));
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
        AppendReference(xml, *key.Reference());
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
    if (path.getHost() != String::EMPTY) {
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
    Array<String> names;
    for (Uint32 i = 0; i < list.getPropertyNameArray().size(); ++i) {
        names.append(list.getPropertyNameArray()[i].getString());
    }
    xml += "<IPARAMVALUE NAME=\"PropertyList\">\n";
    AppendArray(xml, names);
    xml += "</IPARAMVALUE>\n";
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
