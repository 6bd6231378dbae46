// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/SSLContext.h>

#include <Pegasus/Common/Exception.h>

namespace Pegasus {

SSLContext::SSLContext(const String& trustStore, SSLCertificateVerifyFunction* verifyCert,
                       const String&) {
    if (trustStore != String::EMPTY || verifyCert != nullptr) {
        throw SSLException("the built-in CIM client verifies no certificates");
    }
}

}  // namespace Pegasus
