// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Requests.h"

#include <curl/curl.h>

#include <algorithm>
#include <boost/nowide/utf/convert.hpp>

#include "cli/cim/Xml.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

constexpr char kPath[] = "/cimom";
constexpr char kRealm[] = "Basic realm=\"";

// The low bytes of the UTF-16 units of valid UTF-8.
std::string OneByteEach(const std::string& text) {
    if (ValidUtf8(text) != text) return text;
    std::string bytes;
    const char* begin = text.data();
    for (const char16_t unit :
         boost::nowide::utf::convert_string<char16_t>(begin, begin + text.size())) {
        bytes += static_cast<char>(unit & 0xFF);
    }
    return bytes;
}

}  // namespace

const ServiceKind kCimServer = {
    false,
    false,
    false,
    CURL_SSLVERSION_MAX_TLSv1_2,
    std::size_t{16} * 1024 * 1024,  // as the library: some ten thousand objects
    "CIM server",
    "CIM server",
    "TLS",
    "accepts requests",
    "16 MiB where a few thousand bytes are due",
    "--port and --plain",
    "Check --port; a CIM server that knows plain HTTP alone needs --plain.",
};

Answer Enumerate(Transport& transport, const std::string& nameSpace, const std::string& className,
                 const Login& login) {
    return transport.Post(
        kPath, EnumerationRequest(nameSpace, className),
        {"Content-Type: application/xml; charset=utf-8",
         "TE: chunked, trailers",  // a server that reads it tells CIM errors otherwise
         "CIMOperation: MethodCall", "CIMMethod: EnumerateInstances",
         "CIMObject: " + CimObjectHeader(nameSpace), "Accept:"},  // would only be noise
        login);
}

std::string CimHeader(const Answer& answer, const std::string& name) {
    static constexpr char kPrefix[] = "ns=";
    const std::string man = answer.Header("man");
    const std::size_t at = man.find(kPrefix);
    if (at == std::string::npos) return answer.Header(name);
    const std::size_t first = at + sizeof kPrefix - 1;
    const std::size_t end = std::min(man.find_first_not_of("0123456789", first), man.size());
    const std::string prefixed = answer.Header(man.substr(first, end - first) + "-" + name);
    return prefixed.empty() ? answer.Header(name) : prefixed;
}

Login CimLogin(const std::string& user, const std::string& password) {
    return BasicLogin(OneByteEach(user), OneByteEach(password));
}

bool IsBasicChallenge(const std::string& challenge) {
    const std::string realm = kRealm;
    return challenge.compare(0, realm.size(), realm) == 0 &&
           challenge.find('"', realm.size()) != std::string::npos;
}

}  // namespace Kemffdc::Cim
