// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/CIMValue.h>

#include "Text.h"

namespace Pegasus {

namespace {

String Decimal(long long number) { return StringBytes::Make(std::to_string(number)); }

String TextOf(const String& text) { return text; }
String TextOf(const std::shared_ptr<const CIMObjectPath>& path) { return path->toString(); }

String TextOf(const Array<String>& texts) {
    std::string all;
    for (Uint32 i = 0; i < texts.size(); ++i) all += StringBytes::Of(texts[i]) + ' ';
    return StringBytes::Make(std::move(all));
}

bool Same(const Array<String>& a, const Array<String>& b) {
    if (a.size() != b.size()) return false;
    for (Uint32 i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
}

}  // namespace

CIMValue::CIMValue(CIMType type, Boolean isArray, Content content)
    : m_type(type),
      m_isArray(isArray),
      m_content(std::make_shared<const Content>(std::move(content))) {}

CIMValue::CIMValue(Boolean value)
    : CIMValue(CIMTYPE_BOOLEAN, false, String(value ? "TRUE" : "FALSE")) {}
CIMValue::CIMValue(Uint16 value) : CIMValue(CIMTYPE_UINT16, false, Decimal(value)) {}
CIMValue::CIMValue(Uint32 value) : CIMValue(CIMTYPE_UINT32, false, Decimal(value)) {}
CIMValue::CIMValue(Sint32 value) : CIMValue(CIMTYPE_SINT32, false, Decimal(value)) {}
CIMValue::CIMValue(const String& value) : CIMValue(CIMTYPE_STRING, false, value) {}
CIMValue::CIMValue(const CIMObjectPath& value)
    : CIMValue(CIMTYPE_REFERENCE, false, std::make_shared<const CIMObjectPath>(value)) {}
CIMValue::CIMValue(const Array<String>& value) : CIMValue(CIMTYPE_STRING, true, value) {}

void CIMValue::get(Array<String>& value) const {
    if (m_type != CIMTYPE_STRING || !m_isArray) throw TypeMismatchException();
    if (!isNull()) value = std::get<Array<String>>(*m_content);
}

Boolean CIMValue::equal(const CIMValue& other) const {
    if (m_type != other.m_type || m_isArray != other.m_isArray || isNull() != other.isNull()) {
        return false;
    }
    if (isNull()) return true;
    if (!m_isArray) return toString() == other.toString();
    return Same(std::get<Array<String>>(*m_content), std::get<Array<String>>(*other.m_content));
}

String CIMValue::toString() const {
    if (isNull()) return {};
    return std::visit([](const auto& content) { return TextOf(content); }, *m_content);
}

}  // namespace Pegasus
