// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/CIMObjectPath.h>

#include <Pegasus/Common/CIMValue.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "Text.h"

namespace Pegasus {

namespace {

using Units = std::u16string_view;

bool Quoted(CIMKeyBinding::Type type) {
    return type == CIMKeyBinding::STRING || type == CIMKeyBinding::REFERENCE;
}

void AppendKey(std::u16string& text, const CIMKeyBinding& key) {
    text += StringUnits::Of(key.getName().getString());
    text += u'=';
    if (!Quoted(key.getType())) {
        text += StringUnits::Of(key.getValue());
        return;
    }
    text += u'"';
    for (const char16_t unit : StringUnits::Of(key.getValue())) {
        if (unit == u'"' || unit == u'\\') text += u'\\';
        text += unit;
    }
    text += u'"';
}

// Reads the text form of a path from left to right.
class Reader {
public:
    explicit Reader(const String& text) : m_text(text), m_rest(StringUnits::Of(text)) {}

    String Host() {
        if (m_rest.substr(0, 2) != u"//") return {};
        const std::size_t slash = m_rest.find(u'/', 2);
        if (slash == Units::npos || slash == 2) Fail("the host is not followed by a namespace");
        String host = Make(m_rest.substr(2, slash - 2));
        m_rest.remove_prefix(slash + 1);
        return host;
    }

    CIMNamespaceName NameSpace() {
        const std::size_t colon = m_rest.substr(0, m_rest.find(u'.')).find(u':');
        if (colon == Units::npos) return {};
        CIMNamespaceName name(Make(m_rest.substr(0, colon)));
        m_rest.remove_prefix(colon + 1);
        return name;
    }

    CIMName ClassName() {
        const std::size_t dot = m_rest.find(u'.');
        const String name = Make(m_rest.substr(0, dot));
        if (!CIMName::legal(name)) Fail("the class name is not valid");
        m_hasKeys = dot != Units::npos;
        m_rest.remove_prefix(m_hasKeys ? dot + 1 : m_rest.size());
        return name;
    }

    Array<CIMKeyBinding> Keys() {
        Array<CIMKeyBinding> keys;
        while (m_hasKeys) {
            keys.append(Key());
            m_hasKeys = !m_rest.empty();
            if (m_hasKeys && m_rest[0] != u',') Fail("a comma is expected between two keys");
            if (m_hasKeys) m_rest.remove_prefix(1);
        }
        return keys;
    }

private:
    CIMKeyBinding Key() {
        const std::size_t equals = m_rest.find(u'=');
        if (equals == Units::npos) Fail("a key has no value");
        const String name = Make(m_rest.substr(0, equals));
        if (!CIMName::legal(name)) Fail("a key name is not valid");
        m_rest.remove_prefix(equals + 1);
        if (!m_rest.empty() && m_rest[0] == u'"') return QuotedKey(name);
        return BareKey(name);
    }

    CIMKeyBinding QuotedKey(const CIMName& name) {
        std::u16string value;
        std::size_t at = 1;
        for (; at < m_rest.size() && m_rest[at] != u'"'; ++at) {
            if (m_rest[at] == u'\\') ++at;
            if (at < m_rest.size()) value += m_rest[at];
        }
        if (at >= m_rest.size()) Fail("a key value's quotation mark is not closed");
        m_rest.remove_prefix(at + 1);
        String text = StringUnits::Make(std::move(value));
        return {name, text, IsPath(text) ? CIMKeyBinding::REFERENCE : CIMKeyBinding::STRING};
    }

    CIMKeyBinding BareKey(const CIMName& name) {
        const String value = Make(m_rest.substr(0, m_rest.find(u',')));
        m_rest.remove_prefix(value.size());
        if (String::equalNoCase(value, "TRUE") || String::equalNoCase(value, "FALSE")) {
            return {name, value, CIMKeyBinding::BOOLEAN};
        }
        if (!IsNumber(StringUnits::Of(value))) Fail("a key value is not valid");
        return {name, value, CIMKeyBinding::NUMERIC};
    }

    static bool IsNumber(Units value) {
        bool digits = false;
        for (const char16_t c : value) {
            const bool digit = c >= u'0' && c <= u'9';
            digits = digits || digit;
            const bool letter = (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
            if (!digit && !letter && c != u'.' && c != u'+' && c != u'-' && c != u'x' &&
                c != u'X') {
                return false;
            }
        }
        return digits;
    }

    // A quoted text that itself is the path of an instance.
    static bool IsPath(const String& text) {
        if (text.find("=") == PEG_NOT_FOUND) return false;
        try {
            return CIMObjectPath(text).getKeyBindings().size() != 0;
        } catch (const Exception&) {
            return false;
        }
    }

    static String Make(Units units) { return StringUnits::Make(std::u16string(units)); }

    [[noreturn]] void Fail(const char* reason) {
        throw MalformedObjectNameException(m_text + ", reason:\"" + reason + "\"");
    }

    const String& m_text;
    Units m_rest;
    bool m_hasKeys = false;
};

bool KeysBefore(const CIMKeyBinding& a, const CIMKeyBinding& b) {
    return Internal::CompareNoCase(a.getName().getString(), b.getName().getString()) < 0;
}

Array<CIMKeyBinding> Sorted(const Array<CIMKeyBinding>& keys) {
    if (keys.size() < 2) return keys;
    std::vector<CIMKeyBinding> order;
    order.reserve(keys.size());
    for (Uint32 i = 0; i < keys.size(); ++i) order.push_back(keys[i]);
    std::stable_sort(order.begin(), order.end(), KeysBefore);
    Array<CIMKeyBinding> sorted;
    sorted.reserveCapacity(keys.size());
    for (const CIMKeyBinding& key : order) sorted.append(key);
    return sorted;
}

CIMKeyBinding::Type KeyTypeOf(const CIMValue& value) {
    if (value.isArray()) throw TypeMismatchException();
    switch (value.getType()) {
        case CIMTYPE_BOOLEAN:
            return CIMKeyBinding::BOOLEAN;
        case CIMTYPE_CHAR16:
        case CIMTYPE_STRING:
        case CIMTYPE_DATETIME:
            return CIMKeyBinding::STRING;
        case CIMTYPE_REFERENCE:
            return CIMKeyBinding::REFERENCE;
        case CIMTYPE_OBJECT:
        case CIMTYPE_INSTANCE:
            throw TypeMismatchException();
        default:
            return CIMKeyBinding::NUMERIC;
    }
}

}  // namespace

CIMKeyBinding::CIMKeyBinding(const CIMName& name, const String& value, Type type)
    : m_name(name), m_value(value), m_type(type) {}

CIMKeyBinding::CIMKeyBinding(const CIMName& name, const CIMValue& value)
    : m_name(name), m_value(value.toString()), m_type(KeyTypeOf(value)) {}

bool operator==(const CIMKeyBinding& a, const CIMKeyBinding& b) {
    if (a.getName() != b.getName() || a.getType() != b.getType()) return false;
    return a.getType() == CIMKeyBinding::BOOLEAN ? String::equalNoCase(a.getValue(), b.getValue())
                                                 : a.getValue() == b.getValue();
}

CIMObjectPath::CIMObjectPath(const String& text) {
    if (text.size() == 0) return;
    Reader reader(text);
    m_host = reader.Host();
    m_nameSpace = reader.NameSpace();
    m_className = reader.ClassName();
    setKeyBindings(reader.Keys());
}

CIMObjectPath::CIMObjectPath(const char* text) : CIMObjectPath(String(text)) {}

CIMObjectPath::CIMObjectPath(const String& host, const CIMNamespaceName& nameSpace,
                             const CIMName& className, const Array<CIMKeyBinding>& keyBindings)
    : m_host(host), m_nameSpace(nameSpace), m_className(className), m_keys(Sorted(keyBindings)) {}

void CIMObjectPath::setKeyBindings(const Array<CIMKeyBinding>& keyBindings) {
    m_keys = Sorted(keyBindings);
}

String CIMObjectPath::toString() const {
    std::u16string text;
    if (m_host.size() != 0) text += u"//" + StringUnits::Of(m_host) + u"/";
    if (m_host.size() != 0 || !m_nameSpace.isNull()) {
        text += StringUnits::Of(m_nameSpace.getString()) + u":";
    }
    text += StringUnits::Of(m_className.getString());
    for (Uint32 i = 0; i < m_keys.size(); ++i) {
        text += i == 0 ? u'.' : u',';
        AppendKey(text, m_keys[i]);
    }
    return StringUnits::Make(std::move(text));
}

Boolean CIMObjectPath::identical(const CIMObjectPath& other) const {
    return String::equalNoCase(m_host, other.m_host) && m_nameSpace == other.m_nameSpace &&
           m_className == other.m_className && m_keys == other.m_keys;
}

}  // namespace Pegasus
