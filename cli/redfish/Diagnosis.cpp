// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Diagnosis.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>

#include "cli/RecordTable.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Options.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

const Event* Last(const std::vector<Event>& events, EventKind kind) {
    const auto found = std::find_if(events.rbegin(), events.rend(),
                                    [kind](const Event& event) { return event.kind == kind; });
    return found == events.rend() ? nullptr : &*found;
}

bool Has(const std::vector<Event>& events, EventKind kind) { return Last(events, kind) != nullptr; }

// "HTTP 400: what the BMC says" or "Timeout was reached".
std::string Words(const Event& answer) {
    if (answer.curlCode != 0) {
        return curl_easy_strerror(static_cast<CURLcode>(answer.curlCode));
    }
    const std::string message = BmcMessage(answer.text);
    const std::string code = "HTTP " + std::to_string(answer.httpCode);
    return message.empty() ? code : code + ": " + message;
}

Outcome WrongCredentials(const std::string& words) {
    return Failure(kNotConnected, "The BMC does not accept the credentials (" + words +
                                      "). Check --user and the password.");
}

// A failed exchange that says nothing about the connection or the BMC's state. `what` it was about,
// and how a run ends that got such an answer.
std::optional<Outcome> OtherTrouble(const Event& answer, const std::string& what, ExitCode code) {
    switch (answer.curlCode) {
        case CURLE_WRITE_ERROR:
            return Failure(code, "The BMC's answer to " + what + " is too large to be taken (" +
                                     Clean(answer.text) + "). It is no usable Redfish service.");
        case CURLE_UNSUPPORTED_PROTOCOL:
            return Failure(code, "The BMC answers " + what +
                                     " with a redirect away from HTTPS, which is not followed.");
        case CURLE_TOO_MANY_REDIRECTS:
            return Failure(code, "The BMC answers " + what + " with redirects without end.");
        case CURLE_BAD_FUNCTION_ARGUMENT:  // what libcurl makes of it
            return Failure(code, "The BMC's answer to " + what +
                                     " begins with a malformed header line. It is no usable "
                                     "Redfish service.");
        case CURLE_FAILED_INIT:
        case CURLE_OUT_OF_MEMORY:
            return Failure(kLocalFile, "This machine has no memory left for " + what + " (" +
                                           Words(answer) + ").");
        default:
            return std::nullopt;
    }
}

bool IsNoSuchOperation(int httpCode) {
    return httpCode == 404 || httpCode == 405 || httpCode == 501;
}

// A BMC's refusals are JSON objects, those of web servers and gateways pages.
constexpr char kPerhapsGateway[] = " A gateway before the BMC may have answered in its place.";

// "<unspecified file>(1): expected value" as "line 1: expected value"; there is no file.
std::string ReaderWords(const std::string& text) {
    const std::string noFile = "<unspecified file>";
    if (text.compare(0, noFile.size(), noFile) != 0) return Clean(text);
    const std::string rest = text.substr(noFile.size());
    const std::size_t end = rest.find("): ");
    if (rest.compare(0, 2, ": ") == 0) return Clean(rest.substr(2));
    if (rest.empty() || rest[0] != '(' || end == std::string::npos) return Clean(text);
    return Clean("line " + rest.substr(1, end - 1) + rest.substr(end + 1));
}

// Bytes that may stand in one segment of a path (RFC 3986) unencoded: the library puts the Id into
// the task's address as it is.
bool IsSegment(const std::string& id) {
    if (id.empty() || id == "." || id == "..") return false;
    return std::all_of(id.begin(), id.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
               (c != '\0' && std::strchr("-._~!$&'()*+,;=:@", c) != nullptr);
    });
}

// Refuses what is certainly no Id. An answer that this reader cannot follow is left to the
// library's, which could.
bool IsUnusableId(const std::string& answer) {
    const auto object = ReadObject(answer);
    const boost::json::value* id = object ? object->if_contains("Id") : nullptr;
    if (id == nullptr) return false;
    if (const boost::json::string* text = id->if_string()) return !IsSegment(std::string(*text));
    return !id->is_number();
}

// The library's JSON reader takes so many values and no more.
bool IsOfTooManyValues(const std::string& reason) {
    constexpr char kEnd[] = " values";
    const std::size_t length = sizeof kEnd - 1;
    return reason.size() >= length && reason.compare(reason.size() - length, length, kEnd) == 0;
}

Outcome UnreadableTask(const std::string& reason) {
    if (IsOfTooManyValues(reason)) {
        return Failure(kTaskFailed, "The BMC's answer about the task is too large to be read (" +
                                        ReaderWords(reason) +
                                        "). It is no usable Redfish service.");
    }
    return Failure(kTaskFailed, "The BMC's answer about the task is not readable JSON (" +
                                    ReaderWords(reason) +
                                    "): the outcome of the task is not known.");
}

Outcome TaskFailure(const std::vector<Event>& events) {
    if (Has(events, EventKind::kTaskKilled)) {
        return Failure(kTaskFailed,
                       "The BMC killed the task that gathers the service data. Start it again.");
    }
    if (Has(events, EventKind::kTaskException)) {
        return Failure(
            kTaskFailed,
            "The task ended with an exception on the BMC: the service data could not be gathered. See the BMC's own log.");
    }
    if (const Event* unreadable = Last(events, EventKind::kTaskUnreadable)) {
        return UnreadableTask(unreadable->text);
    }
    if (Has(events, EventKind::kTaskIsError)) {
        return Failure(
            kTaskFailed,
            "The BMC answers with an error when asked for the task: its outcome is not known.");
    }
    if (Has(events, EventKind::kTaskWithoutState)) {
        return Failure(
            kTaskFailed,
            "The BMC's answer about the task holds no TaskState: its outcome is not known.");
    }
    return Failure(kTaskFailed, "The task is in a state that is not known; it counts as failed.");
}

Outcome OutOfMemory() {
    return Failure(kLocalFile,
                   "This machine ran out of memory while it followed the task. The BMC may go on "
                   "gathering.");
}

Outcome BrokenWait(const std::string& text) {
    if (text.find("bad_alloc") != std::string::npos) return OutOfMemory();
    return Failure(kTaskFailed, "The task could not be followed to its end (" + Clean(text) +
                                    "). The BMC may go on gathering.");
}

Outcome LostTask(const Event* failed) {
    if (failed == nullptr) {
        return Failure(kTaskFailed, "The task could not be followed: its outcome is not known.");
    }
    const Event& last = *failed;
    if (const auto other = OtherTrouble(last, "the request for the task", kTaskFailed)) {
        return *other;
    }
    if (last.curlCode == CURLE_URL_MALFORMAT) {
        return Failure(kTaskFailed, "The BMC gave its task an Id that cannot be asked for (" +
                                        Clean(last.text) + ").");
    }
    if (last.curlCode != 0) {
        return Failure(kNotConnected, "The connection to the BMC was lost while it gathered (" +
                                          Words(last) + "). It may go on gathering.");
    }
    if (last.httpCode == 401 || last.httpCode == 403) {
        return Failure(kNotConnected,
                       "The BMC no longer accepts the credentials (" + Words(last) +
                           "). The account may have been locked or changed; the BMC may go on "
                           "gathering.");
    }
    return Failure(kTaskFailed, "The BMC does not tell what became of the task (" + Words(last) +
                                    "): its outcome is not known.");
}

// "varnex.transfer:18 words" or "generic:28 words".
Outcome TransferFailure(const std::string& text) {
    const std::string category = text.substr(0, text.find(':'));
    const int number = NumberBehind(text, ":", 0);
    const std::string words = Clean(RestBehind(text, " "));
    if (category == "generic") {
        return Failure(kLocalFile, "The archive cannot be stored: " + words + " (" + category +
                                       ":" + std::to_string(number) +
                                       "). Choose another folder with --output, or make room.");
    }
    return Failure(kDownloadFailed,
                   "The archive was gathered but could not be downloaded: " + words + " (" +
                       Clean(category) + ":" + std::to_string(number) + "). Run the tool again.");
}

}  // namespace

Outcome DiagnoseStart(const std::vector<Event>& events, std::chrono::seconds waited) {
    const Event* failed = Last(events, EventKind::kVersionFailed);
    if (failed == nullptr) return {};
    if (const auto other = OtherTrouble(*failed, "the request for its version", kNotConnected)) {
        return *other;
    }
    if (failed->curlCode == 0 && failed->httpCode == 503) {
        return Failure(kNotConnected,
                       "The BMC is still starting (503) after " + std::to_string(waited.count()) +
                           " s. Try again later; a BMC that never gets ready needs a reset." +
                           (ReadObject(failed->text) ? "" : kPerhapsGateway));
    }
    if (failed->curlCode == 0 && (failed->httpCode == 401 || failed->httpCode == 403)) {
        return WrongCredentials(Words(*failed));
    }
    return Failure(kNotConnected,
                   "The BMC's Redfish service cannot be used (" + Words(*failed) + ").");
}

Outcome DiagnoseConnect(int code, const std::vector<Event>& events) {
    const Event* probed = Last(events, EventKind::kProbed);
    if (probed == nullptr) {
        return Failure(kNotConnected, "The library has no connection to the BMC.");
    }
    if (const auto other = OtherTrouble(*probed, "a request for a task", kNotConnected)) {
        return *other;
    }
    if (probed->curlCode != 0) {
        return Failure(kNotConnected,
                       "The connection to the BMC was lost (" + Words(*probed) + "). Try again.");
    }
    if (code != 0 || probed->httpCode == 401 || probed->httpCode == 403) {
        return WrongCredentials(Words(*probed));
    }
    if (probed->httpCode == 503) {
        return Failure(kNotConnected, "The BMC is still starting (503). Try again later.");
    }
    return {};
}

Outcome DiagnoseExport(int code, const std::string& thrown, const std::vector<Event>& events) {
    if (!thrown.empty()) {
        const char* what = IsOfTooManyValues(thrown) ? "too large to be read" : "not readable JSON";
        return Failure(kExportRefused,
                       std::string("The BMC accepted the export, but its answer is ") + what +
                           " (" + ReaderWords(thrown) + "): there is no task to follow.");
    }
    if (code != 0) {
        const Event* answer = Last(events, EventKind::kPostFailed);
        if (answer == nullptr) return Failure(kExportRefused, "The export could not be requested.");
        if (const auto other = OtherTrouble(*answer, "the export", kExportRefused)) return *other;
        if (answer->curlCode != 0) {
            return Failure(kNotConnected,
                           "The connection to the BMC was lost while the export was requested (" +
                               Words(*answer) + "). It may gather all the same.");
        }
        if (answer->httpCode == 401) return WrongCredentials(Words(*answer));
        if (answer->httpCode == 503) {
            return Failure(kExportRefused, "The BMC is busy (" + Words(*answer) +
                                               "), perhaps with another export. Try again later.");
        }
        if (IsNoSuchOperation(answer->httpCode)) {
            return Failure(kExportRefused,
                           "This BMC has no such operation as the export of service data (" +
                               Words(*answer) +
                               "). It is of another make, or its firmware is too old.");
        }
        const bool noRight = answer->httpCode == 403;
        return Failure(kExportRefused,
                       "The BMC refused the export (" + Words(*answer) + ")." +
                           (noRight ? " The account may lack the right to it." : ""));
    }
    if (!Has(events, EventKind::kTaskNamed)) {
        return Failure(kExportRefused, "The BMC accepted the export but named no task to follow.");
    }
    const Event* answer = Last(events, EventKind::kExportAnswered);
    if (answer != nullptr && IsUnusableId(answer->text)) {
        return Failure(
            kExportRefused,
            "The BMC accepted the export but gave its task an Id that is no name: there is no task to follow.");
    }
    return {};
}

Outcome DiagnoseWait(bool exists, const std::string& path, const std::vector<Event>& events,
                     const Options& options, int asked) {
    if (exists && path.empty()) {
        return Failure(kDownloadFailed,
                       "The task is completed, but the BMC does not tell where the archive lies.");
    }
    if (exists) return {};
    if (const Event* thrown = Last(events, EventKind::kWaitThrew)) return BrokenWait(thrown->text);
    if (Has(events, EventKind::kTaskKilled) || Has(events, EventKind::kTaskBroken)) {
        return TaskFailure(events);
    }
    // It gave up without a word: there was no memory left even for that.
    if (asked < Own(options).tries && !Has(events, EventKind::kConnectionLost))
        return OutOfMemory();
    const bool everAnswered = Has(events, EventKind::kTaskNew) ||
                              Has(events, EventKind::kTaskStarting) ||
                              Has(events, EventKind::kTaskRunning);
    if (Has(events, EventKind::kConnectionLost) || !everAnswered) {
        return LostTask(Last(events, EventKind::kPollFailed));
    }
    return Failure(kNotFinished,
                   "The BMC has not finished gathering after " +
                       std::to_string(Own(options).tries) + " tries every " +
                       std::to_string(Own(options).interval) +
                       " s. It goes on; run again with more --tries or a longer --interval.");
}

Outcome DiagnoseDownload(int code, const std::vector<Event>& events, bool lowerCaseNames) {
    if (code == 0) return {};
    if (const Event* transfer = Last(events, EventKind::kTransferFailed)) {
        return TransferFailure(transfer->text);
    }
    if (const Event* refused = Last(events, EventKind::kPostFailed)) {
        if (const auto other =
                OtherTrouble(*refused, "the login for the download", kDownloadFailed)) {
            return *other;
        }
        return Failure(kDownloadFailed,
                       "The archive was gathered, but the BMC opens no session to download it (" +
                           Words(*refused) + ").");
    }
    if (Has(events, EventKind::kNoToken) && lowerCaseNames) {
        return Failure(
            kDownloadFailed,
            "The archive was gathered, but there is no X-Auth-Token to download it with: "
            "something between here and the BMC changes header names to lower case. Go "
            "round it, or let the BMC send the archive with --export-uri.");
    }
    if (Has(events, EventKind::kNoToken)) {
        return Failure(
            kDownloadFailed,
            "The archive was gathered, but the BMC gave no session token to download it with.");
    }
    if (const Event* uri = Last(events, EventKind::kBadUri)) {
        return Failure(kDownloadFailed,
                       "The archive was gathered, but its path on the BMC cannot be used (" +
                           Clean(uri->text) + ").");
    }
    return Failure(kDownloadFailed, "The archive was gathered but could not be downloaded.");
}

}  // namespace Kemffdc::Redfish
