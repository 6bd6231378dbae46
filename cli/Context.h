// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONTEXT_H
#define KEMFFDC_CONTEXT_H

#include <atomic>
#include <string>
#include <vector>

#include "cli/Archive.h"
#include "cli/Arrivals.h"
#include "cli/ExitCodes.h"
#include "cli/Farewell.h"
#include "cli/Limits.h"
#include "cli/Options.h"
#include "cli/TurnGate.h"
#include "cli/history/Recorder.h"
#include "cli/http/Trust.h"
#include "cli/report/Report.h"
#include "cli/terminal/Interrupt.h"
#include "cli/terminal/Progress.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc {

// What a channel's flow works with. Owned by Run.
struct Context {
    const Options& options;
    const Trust& trust;  // whom the password may be sent to
    const Secret& password;
    const Secret& exportPassword;
    Progress& progress;
    Report& report;
    OutputFolder& folder;  // open where something is to be downloaded
    Interrupt& interrupt;
    Limits& limits;
    Arrivals& arrivals;
    History::Recorder& recorder;
    std::atomic<bool>& bmcGathers;  // a run that ends now leaves the BMC at work
    Farewell& farewell;             // paid at the latest when the process ends
    TurnGate* turns;                // null: downloads take no turns

    // Before the BMC is asked for an archive: blocks until it is this run's turn, and from then on
    // it transfers; or until the run is to stop.
    Outcome AwaitTurn();

    // Announces a step to progress and report.
    void Begin(const std::string& step) {
        report.BeginStep(step);
        progress.Step(step);
    }

    // A name after the operator's template, for what the BMC calls so.
    std::string NameFor(const std::string& bmcPath) const;

    // Finds out whether the file at file.path unpacks to its end, where it is an archive.
    void Examine(DeliveredFile& file);

    // Moves what was downloaded, in the working folder, to its place. From then on the run is done,
    // and nothing stops it.
    Outcome Deliver(const std::string& from, const std::string& name, std::string& path) {
        interrupt.ClaimEnding();
        return folder.Deliver(from, name, path);
    }

    // Ends it; gives `outcome` back, or that of an interrupted run or of a limit that was reached.
    Outcome End(int code, const Outcome& outcome, const std::string& detail = "") {
        report.EndStep(code, outcome.Ok() ? detail : outcome.reason);
        if (interrupt.Raised()) return Failure(kInterrupted, "Interrupted.");
        const Outcome limit = limits.Reached();
        return limit.Ok() ? outcome : limit;
    }
};

// What it means that an archive came, was kept, and cannot be read to its end; no failure where it
// can.
Outcome DiagnoseDamage(const DeliveredFile& file);

}  // namespace Kemffdc

#endif
