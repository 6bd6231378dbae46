// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTPSPROBE_H
#define KEMFFDC_HTTPSPROBE_H

#include <memory>
#include <optional>
#include <string>

#include "Options.h"
#include "Report.h"

namespace Kemffdc {

// How far a request got. The numbers are the codes of the preflight step in the report.
enum class Stage { kDone = 0, kResolve = 1, kConnect = 2, kTls = 3, kService = 4, kLogin = 5 };

// An answer, or why there is none.
struct Answer {
    Stage failedAt = Stage::kDone;  // of the transport; an HTTP error is an answer
    std::string reason;             // what was wrong and what to do, where there is no answer
    long httpCode = 0;
    std::string body;
};

// GET requests to one BMC over one connection, to find out what is wrong before the library is
// used, which does not tell. As the library does: redirects are followed (to HTTPS alone), the
// environment's proxies hold, the BMC's certificate is not verified.
class HttpsProbe {
public:
    // `seconds`: for one request, connection set-up included. Throws std::bad_alloc.
    HttpsProbe(const Options& options, int seconds);
    ~HttpsProbe();

    // Answers of more than 1 MiB are failures.
    Answer Get(const std::string& path);

    // With HTTP Basic authentication (RFC 7617).
    Answer Get(const std::string& path, const std::string& user, const std::string& password);

    // What the server showed in the last handshake.
    const std::optional<Certificate>& ShownCertificate() const { return m_certificate; }

private:
    struct Handle;
    Answer Perform(const std::string& path);
    Answer Explain(int curlCode, const char* detail) const;
    Answer ExplainTimeout() const;

    const std::string m_place;  // "192.0.2.10 port 443"
    const std::string m_baseUrl;
    const int m_seconds;
    std::unique_ptr<Handle> m_handle;
    std::optional<Certificate> m_certificate;
};

// What a certificate in PEM form says; nothing when it cannot be read.
std::optional<Certificate> ReadCertificate(const std::string& pem);

}  // namespace Kemffdc

#endif
