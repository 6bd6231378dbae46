// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_REQUESTS_H
#define KEMFFDC_CIM_REQUESTS_H

#include <string>

#include "cli/http/Transport.h"

namespace Kemffdc::Cim {

// A CIM server, asked as the library asks it: no proxies, no redirects, at most TLS 1.2.
extern const ServiceKind kCimServer;

// Asks for the objects of `className` in `nameSpace` (DSP0200). Answers of more than 16 MiB are
// failures. A refusal's body is not read.
Answer Enumerate(Transport& transport, const std::string& nameSpace, const std::string& className,
                 const Login& login);

// A header of CIM's own, which can be called "NN-NAME" where the header Man says so (DSP0200).
// `name` in lower case. Empty where there is none.
std::string CimHeader(const Answer& answer, const std::string& name);

// As the library sends it: a byte for each character, the low one of those beyond Latin-1; what is
// not valid UTF-8 goes byte by byte.
Login CimLogin(const std::string& user, const std::string& password);

// Whether the library can answer a challenge: it wants "Basic" spelled so, and a realm in quotes.
bool IsBasicChallenge(const std::string& challenge);

}  // namespace Kemffdc::Cim

#endif
