// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Earlier.h"

#include <filesystem>

#include "Transfer.h"
#include "cli/CertificateGuard.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/redfish/Adoption.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Requests.h"

namespace Kemffdc::Redfish {
namespace {

constexpr int kLongestChain = 100;
constexpr std::time_t kNear = 60;  // seconds, of two requests

// What has come of the archive already: in that run, or in one that it went on with.
void RecallPart(const History::Store& store, History::Id run, Earlier& earlier) {
    for (int link = 0; run != 0 && earlier.part.empty() && link < kLongestChain; ++link) {
        for (const History::ArchiveRow& archive : store.Archives(run)) {
            std::error_code ignored;
            const bool usable = !archive.validator.empty() && !archive.partial.empty() &&
                                std::filesystem::exists(archive.partial, ignored);
            if (!usable) continue;
            earlier.part = archive.partial;
            earlier.validator = archive.validator;
        }
        const auto row = store.FindRun(run);
        run = row ? row->continues : 0;
    }
}

Intent IntentOf(const Context& run, Operation operation, const std::string& host) {
    constexpr int kManyRuns = 50;
    const History::Store store(History::StateFolder(run.options.stateDir));
    const auto asked = [&store](History::Id one) {
        return ReadIsoTime(store.AskedAt(one)).value_or(0);
    };
    Intent intent;
    intent.at = asked(run.options.resumes);
    intent.miniLog = Own(run.options).miniLog;
    intent.standard = operation == Operation::kStandard;
    // A BMC that was reset counts its tasks from the beginning: older ones tell nothing.
    for (const History::RunRow& one : store.Runs(host, kManyRuns)) {
        const bool near = asked(one.id) >= intent.at - kNear;
        if (near && !one.task.empty()) intent.known.insert(one.task);
    }
    return intent;
}

}  // namespace

std::string Earlier::TakeOverPart(const Context& run, const std::string& name) const {
    const bool taken = !part.empty() && run.folder.TakeOver(part, name + Varnex::kPartSuffix);
    return taken ? validator : "";
}

Outcome Recall(const Context& run, Earlier& earlier) {
    try {
        const History::Store store(History::StateFolder(run.options.stateDir));
        const auto row = store.FindRun(run.options.resumes);
        if (row) {
            earlier.host = row->host;
            earlier.task = row->task;
            earlier.begun = row->begunAt;
        }
        RecallPart(store, run.options.resumes, earlier);
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
    return {};
}

Outcome Adopt(Context& run, Operation operation, Earlier& earlier) {
    if (!earlier.task.empty()) return {};
    Intent intent;
    try {
        intent = IntentOf(run, operation, earlier.host);
    } catch (const History::StoreError& error) {
        return Failure(kLocalFile, error.what());
    }
    run.Begin("adopt");
    Transport transport(EndpointOf(run.options), run.trust, kRedfishService, RequestSeconds());
    const Login login = BasicLogin(run.options.user, run.password.Reveal());
    earlier.task = FindTask(transport, login, intent).uri;
    const bool found = !earlier.task.empty();
    if (found) run.report.SetTask({earlier.task, "", "", {}, {}});
    return run.End(found ? 0 : 1, {}, found ? earlier.task : "the BMC has no task of it");
}

Outcome ReachAgain(Context& run, Operation operation, Preflight& found) {
    run.report.SetOperation(NameOf(operation), "the earlier run has begun with it");
    run.Begin("preflight");
    found = RunPreflight(run.options, run.trust, run.password, RequestSeconds(), false);
    run.report.SetFacts(found.facts);
    if (found.state == Preflight::State::kReady) run.report.Reach(Milestone::kReached);
    Outcome outcome;
    if (found.state == Preflight::State::kFailed) {
        outcome = Failure(kNotConnected, found.cause, found.reason);
    } else if (found.state == Preflight::State::kStarting) {
        outcome = DiagnoseStarting();
    }
    return run.End(static_cast<int>(found.stage), outcome);
}

}  // namespace Kemffdc::Redfish
