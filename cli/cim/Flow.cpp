// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Flow.h"

#include <varnex/KEMFfdc.h>

#include "cli/CertificateGuard.h"
#include "cli/Connection.h"
#include "cli/Context.h"
#include "cli/cim/Diagnosis.h"
#include "cli/cim/Events.h"
#include "cli/cim/Options.h"
#include "cli/cim/Preflight.h"
#include "cli/cim/Requests.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

constexpr std::int32_t kPlain = 0;
constexpr std::int32_t kTls = 1;
constexpr std::int32_t kMachine = 2;  // the namespace of the machine
constexpr std::int32_t kNode = 3;     // that of one node

Varnex::VarnexConnection::ConnectionInfo ConnectionOf(const Context& run) {
    auto conn = ConnectionToBmc(run);
    conn.node = Own(run.options).node.value_or(0);
    conn.connection_type = Own(run.options).plain ? kPlain : kTls;
    conn.connection_case = Own(run.options).node ? kNode : kMachine;
    return conn;
}

Varnex::KEMFfdcUploadingUri TargetOf(const Context& run) {
    return {run.options.exportUri, run.options.exportUser, run.exportPassword.Reveal()};
}

// One BMC, reached through the library.
class BmcRun {
public:
    explicit BmcRun(Context& run)
        : m_run(run),
          m_guard(run, EndpointOf(run.options, !Own(run.options).plain), kCimServer),
          m_listener(run.progress, run.report, run.bmcGathers, [this] { m_guard.CheckRequest(); }),
          m_ffdc(ConnectionOf(run), TargetOf(run), Own(run.options).initialize) {}

    // Until the BMC can be asked for an export.
    Outcome Reach(bool look) {
        Outcome outcome = Look(look);
        if (outcome.Ok()) outcome = m_guard.Check();
        if (outcome.Ok()) outcome = Connect();
        if (outcome.Ok()) m_run.report.Reach(Milestone::kReached);
        return outcome;
    }

    // kLimited where it is sure by now that nothing can be exported by this BMC.
    Outcome Limited() const { return m_limit.empty() ? Outcome{} : Failure(kLimited, m_limit); }

    Outcome Export() {
        m_run.report.Reach(Milestone::kExporting);
        m_run.Begin("export");
        m_run.progress.Say("The BMC itself uploads its archives to " +
                           Clean(m_run.options.exportUri) + "; none comes to this machine.");
        const int code = m_ffdc.Apply();
        const Outcome outcome = m_run.End(code, DiagnoseExport(code, m_listener.End(code == 0)));
        return outcome.Ok() ? m_guard.CheckAfterwards() : outcome;
    }

private:
    Outcome Look(bool look) {
        m_run.Begin("preflight");
        const Preflight found =
            RunPreflight(m_run.options, m_run.trust, m_run.password, RequestSeconds(), look);
        m_run.report.SetFacts(found.facts);
        m_limit = found.limit;
        return m_run.End(
            static_cast<int>(found.stage),
            found.reason.empty() ? Outcome{} : Failure(kNotConnected, found.cause, found.reason));
    }

    Outcome Connect() {
        m_run.Begin("connect");
        const int code = m_ffdc.Connect();
        return m_run.End(code, DiagnoseConnect(code, m_listener.Events()));
    }

    Context& m_run;
    CertificateGuard m_guard;
    Listener m_listener;
    Varnex::KEMFfdc m_ffdc;
    std::string m_limit;
};

}  // namespace

Outcome Collect(Context& run) {
    BmcRun cim(run);
    Outcome outcome = cim.Reach(false);
    if (outcome.Ok()) outcome = cim.Limited();
    if (outcome.Ok()) outcome = cim.Export();
    if (!outcome.Ok()) return outcome;
    Delivery delivery;
    delivery.exportUri = run.options.exportUri;
    run.report.SetDelivery(delivery);
    return {};
}

Outcome Check(Context& run) {
    BmcRun cim(run);
    const Outcome outcome = cim.Reach(true);
    return outcome.Ok() ? cim.Limited() : outcome;
}

}  // namespace Kemffdc::Cim
