// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_SSLCONTEXT_H
#define PEGASUS_SSLCONTEXT_H

#include <Pegasus/Common/String.h>

namespace Pegasus {

class SSLCertificateInfo;
using SSLCertificateVerifyFunction = Boolean(SSLCertificateInfo&);

// That TLS is wanted. Nothing is verified: any certificate of any host is accepted.
class SSLContext {
public:
    // Throws SSLException for a trust store or a callback: here nobody would ask them.
    // `randomFile` has no effect: OpenSSL seeds itself.
    SSLContext(const String& trustStore, SSLCertificateVerifyFunction* verifyCert,
               const String& randomFile = String::EMPTY);
};

}  // namespace Pegasus

#endif
