// SPDX-License-Identifier: Apache-2.0
#ifndef PEGASUS_SSLCONTEXT_H
#define PEGASUS_SSLCONTEXT_H

#include <Pegasus/Common/String.h>

namespace Pegasus {

// What a certificate-verification callback is shown: one certificate of the peer's chain and what
// the built-in verification says of it.
class SSLCertificateInfo {
public:
    SSLCertificateInfo(const String& subjectName, const String& issuerName, int errorDepth,
                       int errorCode, const String& errorString)
        : m_subjectName(subjectName),
          m_issuerName(issuerName),
          m_errorDepth(errorDepth),
          m_errorCode(errorCode),
          m_errorString(errorString) {}

    const String& getSubjectName() const { return m_subjectName; }
    const String& getIssuerName() const { return m_issuerName; }
    // 0 is the peer's own certificate.
    int getErrorDepth() const { return m_errorDepth; }
    // OpenSSL's X509_V_... code; 0 is good.
    int getErrorCode() const { return m_errorCode; }
    const String& getErrorString() const { return m_errorString; }

private:
    String m_subjectName;
    String m_issuerName;
    int m_errorDepth;
    int m_errorCode;
    String m_errorString;
};

// True accepts the certificate, whatever the built-in verification said.
using SSLCertificateVerifyFunction = Boolean(SSLCertificateInfo&);

// How to speak TLS. Making one reads nothing and does not throw, not even for a trust store that
// does not exist: then no peer is trusted.
//
// Without trust store and callback nothing is verified: any certificate of any host is accepted.
// The name of the host is never checked.
class SSLContext {
public:
    // `trustStore`: a PEM file or a folder of hashed ones. `randomFile` has no effect: OpenSSL
    // seeds itself.
    SSLContext(const String& trustStore, SSLCertificateVerifyFunction* verifyCert,
               const String& randomFile = String::EMPTY);

    String getTrustStore() const { return m_trustStore; }
    String getRandomFile() const { return m_randomFile; }
    SSLCertificateVerifyFunction* getSSLCertificateVerifyFunction() const { return m_verifyCert; }
    Boolean isPeerVerificationEnabled() const;

private:
    String m_trustStore;
    SSLCertificateVerifyFunction* m_verifyCert;
    String m_randomFile;
};

}  // namespace Pegasus

#endif
