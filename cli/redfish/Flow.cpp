// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Flow.h"

#include <varnex/KEMFfdc.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <optional>

#include "Clock.h"
#include "LogSink.h"
#include "cli/CertificateGuard.h"
#include "cli/Connection.h"
#include "cli/Context.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Events.h"
#include "cli/redfish/Fetching.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Preflight.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Sessions.h"
#include "cli/redfish/Task.h"
#include "cli/redfish/TaskWatch.h"
#include "cli/redfish/standard/Collect.h"
#include "cli/redfish/standard/Part.h"
#include "cli/redfish/tree/Collect.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

constexpr int kLookSeconds = 10;                 // for what is told besides
constexpr std::chrono::seconds kFleetPause{20};  // nobody follows the percentages of four hundred

// One BMC, reached through the library.
class BmcRun {
public:
    explicit BmcRun(Context& run)
        : m_run(run),
          m_guard(run, EndpointOf(run.options), kRedfishService),
          m_listener(run.progress, {[this] { m_guard.CheckRequest(); },
                                    [this](const char* state) {
                                        if (m_watch) m_watch->TaskGoesOn(state);
                                    },
                                    [this] {
                                        if (m_watch) m_watch->TaskEnded();
                                    }}) {}

    // Until it is known which operation the BMC is to be asked for.
    Outcome Find() {
        bool starting = false;
        Outcome outcome = Look(starting);
        if (!outcome.Ok() || !starting) return outcome;
        outcome = Start();
        // While the BMC was starting, nobody has looked at the credentials.
        if (outcome.Ok()) outcome = Look(starting);
        const bool waits = m_found.chosen.operation == Operation::kOem;  // the library, once more
        return outcome.Ok() && starting && !waits ? DiagnoseStarting() : outcome;
    }

    // Until it can be asked for an export.
    Outcome Reach() {
        Outcome outcome = m_ffdc ? Outcome{} : Start();
        return outcome.Ok() ? Connect() : outcome;
    }

    // Once found; the library's own where the BMC is starting still.
    const Preflight& Found() const { return m_found; }

    Outcome CheckCertificate() { return m_guard.Check(); }

    Outcome Export() {
        m_run.report.Reach(Milestone::kExporting);
        m_run.Begin("export");
        m_listener.Take();
        int code = -1;
        std::string thrown;
        m_run.bmcGathers = true;
        try {
            code = m_ffdc->Apply();
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& failure) {
            thrown = failure.what();
            if (thrown.empty()) thrown = "no reason given";
        }
        const Events events = m_listener.Take();
        const Outcome outcome = DiagnoseExport(code, thrown, events);
        if (outcome.Ok()) NameTask(events.Last(EventKind::kExportAnswered));
        return m_run.End(code, outcome);
    }

    Outcome Wait(std::string& path) {
        m_run.Begin("gather");
        m_listener.Take();
        m_listener.CountFromHere();
        m_ffdc->SetTrialCount(Own(m_run.options).tries);
        m_ffdc->SetTrialInterval(Own(m_run.options).interval);
        Waited waited;
        WatchTask();
        waited.exists = m_ffdc->IsFFDCLogExist(path);
        m_watch.reset();
        waited.path = path;
        waited.asked = m_listener.Asked();
        m_run.bmcGathers = !waited.exists;
        const Events events = m_listener.Take();
        if (!events.Has(EventKind::kConnectionLost) && !m_run.interrupt.Raised()) {
            waited.task = LookAtTask();
        }
        if (waited.exists && !waited.task) {
            m_run.report.SetTask({m_taskUri, TaskStateText(EventKind::kTaskCompleted), "", {}, {}});
        }
        return m_run.End(waited.exists ? 0 : 1, DiagnoseWait(waited, events, m_run.options));
    }

    Outcome Download(const std::string& path) {
        const std::string name = m_run.NameFor(Varnex::WithoutHiddenSecrets(path));
        m_run.recorder.SetBmcPath(path);
        m_run.Begin("download");
        m_listener.Take();
        Downloaded downloaded;
        OweSession();
        {
            const DownloadWatch watch(m_run);
            downloaded.code = m_ffdc->DownloadFFDC(path, m_run.folder.WorkPath(name));
            downloaded.error = watch.Error();
            downloaded.errorText = watch.ErrorText();
        }
        downloaded.lowerCaseNames = m_found.lowerCaseNames;
        // After a signal the last word comes first.
        if (!m_run.interrupt.Raised()) m_run.farewell.Pay(kSessionSeconds);
        Outcome outcome =
            m_run.End(downloaded.code, DiagnoseDownload(downloaded, m_listener.Take()));
        if (outcome.Ok()) outcome = m_guard.CheckAfterwards();
        return outcome.Ok() ? StoreArchive(m_run, name, path) : outcome;
    }

private:
    Outcome Look(bool& starting) {
        m_run.Begin("preflight");
        m_found = RunPreflight(m_run.options, m_run.trust, m_run.password, RequestSeconds(),
                               m_run.options.command == Command::kCheck);
        m_run.report.SetFacts(m_found.facts);
        starting = m_found.state == Preflight::State::kStarting;
        if (starting) m_run.progress.State("BMC is starting (503)");
        if (m_found.state == Preflight::State::kReady) TellOperation();
        const bool failed = m_found.state == Preflight::State::kFailed;
        return m_run.End(static_cast<int>(m_found.stage),
                         failed ? Failure(kNotConnected, m_found.cause, m_found.reason) : Outcome{},
                         starting ? "BMC is starting (503)" : "");
    }

    // Who gets something else than usual is told while it is on its way.
    void TellOperation() {
        const Chosen& chosen = m_found.chosen;
        const std::string name = NameOf(chosen.operation);
        m_run.report.SetOperation(name, chosen.why);
        if (chosen.operation != Operation::kOem) {
            m_run.progress.Say("Operation " + name + " is taken: " + chosen.why + ".");
        }
    }

    // The constructor asks for the BMC's version, and waits while the BMC is starting.
    Outcome Start() {
        m_run.Begin("start");
        const Options& options = m_run.options;
        const Varnex::KEMFfdcUploadingUri uri{options.exportUri, options.exportUser,
                                              m_run.exportPassword.Reveal()};
        const Clock::Monotonic begin = Clock::Now();
        m_ffdc = std::make_unique<Varnex::KEMFfdc>(
            ConnectionToBmc(m_run), uri,
            Own(options).miniLog ? Varnex::BMCLOG_MINI_LOG : Varnex::BMCLOG_PROCESSOR_DUMP);
        const auto waited = std::chrono::duration_cast<std::chrono::seconds>(Clock::Now() - begin);
        const Events events = m_listener.Take();
        m_olderPaths = events.Has(EventKind::kOlderPaths);
        return m_run.End(0, DiagnoseStart(events, waited));
    }

    Outcome Connect() {
        m_run.Begin("connect");
        const int code = m_ffdc->Connect();
        return m_run.End(code, DiagnoseConnect(code, m_listener.Take()));
    }

    // From here on the task can be found again, whatever becomes of this run.
    void NameTask(const Event* answer) {
        if (answer != nullptr) m_taskUri = TaskUri(answer->text, m_olderPaths);
        if (!m_taskUri.empty()) m_run.report.SetTask({m_taskUri, "", "", {}, {}});
        m_run.report.Reach(Milestone::kGathering, m_taskUri);
    }

    std::chrono::seconds PauseBetweenLooks() const {
        const std::chrono::seconds interval(Own(m_run.options).interval);
        return m_run.options.attempt ? std::max(interval, kFleetPause) : interval;
    }

    void WatchTask() {
        if (m_taskUri.empty()) return;
        m_watch.emplace(m_run.options, m_run.trust, m_run.password, m_taskUri, PauseBetweenLooks(),
                        [this](const Task& task) {
                            m_run.report.SetTask(task);
                            if (!task.state.empty()) {
                                m_run.progress.State("task " + task.state);
                            }
                            m_run.progress.Work(task.percent, NewestMessage(task));
                        });
    }

    // The library opens a session for the download, and leaves it open.
    void OweSession() {
        const auto session =
            std::make_shared<DownloadSession>(m_run.options, m_run.trust, m_run.password);
        session->ListBefore(kSessionSeconds);
        m_run.farewell.Owe([session, &progress = m_run.progress](std::chrono::seconds limit) {
            const std::string note = session->Close(limit);
            if (!note.empty()) progress.Say("Note: " + note);
        });
    }

    // What the BMC itself says of the task, once the library has given it up.
    std::optional<Task> LookAtTask() {
        Transport transport(EndpointOf(m_run.options), m_run.trust, kRedfishService,
                            std::min(RequestSeconds(), kLookSeconds));
        auto task = AskForTask(transport, BasicLogin(m_run.options.user, m_run.password.Reveal()),
                               m_taskUri);
        if (task) m_run.report.SetTask(*task);
        return task;
    }

    Context& m_run;
    CertificateGuard m_guard;
    Listener m_listener;
    std::unique_ptr<Varnex::KEMFfdc> m_ffdc;
    std::optional<TaskWatch> m_watch;  // while the library waits for the task
    std::string m_taskUri;             // empty until the BMC has named it
    Preflight m_found;
    bool m_olderPaths = false;
};

// The OEM's operation, by the library.
Outcome CollectOem(BmcRun& redfish, Context& run) {
    Outcome outcome = redfish.Reach();
    if (outcome.Ok()) outcome = redfish.CheckCertificate();
    if (outcome.Ok()) run.report.Reach(Milestone::kReached);
    if (outcome.Ok()) outcome = redfish.Export();
    if (!outcome.Ok()) return outcome;
    std::string path;
    outcome = redfish.Wait(path);
    if (outcome.Ok() && run.options.exportUri.empty()) outcome = run.AwaitTurn();
    if (outcome.Ok()) outcome = redfish.CheckCertificate();
    if (!outcome.Ok()) return outcome;

    if (run.options.exportUri.empty()) return redfish.Download(path);
    Delivery delivery;
    delivery.exportUri = path;
    run.report.SetDelivery(delivery);
    return {};
}

}  // namespace

Outcome Collect(Context& run) {
    Preflight found;
    {
        BmcRun redfish(run);
        Outcome outcome = redfish.Find();
        if (!outcome.Ok()) return outcome;
        found = redfish.Found();
        if (found.chosen.operation == Operation::kOem) return CollectOem(redfish, run);
    }
    run.report.Reach(Milestone::kReached);
    if (found.chosen.operation == Operation::kStandard) {
        return CollectStandard(run, found.logServices);
    }
    const Outcome turn = run.AwaitTurn();
    return turn.Ok() ? CollectTree(run) : turn;
}

Outcome Check(Context& run) {
    BmcRun redfish(run);
    Outcome outcome = redfish.Find();
    if (!redfish.Found().logServices.found.empty()) {
        run.report.SetPart(std::make_shared<StandardPart>(redfish.Found().logServices));
    }
    const bool byLibrary = redfish.Found().chosen.operation == Operation::kOem;
    if (outcome.Ok() && byLibrary) outcome = redfish.Reach();
    if (outcome.Ok()) outcome = redfish.CheckCertificate();
    if (outcome.Ok()) run.report.Reach(Milestone::kReached);
    const bool limited = outcome.Ok() && !redfish.Found().limit.empty();
    return limited ? Failure(kLimited, redfish.Found().limit) : outcome;
}

}  // namespace Kemffdc::Redfish
