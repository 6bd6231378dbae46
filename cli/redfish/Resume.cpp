// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "Clock.h"
#include "LogSink.h"
#include "Uri.h"
#include "cli/CertificateGuard.h"
#include "cli/Context.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Earlier.h"
#include "cli/redfish/Fetching.h"
#include "cli/redfish/Flow.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Sessions.h"
#include "cli/redfish/Task.h"
#include "cli/redfish/standard/Collect.h"
#include "cli/redfish/tree/Collect.h"
#include "file_client.h"

namespace Kemffdc::Redfish {
namespace {

constexpr int kMaxFailures = 3;  // as the library

using HeaderLines = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;

// The OEM's task of an earlier run, followed to its end by the tool's own requests: the library
// could only begin a new one.
class ResumedRun {
public:
    explicit ResumedRun(Context& run)
        : m_run(run),
          m_guard(run, EndpointOf(run.options), kRedfishService),
          m_login(BasicLogin(run.options.user, run.password.Reveal())) {}

    Outcome Recall() { return Redfish::Recall(m_run, m_earlier); }

    Outcome Reach() {
        Preflight found;
        return ReachAgain(m_run, Operation::kOem, found);
    }

    Outcome Adopt() { return Redfish::Adopt(m_run, Operation::kOem, m_earlier); }
    bool HasTask() const { return !m_earlier.task.empty(); }

    // Until the task is completed: `path` is where the archive lies on the BMC.
    Outcome Wait(std::string& path) {
        m_run.report.Reach(Milestone::kGathering, m_earlier.task);
        m_run.Begin("gather");
        m_run.bmcGathers = true;
        Transport transport(EndpointOf(m_run.options), m_run.trust, kRedfishService,
                            RequestSeconds());
        Outcome outcome;
        bool completed = false;
        for (int asked = 0, failures = 0; outcome.Ok() && !completed; ++asked) {
            if (asked > 0) Clock::SleepFor(std::chrono::seconds(Own(m_run.options).interval));
            if (asked == Own(m_run.options).tries) {
                outcome = NotFinished();
            } else {
                outcome = Ask(transport, path, completed, failures);
            }
            if (m_run.interrupt.Raised()) break;
        }
        m_run.bmcGathers = !completed;
        return m_run.End(outcome.code, outcome);
    }

    Outcome Download(const std::string& path) {
        const std::string name = m_run.NameFor(Varnex::WithoutHiddenSecrets(path));
        m_run.recorder.SetBmcPath(Varnex::WithoutHiddenSecrets(path));
        Outcome outcome = m_run.AwaitTurn();
        if (outcome.Ok()) outcome = m_guard.Check();
        if (!outcome.Ok()) return outcome;
        m_run.Begin("download");
        Secret token;
        outcome = OpenSession(token);
        if (outcome.Ok()) outcome = Fetch(path, name, token);
        if (!m_run.interrupt.Raised()) m_run.farewell.Pay(kSessionSeconds);
        outcome = m_run.End(outcome.code, outcome);
        if (outcome.Ok()) outcome = m_guard.CheckAfterwards();
        return outcome.Ok() ? StoreArchive(m_run, name, path) : outcome;
    }

private:
    Outcome NotFinished() const {
        const int tries = Own(m_run.options).tries;
        return Failure(kNotFinished, "The BMC has not finished gathering after " +
                                         std::to_string(tries) + " tries every " +
                                         std::to_string(Own(m_run.options).interval) + " s." +
                                         (m_task ? BmcSays(*m_task) : "") + " It goes on.");
    }

    Outcome Ask(Transport& transport, std::string& path, bool& completed, int& failures) {
        const Answer answer = transport.Get(m_earlier.task, m_login);
        const auto task = answer.IsSuccess() ? ReadTask(m_earlier.task, answer.body) : std::nullopt;
        if (!task) {
            if (answer.httpCode == 503) m_run.progress.State("BMC is busy (503)");
            return ++failures < kMaxFailures ? Outcome{} : DiagnoseLostTask(answer);
        }
        Show(*task);
        completed = task->state == "Completed";
        if (!completed) return DiagnoseTask(*task);
        const std::string& uri = m_run.options.exportUri;
        path = uri.empty() ? ArchivePathIn(answer.body) : uri;
        return DiagnoseWait({true, path, 0}, {}, m_run.options);
    }

    void Show(const Task& task) {
        m_task = task;
        m_run.report.SetTask(task);
        m_run.progress.State("task " + task.state);
        m_run.progress.Work(task.percent, NewestMessage(task));
    }

    // As the library opens one, but that it is known which one it is.
    Outcome OpenSession(Secret& token) {
        Transport transport(EndpointOf(m_run.options), m_run.trust, kRedfishService,
                            RequestSeconds());
        const Answer answer = OpenOwnSession(transport, m_run.options.user, m_run.password, token);
        if (answer.failedAt != Stage::kDone) {
            return Failure(kDownloadFailed, Cause::kConnectionLost, answer.reason);
        }
        if (!answer.IsSuccess()) {
            return DiagnoseDownload(
                {2}, {{EventKind::kPostFailed, 0, static_cast<int>(answer.httpCode), answer.body}});
        }
        if (token.Empty()) {
            return DiagnoseDownload({4, {}, "", false}, {{EventKind::kNoToken, 0, 0, ""}});
        }
        Varnex::HideInLog(token.Reveal());
        OweSession(answer.Header("location"));
        return {};
    }

    void OweSession(const std::string& location) {
        m_run.farewell.Owe([&options = m_run.options, &trust = m_run.trust,
                            &password = m_run.password, location](std::chrono::seconds limit) {
            Transport transport(EndpointOf(options), trust, kRedfishService,
                                static_cast<int>(limit.count()));
            CloseOwnSession(transport, BasicLogin(options.user, password.Reveal()), location);
        });
    }

    Outcome Fetch(const std::string& path, const std::string& name, const Secret& token) {
        const Options& options = m_run.options;
        try {
            const Uri uri("https", options.host, options.port, options.user,
                          m_run.password.Reveal(), path);
            const HeaderLines headers({"Accept:application/json", "Content-Type:application/json",
                                       "X-Auth-Token:" + token.Reveal()});
            const DownloadWatch watch(m_run, m_earlier.TakeOverPart(m_run, name));
            const std::error_code error =
                file_client::download(uri, m_run.folder.WorkPath(name), headers);
            return DiagnoseDownload({error ? 2 : 0, error, watch.ErrorText()}, {});
        } catch (const std::invalid_argument& fault) {
            return DiagnoseDownload({2}, {{EventKind::kBadUri, 0, 0, fault.what()}});
        }
    }

    Context& m_run;
    CertificateGuard m_guard;
    const Login m_login;
    Earlier m_earlier;
    std::optional<Task> m_task;  // as the BMC last showed it
};

// The request has not come through: an attempt of a fleet run makes another one, and who has named
// a run is told.
Outcome WithoutTask(Context& run) {
    if (run.interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
    if (run.options.attempt) return Collect(run);
    return Failure(kExportRefused,
                   "The BMC has no task of that run: its request did not get through, or the BMC "
                   "has forgotten it. Use kemffdc collect.");
}

// What had been read of it is gone: nothing is left half.
Outcome ReadTreeAnew(Context& run) {
    const std::string note = "Of a tree nothing can be gone on with: it is read anew.";
    run.progress.Say("Note: " + note);
    run.report.AddNote(note);
    Preflight found;
    Outcome outcome = ReachAgain(run, Operation::kTree, found);
    if (outcome.Ok()) outcome = run.AwaitTurn();
    return outcome.Ok() ? CollectTree(run) : outcome;
}

}  // namespace

Outcome Resume(Context& run) {
    const Operation operation = Own(run.options).operation;
    if (operation == Operation::kStandard) return ResumeStandard(run);
    if (operation == Operation::kTree) return ReadTreeAnew(run);
    ResumedRun resumed(run);
    Outcome outcome = resumed.Recall();
    if (outcome.Ok()) outcome = resumed.Reach();
    if (outcome.Ok()) outcome = resumed.Adopt();
    if (outcome.Ok() && !resumed.HasTask()) return WithoutTask(run);
    std::string path;
    if (outcome.Ok()) outcome = resumed.Wait(path);
    if (!outcome.Ok()) return outcome;
    if (run.options.exportUri.empty()) return resumed.Download(path);
    Delivery delivery;
    delivery.exportUri = path;
    run.report.SetDelivery(delivery);
    return {};
}

}  // namespace Kemffdc::Redfish
