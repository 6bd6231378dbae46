// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/SSLContext.h>

namespace Pegasus {

SSLContext::SSLContext(const String& trustStore, SSLCertificateVerifyFunction* verifyCert,
                       const String& randomFile)
    : m_trustStore(trustStore), m_verifyCert(verifyCert), m_randomFile(randomFile) {}

Boolean SSLContext::isPeerVerificationEnabled() const {
    return m_trustStore.size() != 0 || m_verifyCert != nullptr;
}

}  // namespace Pegasus
