// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/CIMObjectPath.h>

#include <algorithm>
#include <vector>

#include "Text.h"

namespace Pegasus {

namespace {

using Internal::ToUtf8;

void AppendQuoted(std::string& text, const std::string& value) {
    text += '"';
    for (const char c : value) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    text += '"';
}

void AppendKey(std::string& text, const CIMKeyBinding& key) {
    text += ToUtf8(key.getName().getString()) + "=";
    const String value = key.getValue();
    if (key.getType() == CIMKeyBinding::STRING || key.getType() == CIMKeyBinding::REFERENCE) {
        AppendQuoted(text, ToUtf8(value));
    } else {
        text += ToUtf8(value);
    }
}

bool KeysBefore(const CIMKeyBinding* a, const CIMKeyBinding* b) {
    return Internal::CompareNoCase(a->getName().getString(), b->getName().getString()) < 0;
}

Array<CIMKeyBinding> Sorted(const Array<CIMKeyBinding>& keys) {
    std::vector<const CIMKeyBinding*> order;
    for (Uint32 i = 0; i < keys.size(); ++i) order.push_back(&keys[i]);
    std::stable_sort(order.begin(), order.end(), KeysBefore);
    Array<CIMKeyBinding> sorted;
    for (const CIMKeyBinding* key : order) sorted.append(*key);
    return sorted;
}

}  // namespace

CIMKeyBinding::CIMKeyBinding(const CIMName& name, const String& value, Type type)
    : m_name(name), m_value(value), m_type(type) {
    if (type == REFERENCE) throw TypeMismatchException();
}

CIMKeyBinding::CIMKeyBinding(const CIMName& name, const CIMObjectPath& reference)
    : m_name(name),
      m_type(REFERENCE),
      m_reference(std::make_shared<const CIMObjectPath>(reference)) {}

String CIMKeyBinding::getValue() const { return m_reference ? m_reference->toString() : m_value; }

CIMObjectPath::CIMObjectPath(const String& host, const CIMNamespaceName& nameSpace,
                             const CIMName& className, const Array<CIMKeyBinding>& keyBindings)
    : m_host(host), m_nameSpace(nameSpace), m_className(className), m_keys(Sorted(keyBindings)) {}

String CIMObjectPath::toString() const {
    std::string text;
    const bool hasHost = m_host != String::EMPTY;
    if (hasHost) text += "//" + ToUtf8(m_host) + "/";
    if (hasHost || !m_nameSpace.isNull()) text += ToUtf8(m_nameSpace.getString()) + ":";
    text += ToUtf8(m_className.getString());
    for (Uint32 i = 0; i < m_keys.size(); ++i) {
        text += i == 0 ? '.' : ',';
        AppendKey(text, m_keys[i]);
    }
    return StringBytes::Make(std::move(text));
}

}  // namespace Pegasus
