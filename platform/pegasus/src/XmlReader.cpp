// SPDX-License-Identifier: Apache-2.0
#include "XmlReader.h"

#include <Pegasus/Client/CIMClientException.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Text.h"
#include "ValueContent.h"
#include "ValueText.h"
#include "XmlDocument.h"

namespace Pegasus::Internal {

namespace {

using pugi::xml_node;

// What one answer may hold. Data objects are counted in tens; the rest leaves room for a thousand
// times as much, and for the memory that it takes (README.md has the figures).
constexpr Uint32 kMaxInstances = 16384;
constexpr Uint32 kMaxItems = 262144;  // properties, qualifiers, keys, array elements, parameters
// In bytes.
constexpr std::size_t kMaxValue = 1UL << 20;
constexpr std::size_t kMaxPath = 256UL << 10;
// References as keys of references: real ones have one level. Each level escapes the one below,
// which can double it, so that all of them together are bounded too.
constexpr int kMaxReferenceDepth = 16;
constexpr std::size_t kMaxReferenceKeys = 4UL << 20;

const char* KindOf(CIMType type) {
    if (type == CIMTYPE_REAL32 || type == CIMTYPE_REAL64) return "real";
    return type >= CIMTYPE_UINT8 && type <= CIMTYPE_SINT64 ? "integer" : cimTypeToString(type);
}

// Reads one answer's document from top to bottom.
class Reader {
public:
    Reader(std::string& document, Uint32 messageId)
        : m_document(document), m_expectedId(std::to_string(messageId)) {}

    EnumerateInstancesAnswer EnumerateInstances() {
        const xml_node response = Response("IMETHODRESPONSE");
        const String name = m_document.ToString(response, m_document.Attribute(response, "NAME"));
        if (!String::equalNoCase(name, "EnumerateInstances")) {
            m_document.Fail(response, "Expected IMETHODRESPONSE of EnumerateInstances");
        }
        EnumerateInstancesAnswer answer;
        XmlChildren children(m_document, response);
        if (const xml_node error = children.If("ERROR")) {
            answer.error = Error(error);
        } else if (const xml_node values = children.If("IRETURNVALUE")) {
            answer.instances = NamedInstances(values);
        }
        children.End();
        RequireMessageId();
        return answer;
    }

    InvokeMethodAnswer InvokeMethod() {
        const xml_node response = Response("METHODRESPONSE");
        m_document.Attribute(response, "NAME");  // servers spell it as they like
        InvokeMethodAnswer answer;
        XmlChildren children(m_document, response);
        if (const xml_node error = children.If("ERROR")) {
            answer.error = Error(error);
        } else {
            OutParameters(children, answer);
            if (const xml_node value = children.If("RETURNVALUE")) {
                answer.returnValue = ReturnValue(value);
            }
            OutParameters(children, answer);
        }
        children.End();
        RequireMessageId();
        return answer;
    }

private:
    // Down to the element that holds the result.
    xml_node Response(const char* name) {
        const xml_node cim = m_document.Root("CIM");
        m_document.Attribute(cim, "CIMVERSION");
        m_document.Attribute(cim, "DTDVERSION");
        const xml_node message = Only(cim, "MESSAGE");
        m_id = m_document.Attribute(message, "ID");
        RequireProtocol(m_document.Attribute(message, "PROTOCOLVERSION"));
        return Only(Only(message, "SIMPLERSP"), name);
    }

    // Behind the return value, as DSP0201 has them, or before it.
    void OutParameters(XmlChildren& children, InvokeMethodAnswer& answer) {
        while (const xml_node parameter = children.If("PARAMVALUE")) {
            CountItem(parameter);
            answer.outParameters.append(Parameter(parameter));
        }
    }

    void CountItem(xml_node element) {
        if (++m_items > kMaxItems) {
            m_document.Fail(element,
                            "The answer holds more than 262144 properties, values or keys");
        }
    }

    xml_node Only(xml_node parent, const char* name) const {
        XmlChildren children(m_document, parent);
        const xml_node child = children.Expect(name);
        children.End();
        return child;
    }

    static void RequireProtocol(const std::string& version) {
        const bool supported = version.size() > 2 && version.compare(0, 2, "1.") == 0 &&
                               version.find_first_not_of("0123456789", 2) == std::string::npos;
        if (supported) return;
        throw CIMClientResponseException(FromPeer("Received unsupported protocol version \"" +
                                                  version + "\", expected \"1.[0-9]+\""));
    }

    void RequireMessageId() const {
        if (m_id == m_expectedId) return;
        throw CIMClientResponseException(FromPeer("Mismatched response message ID:  Got \"" + m_id +
                                                  "\", expected \"" + m_expectedId + "\"."));
    }

    // Of a status: "03" is 3.
    static std::string WithoutZeros(std::string_view code) {
        code = Trimmed(code);
        const std::size_t first = std::min(code.find_first_not_of('0'), code.size() - 1);
        return std::string(code.empty() ? code : code.substr(first));
    }

    // Code 0 is success all the same.
    std::optional<CimError> Error(xml_node element) const {
        const auto number =
            ValueText(CIMTYPE_UINT32, WithoutZeros(m_document.Attribute(element, "CODE")));
        if (!number) m_document.Fail(element, "Illegal value for ERROR.CODE attribute");
        const auto code = static_cast<Uint32>(std::stoul(*number));
        if (code == CIM_ERR_SUCCESS) return {};
        String description;
        if (m_document.Has(element, "DESCRIPTION")) {
            description =
                m_document.ToString(element, m_document.Attribute(element, "DESCRIPTION"));
        }
        return CimError{static_cast<CIMStatusCode>(code), description};
    }

    Array<CIMInstance> NamedInstances(xml_node values) {
        Array<CIMInstance> instances;
        XmlChildren children(m_document, values);
        while (const xml_node named = children.If("VALUE.NAMEDINSTANCE")) {
            if (instances.size() == kMaxInstances) {
                m_document.Fail(named, "The answer holds more than 16384 instances");
            }
            XmlChildren parts(m_document, named);
            const CIMObjectPath path = InstanceName(parts.Expect("INSTANCENAME"), 0);
            CIMInstance instance = Instance(parts.Expect("INSTANCE"));
            parts.End();
            instance.setPath(path);
            instances.append(instance);
        }
        children.End();
        return instances;
    }

    CIMInstance Instance(xml_node element) {
        CIMInstance instance(m_document.NameAttribute(element, "CLASSNAME"));
        XmlChildren children(m_document, element);
        while (const xml_node qualifier = children.If("QUALIFIER")) Qualifier(qualifier);
        while (!children.AtEnd()) AddProperty(children, instance);
        return instance;
    }

    void AddProperty(XmlChildren& children, CIMInstance& instance) {
        if (const xml_node simple = children.If("PROPERTY")) {
            Add(simple, instance, &CIMInstance::addProperty,
                Property(simple, Type(simple), "VALUE"));
        } else if (const xml_node array = children.If("PROPERTY.ARRAY")) {
            Add(array, instance, &CIMInstance::addProperty,
                Property(array, Type(array), "VALUE.ARRAY"));
        } else if (const xml_node reference = children.If("PROPERTY.REFERENCE")) {
            Add(reference, instance, &CIMInstance::addProperty,
                Property(reference, CIMTYPE_REFERENCE, "VALUE.REFERENCE"));
        } else {
            children.FailExpecting("PROPERTY element");
        }
    }

    // A second one of the same name is a fault of the document.
    template <class Owner, class Item>
    void Add(xml_node element, Owner& owner, Owner& (Owner::*add)(const Item&),
             const Item& item) const {
        try {
            (owner.*add)(item);
        } catch (const AlreadyExistsException& twice) {
            m_document.Fail(element, ToUtf8(twice.getMessage()));
        }
    }

    CIMProperty Property(xml_node element, CIMType type, const char* valueElement) {
        CountItem(element);
        XmlChildren children(m_document, element);
        std::vector<CIMQualifier> qualifiers;
        while (const xml_node qualifier = children.If("QUALIFIER")) {
            qualifiers.push_back(Qualifier(qualifier));
        }
        const bool isArray = std::string_view(valueElement) == "VALUE.ARRAY";
        CIMValue value(type, isArray);
        if (const xml_node found = children.If(valueElement)) value = Value(found, type);
        children.End();
        for (const char* name : {"REFERENCECLASS", "CLASSORIGIN"}) {  // read, and no more
            if (m_document.Has(element, name)) m_document.NameAttribute(element, name);
        }
        CIMProperty property(m_document.NameAttribute(element, "NAME"), value);
        for (const CIMQualifier& qualifier : qualifiers) {
            Add(element, property, &CIMProperty::addQualifier, qualifier);
        }
        return property;
    }

    CIMQualifier Qualifier(xml_node element) {
        CountItem(element);
        const CIMType type = Type(element);
        XmlChildren children(m_document, element);
        CIMValue value(type, false);
        if (const xml_node simple = children.If("VALUE")) {
            value = Value(simple, type);
        } else if (const xml_node array = children.If("VALUE.ARRAY")) {
            value = Value(array, type);
        }
        children.End();
        return {m_document.NameAttribute(element, "NAME"), value};
    }

    CIMValue ReturnValue(xml_node element) {
        XmlChildren children(m_document, element);
        CIMValue value;
        if (const xml_node reference = children.If("VALUE.REFERENCE")) {
            value = Value(reference, ParameterType(element, CIMTYPE_REFERENCE));
        } else {
            value = Value(children.Expect("VALUE"), ParameterType(element, CIMTYPE_STRING));
        }
        children.End();
        return value;
    }

    CIMParamValue Parameter(xml_node element) {
        static constexpr const char* kValues[] = {"VALUE", "VALUE.ARRAY"};
        static constexpr const char* kReferences[] = {"VALUE.REFERENCE", "VALUE.REFARRAY"};
        XmlChildren children(m_document, element);
        CIMValue value(ParameterType(element, CIMTYPE_STRING), false);
        for (const char* name : kValues) {
            if (const xml_node found = children.If(name)) {
                value = Value(found, ParameterType(element, CIMTYPE_STRING));
            }
        }
        for (const char* name : kReferences) {
            if (const xml_node found = children.If(name)) {
                value = Value(found, ParameterType(element, CIMTYPE_REFERENCE));
            }
        }
        children.End();
        return {m_document.ToString(element, m_document.Attribute(element, "NAME")), value,
                m_document.Has(element, "PARAMTYPE")};
    }

    CIMType Type(xml_node element) const { return TypeNamed(element, "TYPE"); }

    CIMType ParameterType(xml_node element, CIMType otherwise) const {
        return m_document.Has(element, "PARAMTYPE") ? TypeNamed(element, "PARAMTYPE") : otherwise;
    }

    CIMType TypeNamed(xml_node element, const char* attribute) const {
        const std::string name = m_document.Attribute(element, attribute);
        for (Uint32 type = CIMTYPE_BOOLEAN; type <= CIMTYPE_REFERENCE; ++type) {
            if (name == cimTypeToString(static_cast<CIMType>(type))) {
                return static_cast<CIMType>(type);
            }
        }
        m_document.Fail(element, std::string("Illegal value for ") + element.name() + "." +
                                     attribute + " attribute");
    }

    // `element` is one of the VALUE family.
    CIMValue Value(xml_node element, CIMType type) {
        const bool reference = type == CIMTYPE_REFERENCE;
        const std::string_view name = element.name();
        if (name == (reference ? "VALUE.REFERENCE" : "VALUE")) {
            if (reference) return {Reference(element, 0)};
            return ValueContent::Make(type, Simple(element, type));
        }
        if (name != (reference ? "VALUE.REFARRAY" : "VALUE.ARRAY")) {
            m_document.Fail(element, "The value does not have its type");
        }
        return ValueContent::Make(type, Elements(element, type));
    }

    Array<String> Elements(xml_node element, CIMType type) {
        const bool reference = type == CIMTYPE_REFERENCE;
        Array<String> texts;
        std::size_t size = 0;
        XmlChildren children(m_document, element);
        while (!children.AtEnd()) {
            CountItem(element);
            const xml_node each = children.Expect(reference ? "VALUE.REFERENCE" : "VALUE");
            texts.append(reference ? Reference(each, 0).toString() : Simple(each, type));
            // The others are short: their number bounds them.
            const bool counts = reference || type == CIMTYPE_STRING;
            if (counts) size += ToUtf8(texts[texts.size() - 1]).size() + 1;
            if (size > kMaxValue) m_document.Fail(element, "The array holds more than 1 MiB");
        }
        return texts;
    }

    // VALUE
    String Simple(xml_node element, CIMType type) const {
        const std::string text = m_document.Text(element);
        const auto value = ValueText(type, text);
        if (value) return m_document.ToString(element, *value);
        m_document.Fail(element, std::string("Invalid ") + KindOf(type) + " value \"" +
                                     text.substr(0, 80) + "\"");
    }

    // VALUE.REFERENCE
    CIMObjectPath Reference(xml_node element, int depth) {
        if (depth > kMaxReferenceDepth) m_document.Fail(element, "References are nested too deep");
        XmlChildren children(m_document, element);
        CIMObjectPath path;
        if (const xml_node name = children.If("INSTANCENAME")) {
            path = InstanceName(name, depth);
        } else if (const xml_node local = children.If("LOCALINSTANCEPATH")) {
            path = LocalPath(local, "INSTANCENAME", depth);
        } else if (const xml_node full = children.If("INSTANCEPATH")) {
            path = FullPath(full, "INSTANCENAME", depth);
        } else if (const xml_node className = children.If("CLASSNAME")) {
            path = Named(className, depth);
        } else if (const xml_node localClass = children.If("LOCALCLASSPATH")) {
            path = LocalPath(localClass, "CLASSNAME", depth);
        } else {
            path = FullPath(children.Expect("CLASSPATH"), "CLASSNAME", depth);
        }
        children.End();
        return path;
    }

    CIMObjectPath LocalPath(xml_node element, const char* last, int depth) {
        XmlChildren children(m_document, element);
        const CIMNamespaceName nameSpace = NameSpace(children.Expect("LOCALNAMESPACEPATH"));
        CIMObjectPath path = Named(children.Expect(last), depth);
        children.End();
        path.setNameSpace(nameSpace);
        return path;
    }

    CIMObjectPath FullPath(xml_node element, const char* last, int depth) {
        XmlChildren children(m_document, element);
        XmlChildren location(m_document, children.Expect("NAMESPACEPATH"));
        const xml_node host = location.Expect("HOST");
        const CIMNamespaceName nameSpace = NameSpace(location.Expect("LOCALNAMESPACEPATH"));
        location.End();
        CIMObjectPath path = Named(children.Expect(last), depth);
        children.End();
        path.setHost(m_document.ToString(host, m_document.Text(host)));
        path.setNameSpace(nameSpace);
        return path;
    }

    // INSTANCENAME or CLASSNAME
    CIMObjectPath Named(xml_node element, int depth) {
        if (std::string_view(element.name()) == "INSTANCENAME") return InstanceName(element, depth);
        return {String(), CIMNamespaceName(), m_document.NameAttribute(element, "NAME")};
    }

    CIMNamespaceName NameSpace(xml_node element) const {
        std::string text;
        XmlChildren children(m_document, element);
        do {
            if (!text.empty()) text += '/';
            const xml_node part = children.Expect("NAMESPACE");
            text += ToUtf8(m_document.NameAttribute(part, "NAME").getString());
            if (text.size() > kMaxPath) FailPath(element);
        } while (!children.AtEnd());
        return {StringBytes::Make(std::move(text))};
    }

    CIMObjectPath InstanceName(xml_node element, int depth) {
        const CIMName className = m_document.NameAttribute(element, "CLASSNAME");
        Array<CIMKeyBinding> keys;
        XmlChildren children(m_document, element);
        if (const xml_node value = children.If("KEYVALUE")) {
            keys.append(KeyValue(CIMName(), value));
        } else if (const xml_node reference = children.If("VALUE.REFERENCE")) {
            keys.append(ReferenceKey(CIMName(), reference, depth));
        }
        while (keys.size() == 0 || !keys[0].getName().isNull()) {
            const xml_node binding = children.If("KEYBINDING");
            if (!binding) break;
            keys.append(KeyBinding(binding, depth));
        }
        children.End();
        CIMObjectPath path(String(), CIMNamespaceName(), className, keys);
        if (ToUtf8(path.toString()).size() > kMaxPath) FailPath(element);
        return path;
    }

    [[noreturn]] void FailPath(xml_node element) const {
        m_document.Fail(element, "The path is longer than 256 KiB");
    }

    CIMKeyBinding KeyBinding(xml_node element, int depth) {
        CountItem(element);
        const CIMName name = m_document.NameAttribute(element, "NAME");
        XmlChildren children(m_document, element);
        const xml_node value = children.If("KEYVALUE");
        CIMKeyBinding key = value ? KeyValue(name, value)
                                  : ReferenceKey(name, children.Expect("VALUE.REFERENCE"), depth);
        children.End();
        return key;
    }

    CIMKeyBinding KeyValue(const CIMName& name, xml_node element) const {
        const String value = m_document.ToString(element, m_document.Text(element));
        const std::string type = m_document.Has(element, "VALUETYPE")
                                     ? m_document.Attribute(element, "VALUETYPE")
                                     : "string";
        if (type == "string") return {name, value, CIMKeyBinding::STRING};
        if (type == "boolean") return {name, value, CIMKeyBinding::BOOLEAN};
        if (type == "numeric") return {name, value, CIMKeyBinding::NUMERIC};
        m_document.Fail(element, "Illegal value for KEYVALUE.VALUETYPE attribute");
    }

    CIMKeyBinding ReferenceKey(const CIMName& name, xml_node element, int depth) {
        const CIMObjectPath reference = Reference(element, depth + 1);
        m_referenceKeys += ToUtf8(reference.toString()).size();
        if (m_referenceKeys > kMaxReferenceKeys) {
            m_document.Fail(element, "The references in keys are longer than 4 MiB together");
        }
        return {name, reference};
    }

    XmlDocument m_document;
    std::string m_expectedId;
    std::string m_id;
    Uint32 m_items = 0;
    std::size_t m_referenceKeys = 0;  // bytes of all of them
};

}  // namespace

EnumerateInstancesAnswer ReadEnumerateInstances(std::string& document, Uint32 messageId) {
    return Reader(document, messageId).EnumerateInstances();
}

InvokeMethodAnswer ReadInvokeMethod(std::string& document, Uint32 messageId) {
    return Reader(document, messageId).InvokeMethod();
}

}  // namespace Pegasus::Internal
