// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/Exception.h>

#include <Pegasus/Client/CIMClientException.h>

#include "Text.h"

namespace Pegasus {

namespace {

String HttpErrorText(Uint32 status, const String& reason, const String& cimError,
                     const String& detail) {
    using Internal::ToUtf8;
    std::string text = "HTTP Error (" + std::to_string(status);
    if (reason != String::EMPTY) text += " " + ToUtf8(reason);
    text += ")";
    if (cimError != String::EMPTY || detail != String::EMPTY) text += ":";
    if (cimError != String::EMPTY) text += " CIMError = \"" + ToUtf8(cimError) + "\"";
    if (detail != String::EMPTY) text += " Detail = \"" + ToUtf8(detail) + "\"";
    return StringBytes::Make(text + ".");
}

}  // namespace

Exception::~Exception() = default;
const String& Exception::getMessage() const { return m_message; }

CIMClientHTTPErrorException::CIMClientHTTPErrorException(Uint32 httpStatusCode,
                                                         const String& reasonPhrase,
                                                         const String& cimError,
                                                         const String& cimErrorDetail)
    : Exception(HttpErrorText(httpStatusCode, reasonPhrase, cimError, cimErrorDetail)) {}

}  // namespace Pegasus
