// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_TRANSPORT_H
#define KEMFFDC_HTTP_TRANSPORT_H

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"
#include "cli/http/Endpoint.h"
#include "cli/http/Login.h"
#include "cli/http/ServiceKind.h"
#include "cli/http/Trust.h"
#include "cli/report/Certificate.h"

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

// What a run has come to that ends there.
inline Cause CauseOf(Stage stage) {
    switch (stage) {
        case Stage::kDone:
            return Cause::kUnnamed;
        case Stage::kResolve:
            return Cause::kUnknownHost;
        case Stage::kConnect:
            return Cause::kUnreachable;
        case Stage::kTls:
            return Cause::kTlsFailed;
        case Stage::kService:
            return Cause::kNoService;
        case Stage::kLogin:
            return Cause::kLoginRefused;
        case Stage::kTrust:
            return Cause::kUntrusted;
    }
    return Cause::kUnnamed;
}

// An answer, or why there is none.
struct Answer {
    Stage failedAt = Stage::kDone;  // of the transport; an HTTP error is an answer
    std::string reason;             // what was wrong and what to do, where there is no answer
    bool tooLong = false;           // there is one, and it was not taken: ServiceKind::maxBody
    long httpCode = 0;
    std::map<std::string, std::string> headers;  // names in lower case; the first of a name
    std::string body;
    bool lowerCaseNames = false;    // no header's name has an upper-case letter
    bool wantsCertificate = false;  // the server asked for one of this machine

    std::string Header(const std::string& name) const;  // empty where there is none
    bool IsSuccess() const { return httpCode >= 200 && httpCode <= 299; }
};

// The tool's own requests to one web service: to find out what is wrong before the library is used,
// which does not tell, and what the library does not ask for. They are made as the library makes
// its own, but for two things: whom they may go to is judged before anything is sent, and redirects
// stay with HTTPS on the same host. One connection, for one thread.
class Transport {
public:
    // `seconds`: for one request, connection set-up and redirects included. Throws std::bad_alloc,
    // as do the requests.
    Transport(Endpoint endpoint, Trust trust, const ServiceKind& kind, int seconds);
    ~Transport();

    // `path` begins with a slash; header lines are whole ("Name: value").
    Answer Get(const std::string& path, const Login& login = {});
    Answer Head(const std::string& path, const Login& login = {});
    Answer Post(const std::string& path, const std::string& body,
                const std::vector<std::string>& headers, const Login& login = {});
    Answer Delete(const std::string& path, const Login& login);

    // From now on, as in the constructor.
    void SetSeconds(int seconds) { m_seconds = seconds; }

    // From now on a request ends within about a second once `stop` is true. The caller keeps owning
    // it; null: nothing stops one.
    void StopWith(const std::atomic<bool>* stop) { m_stop = stop; }

    // A TLS handshake on a new connection, and no request: is this still whom we trust? Where
    // everybody is trusted nothing can be told, and nothing is done.
    Answer CheckCertificate();

    // The one that was connected to last, numeric; empty where none was, or perhaps a proxy.
    const std::string& Address() const { return m_address; }

    // What the server showed in the last handshake.
    const std::optional<Certificate>& ShownCertificate() const { return m_certificate; }

private:
    struct Connection;
    struct Request;
    struct Reception;

    Answer Send(const Request& request);
    Answer Perform(const Request& request, const std::string& url, long milliseconds);
    Answer CheckRedirect(const std::string& target) const;
    void SetUp(void* easy, const std::string& url, const Trust& trust,
               Connection& connection) const;
    void NoteAddress(void* easy);
    void NoteUntrusted();
    void NoteCertificate(void* easy);
    Answer Explained(int curlCode, const Reception& reception) const;

    const Endpoint m_endpoint;
    const Trust m_trust;
    const ServiceKind& m_kind;
    int m_seconds;
    const std::atomic<bool>* m_stop = nullptr;
    std::unique_ptr<Connection> m_connection;
    std::string m_address;
    std::optional<Certificate> m_certificate;
};

}  // namespace Kemffdc

#endif
