// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_EXITCODES_H
#define KEMFFDC_EXITCODES_H

#include <string>
#include <utility>

namespace Kemffdc {

// How a run ended, as scripts see it. Part of the tool's interface: never renumber.
enum ExitCode : int {
    kDone = 0,            // archive obtained, or left at the export URI; check: BMC usable
    kUsage = 2,           // the command line, or no password
    kNotConnected = 3,    // could not connect or authenticate
    kExportRefused = 4,   // the BMC refused to gather or to export, or gave nothing to follow it by
    kTaskFailed = 5,      // the task failed, was killed or ended in an unknown state
    kNotFinished = 6,     // still running after the last try, or the run at its deadline
    kDownloadFailed = 7,  // gathered, but not fetched
    kLocalFile = 8,       // a file, folder or disk of this machine
    kFilesMissing = 9,    // some of the BMC's files were fetched, and some were not
    kLimited = 10,        // check: reached, but collect would not get as far as gathering
    kInterrupted = 130,   // Ctrl-C and the other signals that ask a process to end
};

// The result of a step: an exit code, and for every code but 0 a text that tells the operator what
// was wrong and what to do. The text is free of secrets and of control bytes.
struct Outcome {
    ExitCode code = kDone;
    std::string reason;

    bool Ok() const { return code == kDone; }
};

inline Outcome Failure(ExitCode code, std::string reason) { return {code, std::move(reason)}; }

}  // namespace Kemffdc

#endif
