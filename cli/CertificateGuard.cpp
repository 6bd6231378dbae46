// SPDX-License-Identifier: Apache-2.0
#include "cli/CertificateGuard.h"

#include <chrono>
#include <utility>

#include "Clock.h"
#include "GlobalConfig.h"

namespace Kemffdc {
namespace {

constexpr std::chrono::seconds kPause{1};

Outcome Untrusted(const Answer& answer) {
    return Failure(kNotConnected, Cause::kUntrusted, answer.reason);
}

}  // namespace

int RequestSeconds() {
    constexpr int kDefault = 60;
    const int configured = GetGlobalConfigValue("REST_ACTION_TIMEOUT", 0);
    return configured > 0 ? configured : kDefault;
}

CertificateGuard::CertificateGuard(Context& run, Endpoint endpoint, const ServiceKind& kind)
    : m_run(run), m_endpoint(std::move(endpoint)), m_kind(kind) {}

Outcome CertificateGuard::Check() {
    const Answer answer = Look();
    if (answer.failedAt == Stage::kDone) return {};
    m_run.Begin("certificate");
    return m_run.End(static_cast<int>(answer.failedAt),
                     answer.failedAt == Stage::kTrust ? Untrusted(answer) : Lost(answer));
}

Outcome CertificateGuard::CheckAfterwards() {
    const Answer answer = Look();
    if (answer.failedAt == Stage::kTrust) {
        m_run.Begin("certificate");
        return m_run.End(static_cast<int>(answer.failedAt), Untrusted(answer));
    }
    if (answer.failedAt != Stage::kDone) m_run.report.AddNote(answer.reason);
    return {};
}

void CertificateGuard::CheckRequest() {
    const auto end = Clock::Now() + std::chrono::seconds(RequestSeconds());
    for (Answer answer = Look(); answer.failedAt != Stage::kDone; answer = Look()) {
        if (answer.failedAt == Stage::kTrust) m_run.interrupt.Stop(Untrusted(answer));
        if (Clock::Now() >= end) m_run.interrupt.Stop(Lost(answer));
        Clock::SleepFor(kPause);
    }
}

Answer CertificateGuard::Look() const {
    return Transport(m_endpoint, m_run.trust, m_kind, RequestSeconds()).CheckCertificate();
}

Outcome CertificateGuard::Lost(const Answer& answer) const {
    return Failure(kNotConnected, Cause::kConnectionLost,
                   "The connection to the BMC was lost. " + answer.reason +
                       " So nothing more was sent there." +
                       (m_run.bmcGathers ? " It may go on gathering." : ""));
}

}  // namespace Kemffdc
