// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONTEXT_H
#define KEMFFDC_CONTEXT_H

#include <string>
#include <vector>

#include "Archive.h"
#include "ExitCodes.h"
#include "Interrupt.h"
#include "Options.h"
#include "Progress.h"
#include "Report.h"
#include "Secret.h"

namespace Kemffdc {

// What a channel's flow works with. Owned by Run.
struct Context {
    const Options& options;
    const Secret& password;
    const Secret& exportPassword;
    Progress& progress;
    Report& report;
    OutputFolder& folder;  // open where something is to be downloaded
    const Interrupt& interrupt;

    // Announces a step to progress and report.
    void Begin(const std::string& step) {
        progress.Step(step);
        report.BeginStep(step);
    }

    // Ends it; gives `outcome` back, or that of an interrupted run.
    Outcome End(int code, const Outcome& outcome, const std::string& detail = "") {
        report.EndStep(code, outcome.Ok() ? detail : outcome.reason);
        if (interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
        return outcome;
    }
};

}  // namespace Kemffdc

#endif
