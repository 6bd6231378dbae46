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
    kIncomplete = 9,      // what came is kept, and files are missing or cannot be read
    kLimited = 10,        // reached, but nothing can be gathered this way; nothing was started
    kFleetSome = 20,      // a fleet run: some of its BMCs ended with 0
    kFleetNone = 21,      // none did
    kInterrupted = 130,   // Ctrl-C and the other signals that ask a process to end
};

// Why a run or a step did not end well, finer than its exit code: what a script decides by. The
// name of each in JSON stands in docs/json.md; never rename or reuse one.
enum class Cause {
    kUnnamed,         // the exit code says all there is to say
    kNoPassword,      // none was given
    kUnknownHost,     // the name has no address
    kUnreachable,     // nothing answers: no route, refused, silent
    kTlsFailed,       // something answers, and no TLS could be agreed on
    kUntrusted,       // certificate or host key is not to be trusted: no password was sent
    kLoginRefused,    // user or password is wrong; trying it again may lock the account
    kNotPermitted,    // logged in, and without the right to go on
    kStarting,        // the BMC is not ready yet
    kConnectionLost,  // there was one
    kNoService,       // what answers is no such service
    kBmcFault,        // the service fails on ordinary requests, or its answers cannot be used
    kUnsupported,     // this BMC has no such operation
    kBusy,            // with another gathering
    kTaskKilled,      // by the BMC
    kTaskLost,        // what became of the task is not known
    kStoreRefused,    // the export's target took no archive: login, path or space there
    kNoFileService,   // the service that hands the files out does not answer
    kTooLarge,        // more than the run may take
    kUnreadable,      // what came is not what its name says
    kDiskFull,        // or less free than the run must leave
    kOutOfMemory,     // on this machine
    kLocked,          // another run of this user works with the same BMC
    kDeadline,        // of the run
};

// The result of a step: an exit code, and for every code but 0 a text that tells the operator what
// was wrong and what to do. The text is free of secrets and of control bytes.
struct Outcome {
    ExitCode code = kDone;
    std::string reason;
    Cause cause = Cause::kUnnamed;

    bool Ok() const { return code == kDone; }
};

inline Outcome Failure(ExitCode code, std::string reason) {
    return {code, std::move(reason), Cause::kUnnamed};
}
inline Outcome Failure(ExitCode code, Cause cause, std::string reason) {
    return {code, std::move(reason), cause};
}

}  // namespace Kemffdc

#endif
