// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CERTIFICATEGUARD_H
#define KEMFFDC_CERTIFICATEGUARD_H

#include <chrono>
#include <utility>

#include "Clock.h"
#include "GlobalConfig.h"
#include "cli/Context.h"
#include "cli/http/Transport.h"

namespace Kemffdc {

// For one request of the tool's own, as the library's.
inline int RequestSeconds() {
    constexpr int kDefault = 60;
    const int configured = GetGlobalConfigValue("REST_ACTION_TIMEOUT", 0);
    return configured > 0 ? configured : kDefault;
}

// Looks at the BMC's certificate again, where not everybody is trusted: the library verifies none
// before it sends the password.
class CertificateGuard {
public:
    CertificateGuard(Context& run, Endpoint endpoint, const ServiceKind& kind)
        : m_run(run), m_endpoint(std::move(endpoint)), m_kind(kind) {}

    // As a step of the run, which only a failure shows.
    Outcome Check() {
        const Answer answer = Look();
        if (answer.failedAt == Stage::kDone) return {};
        m_run.Begin("certificate");
        return m_run.End(static_cast<int>(answer.failedAt),
                         Failure(kNotConnected, CauseOf(answer.failedAt), answer.reason));
    }

    // Right before a request of the library, on its thread. A BMC may be out of reach for a moment;
    // somebody else in its place ends the run at once.
    void CheckRequest() {
        for (int tries = 1;; ++tries) {
            const Answer answer = Look();
            if (answer.failedAt == Stage::kDone) return;
            if (answer.failedAt == Stage::kTrust || tries == kTries) {
                m_run.interrupt.Stop(
                    Failure(kNotConnected, CauseOf(answer.failedAt), answer.reason));
            }
            Clock::SleepFor(kPause);
        }
    }

private:
    static constexpr int kTries = 3;
    static constexpr std::chrono::seconds kPause{1};

    Answer Look() const {
        return Transport(m_endpoint, TrustOf(m_run.options), m_kind, RequestSeconds())
            .CheckCertificate();
    }

    Context& m_run;
    const Endpoint m_endpoint;
    const ServiceKind& m_kind;
};

}  // namespace Kemffdc

#endif
