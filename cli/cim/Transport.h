// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_TRANSPORT_H
#define KEMFFDC_CIM_TRANSPORT_H

#include <curl/curl.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "cli/Options.h"
#include "cli/http/Transport.h"
#include "cli/report/Report.h"

namespace Kemffdc::Cim {

// An answer of the CIM server's HTTP side, or why there is none.
struct Reply {
    Stage failedAt = Stage::kDone;  // of the transport; an HTTP error is an answer
    std::string reason;             // what was wrong and what to do, where there is no answer
    long httpCode = 0;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;                            // empty where the status is an error
    std::size_t lineBytes = 0;                   // of all header lines and trailers

    std::string Header(const std::string& name) const;  // empty where there is none
    // One of CIM's own, which can be called "NN-NAME" where the header Man says so (DSP0200).
    std::string CimHeader(const std::string& name) const;
};

// Requests to enumerate a class, to find out what is wrong before the library is used, which does
// not tell. As the library does: no proxies, no redirects, at most TLS 1.2. Unlike the library, the
// BMC's certificate is verified where the options name a CA file.
class Transport {
public:
    // `seconds`: for one request, connection set-up included. Throws std::bad_alloc.
    Transport(const Options& options, int seconds);
    ~Transport();

    // Asks for the objects of `className` in `nameSpace`. `authorization` is the value of the
    // header of that name; empty: nobody says who he is. Answers of more than 16 MiB are failures.
    // A refusal's body is not read.
    Reply Enumerate(const std::string& nameSpace, const std::string& className,
                    const std::string& authorization);

    // A TLS handshake on a new connection, and no request: is this still the BMC? Without a CA file
    // nothing can be told, and nothing is done.
    Reply CheckCertificate();

    // What the server showed in the last handshake.
    const std::optional<Certificate>& ShownCertificate() const { return m_certificate; }

private:
    struct Connection;

    void SetTransport(CURL* curl, const std::string& caFile) const;
    void NoteUntrusted();
    void NoteCertificate(CURL* curl, bool verified);
    std::string Detail(int curlCode) const;
    Reply Explain(int curlCode, const std::string& detail, bool tooManyLines) const;
    Reply EndlessHeaders() const;
    Reply ExplainTimeout() const;

    const Options& m_options;
    const std::string m_place;  // "192.0.2.10 port 5989"
    const int m_seconds;
    std::unique_ptr<Connection> m_connection;
    std::optional<Certificate> m_certificate;
};

}  // namespace Kemffdc::Cim

#endif
