// SPDX-License-Identifier: Apache-2.0
// Names, types, status codes: the small vocabulary.
#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMStatusCode.h>
#include <Pegasus/Common/CIMType.h>
#include <Pegasus/Common/Exception.h>

#include <array>

#include "Text.h"

namespace Pegasus {

namespace {

bool IsLetter(char16_t unit) {
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') || unit == u'_' ||
           unit >= 0x80;
}

bool IsDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

bool IsName(std::u16string_view units) {
    if (units.empty() || !IsLetter(units[0])) return false;
    for (const char16_t unit : units) {
        if (!IsLetter(unit) && !IsDigit(unit)) return false;
    }
    return true;
}

}  // namespace

CIMName::CIMName(const String& name) : m_name(name) {
    if (!legal(name)) throw InvalidNameException(name);
}

CIMName::CIMName(const char* name) : CIMName(String(name)) {}

Boolean CIMName::equal(const CIMName& other) const {
    return String::equalNoCase(m_name, other.m_name);
}

Boolean CIMName::legal(const String& name) { return IsName(StringUnits::Of(name)); }

CIMNamespaceName::CIMNamespaceName(const String& name) {
    if (!legal(name)) throw InvalidNamespaceNameException(name);
    m_name = StringUnits::Of(name)[0] == u'/' ? name.subString(1) : name;
}

CIMNamespaceName::CIMNamespaceName(const char* name) : CIMNamespaceName(String(name)) {}

Boolean CIMNamespaceName::equal(const CIMNamespaceName& other) const {
    return String::equalNoCase(m_name, other.m_name);
}

Boolean CIMNamespaceName::legal(const String& name) {
    std::u16string_view rest = StringUnits::Of(name);
    if (!rest.empty() && rest[0] == u'/') rest.remove_prefix(1);
    for (;;) {
        const std::size_t slash = rest.find(u'/');
        if (!IsName(rest.substr(0, slash))) return false;
        if (slash == std::u16string_view::npos) return true;
        rest.remove_prefix(slash + 1);
    }
}

const char* cimTypeToString(CIMType type) {
    static constexpr std::array<const char*, 17> kNames = {
        "boolean", "uint8",    "sint8",     "uint16", "sint16",  "uint32",
        "sint32",  "uint64",   "sint64",    "real32", "real64",  "char16",
        "string",  "datetime", "reference", "object", "instance"};
    return type < kNames.size() ? kNames[type] : "unknown";
}

String cimStatusCodeToString(CIMStatusCode code) {
    static constexpr std::array<const char*, 29> kNames = {
        "CIM_ERR_SUCCESS",
        "CIM_ERR_FAILED",
        "CIM_ERR_ACCESS_DENIED",
        "CIM_ERR_INVALID_NAMESPACE",
        "CIM_ERR_INVALID_PARAMETER",
        "CIM_ERR_INVALID_CLASS",
        "CIM_ERR_NOT_FOUND",
        "CIM_ERR_NOT_SUPPORTED",
        "CIM_ERR_CLASS_HAS_CHILDREN",
        "CIM_ERR_CLASS_HAS_INSTANCES",
        "CIM_ERR_INVALID_SUPERCLASS",
        "CIM_ERR_ALREADY_EXISTS",
        "CIM_ERR_NO_SUCH_PROPERTY",
        "CIM_ERR_TYPE_MISMATCH",
        "CIM_ERR_QUERY_LANGUAGE_NOT_SUPPORTED",
        "CIM_ERR_INVALID_QUERY",
        "CIM_ERR_METHOD_NOT_AVAILABLE",
        "CIM_ERR_METHOD_NOT_FOUND",
        nullptr,
        nullptr,
        "CIM_ERR_NAMESPACE_NOT_EMPTY",
        "CIM_ERR_INVALID_ENUMERATION_CONTEXT",
        "CIM_ERR_INVALID_OPERATION_TIMEOUT",
        "CIM_ERR_PULL_HAS_BEEN_ABANDONED",
        "CIM_ERR_PULL_CANNOT_BE_ABANDONED",
        "CIM_ERR_FILTERED_ENUMERATION_NOT_SUPPORTED",
        "CIM_ERR_CONTINUATION_ON_ERROR_NOT_SUPPORTED",
        "CIM_ERR_SERVER_LIMITS_EXCEEDED",
        "CIM_ERR_SERVER_IS_SHUTTING_DOWN"};
    if (code < kNames.size() && kNames[code] != nullptr) return {kNames[code]};
    return {("Unrecognized CIM status code \"" + std::to_string(code) + "\"").c_str()};
}

}  // namespace Pegasus
