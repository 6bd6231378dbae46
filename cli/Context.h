// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONTEXT_H
#define KEMFFDC_CONTEXT_H

#include <atomic>
#include <string>
#include <vector>

#include "cli/Archive.h"
#include "cli/Arrivals.h"
#include "cli/ExitCodes.h"
#include "cli/Limits.h"
#include "cli/Options.h"
#include "cli/report/Report.h"
#include "cli/terminal/Interrupt.h"
#include "cli/terminal/Progress.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc {

// What a channel's flow works with. Owned by Run.
struct Context {
    const Options& options;
    const Secret& password;
    const Secret& exportPassword;
    Progress& progress;
    Report& report;
    OutputFolder& folder;  // open where something is to be downloaded
    Interrupt& interrupt;
    const Limits& limits;
    const Arrivals& arrivals;
    std::atomic<bool>& bmcGathers;  // a run that ends now leaves the BMC at work

    // Announces a step to progress and report.
    void Begin(const std::string& step) {
        report.BeginStep(step);
        progress.Step(step);
    }

    // Moves what was downloaded to its place. From then on the run is done, and nothing stops it.
    Outcome Deliver(const std::string& name, std::string& path) {
        interrupt.ClaimEnding();
        return folder.Deliver(name, path);
    }

    // Ends it; gives `outcome` back, or that of an interrupted run or of a limit that was reached.
    Outcome End(int code, const Outcome& outcome, const std::string& detail = "") {
        report.EndStep(code, outcome.Ok() ? detail : outcome.reason);
        if (interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
        const Outcome limit = limits.Reached();
        return limit.Ok() ? outcome : limit;
    }
};

}  // namespace Kemffdc

#endif
