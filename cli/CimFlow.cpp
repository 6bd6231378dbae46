// SPDX-License-Identifier: Apache-2.0
#include "CimFlow.h"

#include <varnex/KEMFfdc.h>

#include <chrono>

#include "CimPreflight.h"
#include "CimProbe.h"
#include "CimRecords.h"
#include "CimVerdict.h"
#include "Clock.h"
#include "Context.h"
#include "GlobalConfig.h"
#include "Text.h"

namespace Kemffdc {
namespace {

constexpr int kPreflightSeconds = 60;  // for one request
constexpr int kGuardTries = 3;
constexpr std::chrono::seconds kGuardPause{1};

constexpr std::int32_t kPlain = 0;
constexpr std::int32_t kTls = 1;
constexpr std::int32_t kMachine = 2;  // the namespace of the machine
constexpr std::int32_t kNode = 3;     // that of one node

Varnex::VarnexConnection::ConnectionInfo ConnectionOf(const Context& run) {
    Varnex::VarnexConnection::ConnectionInfo conn;
    conn.host = run.options.host;
    conn.port = run.options.port;
    conn.userid = run.options.user;
    conn.password = run.password.Reveal();
    conn.node = run.options.node.value_or(0);
    conn.connection_type = run.options.plain ? kPlain : kTls;
    conn.connection_case = run.options.node ? kNode : kMachine;
    conn.connection_ipversion = run.options.ipv6 ? 1 : 0;
    return conn;
}

Varnex::KEMFfdcUploadingUri TargetOf(const Context& run) {
    return {run.options.exportUri, run.options.exportUser, run.exportPassword.Reveal()};
}

// One BMC, reached through the library.
class CimRun {
public:
    explicit CimRun(Context& run)
        : m_run(run),
          m_listener(run.progress, run.report, run.bmcGathers, [this] { GuardRequest(); }),
          m_ffdc(ConnectionOf(run), TargetOf(run), run.options.initialize) {}

    // Until the BMC can be asked for an export.
    Outcome Reach(bool look) {
        Outcome outcome = Look(look);
        if (outcome.Ok()) outcome = CheckCertificate();
        if (outcome.Ok()) outcome = Connect();
        return outcome;
    }

    // Why nothing can be exported by this BMC, where that is sure.
    const std::string& Limit() const { return m_limit; }

    Outcome Export() {
        m_run.Begin("export");
        m_run.progress.Say("The BMC itself uploads its archives to " +
                           Clean(m_run.options.exportUri) + "; none comes to this machine.");
        const int code = m_ffdc.Apply();
        return m_run.End(code, JudgeCimExport(code, m_listener.End(code == 0)));
    }

private:
    static int RequestSeconds() {
        const int configured = GetGlobalConfigValue("REST_ACTION_TIMEOUT", 0);
        return configured > 0 ? configured : kPreflightSeconds;
    }

    // The library verifies no certificate before it sends the password: the tool looks right before
    // it connects, and whenever the library says that a request is due.
    Outcome CheckCertificate() {
        const CimReply reply = CimProbe(m_run.options, RequestSeconds()).CheckCertificate();
        if (reply.failedAt == Stage::kDone) return {};
        m_run.Begin("certificate");
        return m_run.End(static_cast<int>(reply.failedAt), Failure(kNotConnected, reply.reason));
    }

    // A BMC may be out of reach for a moment; somebody else in its place ends the run at once.
    void GuardRequest() {
        if (m_run.options.caFile.empty()) return;
        CimReply reply;
        for (int tries = 0; tries < kGuardTries; ++tries) {
            reply = CimProbe(m_run.options, RequestSeconds()).CheckCertificate();
            if (reply.failedAt == Stage::kDone) return;
            if (reply.failedAt == Stage::kTrust) break;
            Clock::SleepFor(kGuardPause);
        }
        m_run.interrupt.Stop(Failure(kNotConnected, reply.reason));
    }

    Outcome Look(bool look) {
        m_run.Begin("preflight");
        const CimPreflight found = ProbeCim(m_run.options, m_run.password, RequestSeconds(), look);
        m_run.report.SetFacts(found.facts);
        m_limit = found.limit;
        return m_run.End(static_cast<int>(found.stage),
                         found.reason.empty() ? Outcome{} : Failure(kNotConnected, found.reason));
    }

    Outcome Connect() {
        m_run.Begin("connect");
        const int code = m_ffdc.Connect();
        return m_run.End(code, JudgeCimConnect(code, m_listener.Account()));
    }

    Context& m_run;
    CimListener m_listener;
    Varnex::KEMFfdc m_ffdc;
    std::string m_limit;
};

}  // namespace

Outcome CollectByCim(Context& run) {
    CimRun cim(run);
    Outcome outcome = cim.Reach(false);
    if (outcome.Ok()) outcome = cim.Export();
    if (!outcome.Ok()) return outcome;
    Delivery delivery;
    delivery.exportUri = run.options.exportUri;
    run.report.SetDelivery(delivery);
    return {};
}

Outcome CheckByCim(Context& run) {
    CimRun cim(run);
    const Outcome outcome = cim.Reach(true);
    const bool limited = outcome.Ok() && !cim.Limit().empty();
    return limited ? Failure(kLimited, cim.Limit()) : outcome;
}

}  // namespace Kemffdc
