// SPDX-License-Identifier: Apache-2.0
#include "cli/report/RunRecord.h"

namespace Kemffdc {
namespace {

// How an ending reads in JSON and history, and whether the same command may end better later.
struct Meaning {
    const char* name;
    bool retryable;
};

Meaning MeaningOf(ExitCode code) {
    switch (code) {
        case kDone:
            return {"ok", false};
        case kUsage:
            return {"usage", false};
        case kNotConnected:
            return {"not-connected", true};
        case kExportRefused:
            return {"export-refused", false};
        case kTaskFailed:
            return {"task-failed", false};
        case kNotFinished:
            return {"not-finished", true};
        case kDownloadFailed:
            return {"download-failed", true};
        case kLocalFile:
            return {"local-file", false};
        case kIncomplete:
            return {"files-missing", true};
        case kLimited:
            return {"limited", false};
        case kInterrupted:
            return {"interrupted", true};
        case kFleetSome:
        case kFleetNone:  // no run of one BMC ends so
            break;
    }
    return {"unknown", false};
}

// No `default:`, so that the compiler misses a cause that has no row.
Meaning MeaningOf(Cause cause, ExitCode code) {
    switch (cause) {
        case Cause::kUnnamed:
            return MeaningOf(code);
        case Cause::kNoPassword:
            return {"no-password", false};
        case Cause::kUnknownHost:
            return {"unknown-host", false};
        case Cause::kUnreachable:
            return {"unreachable", true};
        case Cause::kTlsFailed:
            return {"tls-failed", false};
        case Cause::kUntrusted:
            return {"untrusted", false};
        case Cause::kLoginRefused:
            return {"login-refused", false};
        case Cause::kNotPermitted:
            return {"not-permitted", false};
        case Cause::kStarting:
            return {"starting", true};
        case Cause::kConnectionLost:
            return {"connection-lost", true};
        case Cause::kNoService:
            return {"no-service", false};
        case Cause::kBmcFault:
            return {"bmc-fault", true};
        case Cause::kUnsupported:
            return {"unsupported", false};
        case Cause::kBusy:
            return {"busy", true};
        case Cause::kTaskKilled:
            return {"task-killed", true};
        case Cause::kTaskLost:
            return {"task-lost", true};
        case Cause::kStoreRefused:
            return {"store-refused", false};
        case Cause::kNoFileService:
            return {"no-file-service", true};
        case Cause::kTooLarge:
            return {"too-large", false};
        case Cause::kUnreadable:
            return {"unreadable", true};
        case Cause::kDiskFull:
            return {"disk-full", false};
        case Cause::kOutOfMemory:
            return {"out-of-memory", true};
        case Cause::kLocked:
            return {"locked", true};
        case Cause::kDeadline:
            return {"deadline", true};
    }
    return MeaningOf(code);
}

Meaning MeaningOf(const Outcome& outcome) {
    return outcome.Ok() ? MeaningOf(kDone) : MeaningOf(outcome.cause, outcome.code);
}

}  // namespace

const char* OutcomeName(const Outcome& outcome) { return MeaningOf(outcome).name; }

const char* TrustName(CertificateTrust trust) {
    switch (trust) {
        case CertificateTrust::kNobody:
            break;
        case CertificateTrust::kCaFile:
            return "ca-file";
        case CertificateTrust::kFingerprint:
            return "fingerprint";
        case CertificateTrust::kKnown:
            return "known";
        case CertificateTrust::kFirstUse:
            return "first-use";
        case CertificateTrust::kReplaced:
            return "replaced";
    }
    return nullptr;
}

const char* OutcomeName(const RunRecord& record) {
    if (!record.outcome.Ok()) return OutcomeName(record.outcome);
    if (!record.delivery.path.empty()) return "downloaded";
    return record.delivery.exportUri.empty() ? "checked" : "exported";
}

bool IsRetryable(const Outcome& outcome) { return MeaningOf(outcome).retryable; }

}  // namespace Kemffdc
