// SPDX-License-Identifier: Apache-2.0
// Names, types, status codes: the small vocabulary.
#include <Pegasus/Common/CIMName.h>
#include <Pegasus/Common/CIMStatusCode.h>
#include <Pegasus/Common/CIMType.h>
#include <Pegasus/Common/Exception.h>

#include <algorithm>
#include <array>

#include "Text.h"

namespace Pegasus {

namespace {

// Each byte of a character from U+0080 on counts as one.
bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsName(std::string_view text) {
    if (text.empty() || !IsLetter(text[0])) return false;
    return std::all_of(text.begin(), text.end(), [](char c) { return IsLetter(c) || IsDigit(c); });
}

bool IsNamespace(std::string_view rest) {
    for (;;) {
        const std::size_t slash = rest.find('/');
        if (!IsName(rest.substr(0, slash))) return false;
        if (slash == std::string_view::npos) return true;
        rest.remove_prefix(slash + 1);
    }
}

}  // namespace

CIMName::CIMName(const String& name) : m_name(name) {
    if (!legal(name)) throw InvalidNameException(name);
}

Boolean CIMName::legal(const String& name) { return IsName(StringBytes::Of(name)); }

CIMNamespaceName::CIMNamespaceName(const String& name) {
    const std::string& text = StringBytes::Of(name);
    const std::size_t first = text.empty() || text[0] != '/' ? 0 : 1;
    if (!IsNamespace(std::string_view(text).substr(first))) {
        throw InvalidNamespaceNameException(name);
    }
    m_name = StringBytes::Make(text.substr(first));
}

const char* cimTypeToString(CIMType type) {
    static constexpr std::array<const char*, 15> kNames = {
        "boolean", "uint8",  "sint8",  "uint16", "sint16", "uint32",   "sint32",   "uint64",
        "sint64",  "real32", "real64", "char16", "string", "datetime", "reference"};
    return kNames[type];
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
