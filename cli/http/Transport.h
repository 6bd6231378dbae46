// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_TRANSPORT_H
#define KEMFFDC_HTTP_TRANSPORT_H

#include <memory>
#include <optional>
#include <string>

#include "cli/Options.h"
#include "cli/report/Report.h"

namespace Kemffdc {

// How far a request got. The numbers are the codes of the preflight step in the report.
enum class Stage {
    kDone = 0,
    kResolve = 1,
    kConnect = 2,
    kTls = 3,
    kService = 4,
    kLogin = 5,
    kTrust = 6,  // the peer answers, and is not to have the password
};

// An answer, or why there is none.
struct Answer {
    Stage failedAt = Stage::kDone;  // of the transport; an HTTP error is an answer
    std::string reason;             // what was wrong and what to do, where there is no answer
    long httpCode = 0;
    std::string body;
    bool lowerCaseNames = false;    // no header's name has an upper-case letter
    bool wantsCertificate = false;  // the server asked for one of this machine
};

// GET requests to one BMC, to find out what is wrong before the library is used, which does not
// tell. As the library does: redirects are followed and the environment's proxies hold. Unlike the
// library, which sends the password along: redirects stay with HTTPS on the same host, and the
// BMC's certificate is verified where the options name a CA file.
class Transport {
public:
    // `seconds`: for one request, connection set-up and redirects included. Throws std::bad_alloc.
    Transport(const Options& options, int seconds);
    ~Transport();

    // Answers of more than 1 MiB are failures.
    Answer Get(const std::string& path);

    // With HTTP Basic authentication (RFC 7617).
    Answer Get(const std::string& path, const std::string& user, const std::string& password);

    // A TLS handshake on a new connection, and no request: is this still the BMC? Without a CA file
    // nothing can be told, and nothing is done.
    Answer CheckCertificate();

    // What the server showed in the last handshake.
    const std::optional<Certificate>& ShownCertificate() const { return m_certificate; }

private:
    struct Connection;
    struct Login;

    Answer Follow(const std::string& path, const Login* login);
    Answer Perform(const std::string& url, const Login* login, long milliseconds);
    Answer CheckRedirect(const std::string& target) const;
    void NoteUntrusted();
    void NoteCertificate(void* easy, bool verified);
    Answer Explain(int curlCode, const std::string& detail) const;
    Answer ExplainTimeout() const;
    Answer ExplainTls(int curlCode, const std::string& why) const;
    Answer ExplainProxy(int curlCode, const std::string& why) const;
    bool IsAtProxy(int curlCode) const;
    bool IsOverTls(int curlCode) const;

    const Options& m_options;
    const std::string m_place;  // "192.0.2.10 port 443"
    const std::string m_baseUrl;
    const int m_seconds;
    std::unique_ptr<Connection> m_connection;
    std::optional<Certificate> m_certificate;
};

// The answer to a handshake that failed where an earlier one was good.
Answer NotCheckedAgain(int curlCode, const std::string& place, const std::string& detail);

}  // namespace Kemffdc

#endif
