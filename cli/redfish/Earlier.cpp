// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Earlier.h"

#include <filesystem>

#include "Transfer.h"
#include "cli/CertificateGuard.h"
#include "cli/history/StateFolder.h"
#include "cli/history/Store.h"
#include "cli/redfish/Diagnosis.h"

namespace Kemffdc::Redfish {
namespace {

constexpr int kLongestChain = 100;

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
