// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIMPROBE_H
#define KEMFFDC_CIMPROBE_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "HttpsProbe.h"
#include "Options.h"
#include "Report.h"

namespace Kemffdc {

// An answer of the CIM server's HTTP side, or why there is none.
struct CimReply {
    Stage failedAt = Stage::kDone;  // of the transport; an HTTP error is an answer
    std::string reason;             // what was wrong and what to do, where there is no answer
    long httpCode = 0;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;                            // empty where the status is an error

    std::string Header(const std::string& name) const;  // empty where there is none
};

// Requests to enumerate a class, to find out what is wrong before the library is used, which does
// not tell. As the library does: no proxies, no redirects, at most TLS 1.2, the BMC's certificate
// is not verified.
class CimProbe {
public:
    // `seconds`: for one request, connection set-up included. Throws std::bad_alloc.
    CimProbe(const Options& options, int seconds);
    ~CimProbe();

    // Asks for the objects of `className` in `nameSpace`. `authorization` is the value of the
    // header of that name; empty: nobody says who he is. Answers of more than 1 MiB are failures.
    CimReply Enumerate(const std::string& nameSpace, const std::string& className,
                       const std::string& authorization);

    // What the server showed in the last handshake.
    const std::optional<Certificate>& ShownCertificate() const { return m_certificate; }

private:
    struct Handle;
    void NoteCertificate();
    CimReply Explain(int curlCode, const char* detail) const;
    CimReply ExplainTimeout() const;

    const std::string m_place;  // "192.0.2.10 port 5989"
    const bool m_plain;
    const int m_seconds;
    std::unique_ptr<Handle> m_handle;
    std::optional<Certificate> m_certificate;
};

}  // namespace Kemffdc

#endif
