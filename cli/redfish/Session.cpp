// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Session.h"

#include "LogSink.h"
#include "cli/CertificateGuard.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Sessions.h"

namespace Kemffdc::Redfish {
namespace {

constexpr long kUnauthorized = 401;

}  // namespace

Session::Session(Context& run, const ServiceKind& kind)
    : m_run(run), m_transport(EndpointOf(run.options), run.trust, kind, RequestSeconds()) {}

Outcome Session::Open() {
    m_token = Secret();
    const Answer answer = OpenOwnSession(m_transport, m_run.options.user, m_run.password, m_token);
    if (answer.failedAt != Stage::kDone) {
        return Failure(kNotConnected, CauseOf(answer.failedAt), answer.reason);
    }
    if (answer.httpCode == kUnauthorized) {
        return Failure(kNotConnected, Cause::kLoginRefused,
                       "The BMC opens no session for user \"" + m_run.options.user +
                           "\" with this password (HTTP 401). Check --user and the password.");
    }
    if (m_token.Empty()) {
        m_run.progress.Say("Note: The BMC opens no session (HTTP " +
                           std::to_string(answer.httpCode) + "); it is asked without one.");
        return {};
    }
    Varnex::HideInLog(m_token.Reveal());
    OweEnd(answer.Header("location"));
    return {};
}

Answer Session::Get(const std::string& path) {
    return Repeatable([&] { return m_transport.Get(path, ItsLogin()); });
}

Answer Session::Head(const std::string& path) {
    return Repeatable([&] { return m_transport.Head(path, ItsLogin()); });
}

Answer Session::Post(const std::string& path, const std::string& body) {
    return Repeatable([&] {
        return m_transport.Post(
            path, body, {"Content-Type: application/json", "Accept: application/json"}, ItsLogin());
    });
}

Answer Session::Delete(const std::string& path) {
    return Repeatable([&] { return m_transport.Delete(path, ItsLogin()); });
}

// A request that is not authorized has done nothing.
Answer Session::Repeatable(const std::function<Answer()>& request) {
    Answer answer = request();
    const bool lost = answer.failedAt == Stage::kDone && answer.httpCode == kUnauthorized;
    return lost && Renew() ? request() : answer;
}

bool Session::Renew() {
    if (m_renewed || m_token.Empty()) return false;
    m_renewed = true;
    m_run.progress.Say("Note: The BMC has ended the session; another one is opened.");
    return Open().Ok() && !m_token.Empty();
}

Login Session::ItsLogin() const {
    return m_token.Empty() ? BasicLogin(m_run.options.user, m_run.password.Reveal())
                           : TokenLogin(m_token);
}

void Session::OweEnd(const std::string& location) {
    m_run.farewell.Owe([&options = m_run.options, &trust = m_run.trust, &password = m_run.password,
                        location](std::chrono::seconds limit) {
        Transport transport(EndpointOf(options), trust, kRedfishService,
                            static_cast<int>(limit.count()));
        CloseOwnSession(transport, BasicLogin(options.user, password.Reveal()), location);
    });
}

}  // namespace Kemffdc::Redfish
