// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Diagnosis.h"

#include "cli/redfish/Json.h"
#include "cli/redfish/Task.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

// "HTTP 400: what the BMC says"
std::string Words(const Answer& answer) {
    const std::string message = BmcMessage(answer.body);
    const std::string code = "HTTP " + std::to_string(answer.httpCode);
    return message.empty() ? code : code + ": " + message;
}

std::string Named(const Collection& wanted) {
    return wanted.oemType.empty() ? wanted.type : wanted.type + " (" + wanted.oemType + ")";
}

struct Refusal {
    long httpCode;
    Cause cause;
    const char* behind;
};
constexpr Refusal kRefusals[] = {
    {401, Cause::kLoginRefused, " Check --user and the password."},
    {403, Cause::kNotPermitted, " The account may lack the right to it."},
    {405, Cause::kUnsupported, " Its log service offers the action all the same."},
    {409, Cause::kBusy, " It may be busy with another collection. Try again later."},
    {501, Cause::kUnsupported, " Its log service offers the action all the same."},
};

Outcome Refused(const Answer& answer, const Collection& wanted) {
    Cause cause = Cause::kUnnamed;
    std::string behind;
    for (const Refusal& row : kRefusals) {
        if (row.httpCode != answer.httpCode) continue;
        cause = row.cause;
        behind = row.behind;
    }
    if (answer.httpCode == 400) behind = " Its log service: " + Described(wanted.service) + ".";
    const ExitCode code = answer.httpCode == 401 ? kNotConnected : kExportRefused;
    return Failure(code, cause,
                   "The BMC refused to collect diagnostic data of the type " + Named(wanted) +
                       " (" + Words(answer) + ")." + behind);
}

}  // namespace

Outcome DiagnoseRequest(const Answer& answer, const Reply& reply, const Collection& wanted) {
    switch (reply.state) {
        case Reply::State::kNoAnswer:
            return Failure(kNotConnected, Cause::kConnectionLost,
                           "The connection to the BMC was lost while the collection was "
                           "requested. It may gather all the same. " +
                               answer.reason);
        case Reply::State::kBusy:
            return Failure(kExportRefused, Cause::kBusy,
                           "The BMC is busy (" + Words(answer) +
                               "), perhaps with another collection. Try again later.");
        case Reply::State::kForgotten:
            return Failure(
                kExportRefused, Cause::kUnsupported,
                "The BMC has no such action where its log service says (" + Words(answer) + ").");
        case Reply::State::kRefused:
            return Refused(answer, wanted);
        case Reply::State::kUnreadable:
            return Failure(kExportRefused, Cause::kBmcFault,
                           "The BMC accepted the collection, but its answer is not readable JSON: "
                           "there is no task to follow.");
        default:
            return {};
    }
}

Outcome DiagnoseError(const Answer& answer, const std::optional<Task>& task) {
    return Failure(kTaskFailed, Cause::kUnnamed,
                   "The BMC has ended the collection with an error (" + Words(answer) + ")." +
                       (task ? BmcSays(*task) : "") + " Start it again.");
}

Outcome DiagnoseNoData(const LogEntry& entry) {
    const std::string where = entry.path.empty() ? "" : " " + Clean(entry.path);
    std::string reason =
        "The BMC's log entry" + where + " names no data to download (no AdditionalDataURI).";
    if (!entry.hint.empty()) {
        reason += " It says \"" + entry.hint +
                  "\": this may be where the data lies, which the tool does not guess.";
    }
    return Failure(kDownloadFailed, Cause::kUnsupported, reason);
}

Outcome DiagnosePlace(const LogEntry& entry, const Reference& place) {
    if (!place.other.empty()) {
        return Failure(kDownloadFailed, Cause::kUntrusted,
                       "The data lies on another host, " + place.other +
                           ": nothing was sent there. If that is the BMC, give its name or "
                           "address instead.");
    }
    if (place.path.empty()) {
        return Failure(
            kDownloadFailed, Cause::kBmcFault,
            "The data's place on the BMC cannot be used (" + Clean(entry.dataUri) + ").");
    }
    return {};
}

std::string Difference(const LogEntry& entry, const std::string& digest, std::uint64_t size,
                       const std::string& sha256) {
    if (entry.size && *entry.size != size) {
        return "has " + std::to_string(size) + " bytes where the BMC's log entry announces " +
               std::to_string(*entry.size);
    }
    const std::string& told = entry.sha256.empty() ? digest : entry.sha256;
    if (told.empty() || told == sha256) return "";
    return "has another SHA-256 than the BMC announces (" + told + ")";
}

}  // namespace Kemffdc::Redfish
