// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Diagnosis.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>

#include "Transfer.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Task.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

// "HTTP 400: what the BMC says" or "Timeout was reached".
std::string Words(const Event& answer) {
    if (answer.curlCode != 0) {
        return curl_easy_strerror(static_cast<CURLcode>(answer.curlCode));
    }
    const std::string message = BmcMessage(answer.text);
    const std::string code = "HTTP " + std::to_string(answer.httpCode);
    return message.empty() ? code : code + ": " + message;
}

// A sentence about an answer: `before`, what the BMC said in parentheses, `behind`. The first row
// with the answer's HTTP status counts.
struct AnswerRow {
    int httpCode;  // kAny: whatever it is
    ExitCode code;
    Cause cause;
    const char* before;
    const char* behind;
};
constexpr int kAny = 0;

constexpr char kCredentials[] = "The BMC does not accept the credentials";
constexpr char kCheckThem[] = ". Check --user and the password.";
constexpr char kNoOperation[] = "This BMC has no such operation as the export of service data";
constexpr char kOtherMake[] = ". It is of another make, or its firmware is too old.";
constexpr char kRefused[] = "The BMC refused the export";
constexpr char kNoLonger[] = "The BMC no longer accepts the credentials";
constexpr char kMayBeLocked[] =
    ". The account may have been locked or changed; the BMC may go on gathering.";

constexpr AnswerRow kStartAnswers[] = {
    {401, kNotConnected, Cause::kLoginRefused, kCredentials, kCheckThem},
    {403, kNotConnected, Cause::kLoginRefused, kCredentials, kCheckThem},
    {kAny, kNotConnected, Cause::kBmcFault, "The BMC's Redfish service cannot be used", "."},
};
constexpr AnswerRow kExportAnswers[] = {
    {401, kNotConnected, Cause::kLoginRefused, kCredentials, kCheckThem},
    {403, kExportRefused, Cause::kNotPermitted, kRefused,
     ". The account may lack the right to it."},
    {404, kExportRefused, Cause::kUnsupported, kNoOperation, kOtherMake},
    {405, kExportRefused, Cause::kUnsupported, kNoOperation, kOtherMake},
    {501, kExportRefused, Cause::kUnsupported, kNoOperation, kOtherMake},
    {503, kExportRefused, Cause::kBusy, "The BMC is busy",
     ", perhaps with another export. Try again later."},
    {kAny, kExportRefused, Cause::kUnnamed, kRefused, "."},
};
constexpr AnswerRow kPollAnswers[] = {
    {401, kNotConnected, Cause::kLoginRefused, kNoLonger, kMayBeLocked},
    {403, kNotConnected, Cause::kLoginRefused, kNoLonger, kMayBeLocked},
    {kAny, kTaskFailed, Cause::kTaskLost, "The BMC does not tell what became of the task",
     ": its outcome is not known."},
};
constexpr AnswerRow kSessionAnswers[] = {
    {kAny, kDownloadFailed, Cause::kNoFileService,
     "The archive was gathered, but the BMC opens no session to download it", "."},
};

template <std::size_t Count>
Outcome DiagnoseAnswer(const AnswerRow (&rows)[Count], const Event& answer) {
    const AnswerRow* row = std::find_if(std::begin(rows), std::end(rows), [&](const AnswerRow& it) {
        return it.httpCode == answer.httpCode || it.httpCode == kAny;
    });
    return Failure(row->code, row->cause, row->before + (" (" + Words(answer) + ")") + row->behind);
}

Outcome WrongCredentials(const Event& answer) {
    return Failure(kNotConnected, Cause::kLoginRefused,
                   kCredentials + (" (" + Words(answer) + ")") + kCheckThem);
}

// A failed exchange that says nothing about the connection or the BMC's state. `what` it was about,
// and how a run ends that got such an answer.
std::optional<Outcome> OtherTrouble(const Event& answer, const std::string& what, ExitCode code) {
    switch (answer.curlCode) {
        case CURLE_WRITE_ERROR:
            return Failure(code, Cause::kBmcFault,
                           "The BMC's answer to " + what + " is too large to be taken (" +
                               Clean(answer.text) + "). It is no usable Redfish service.");
        case CURLE_UNSUPPORTED_PROTOCOL:
            return Failure(code, Cause::kBmcFault,
                           "The BMC answers " + what +
                               " with a redirect away from HTTPS, which is not followed.");
        case CURLE_TOO_MANY_REDIRECTS:
            return Failure(code, Cause::kBmcFault,
                           "The BMC answers " + what + " with redirects without end.");
        case CURLE_BAD_FUNCTION_ARGUMENT:  // what libcurl makes of it
            return Failure(code, Cause::kBmcFault,
                           "The BMC's answer to " + what +
                               " begins with a malformed header line. It is no usable "
                               "Redfish service.");
        case CURLE_FAILED_INIT:
        case CURLE_OUT_OF_MEMORY:
            return Failure(
                kLocalFile, Cause::kOutOfMemory,
                "This machine has no memory left for " + what + " (" + Words(answer) + ").");
        default:
            return std::nullopt;
    }
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

// --- the wait -----------------------------------------------------------------------------------

struct Ending {
    const Waited& waited;
    const Events& events;

    std::string Says(const std::string& otherwise = "") const {
        const std::string says = waited.task ? BmcSays(*waited.task) : "";
        return says.empty() ? otherwise : says;
    }
};

Outcome OutOfMemory() {
    return Failure(kLocalFile, Cause::kOutOfMemory,
                   "This machine ran out of memory while it followed the task. The BMC may go on "
                   "gathering.");
}

Outcome BrokenWait(const Ending& ending) {
    const std::string text = ending.events.Last(EventKind::kWaitThrew)->text;
    if (text.find("bad_alloc") != std::string::npos) return OutOfMemory();
    return Failure(kTaskFailed, Cause::kTaskLost,
                   "The task could not be followed to its end (" + Clean(text) +
                       "). The BMC may go on gathering.");
}

Outcome Killed(const Ending& ending) {
    return Failure(kTaskFailed, Cause::kTaskKilled,
                   "The BMC killed the task that gathers the service data." + ending.Says() +
                       " Start it again.");
}

Outcome EndedByException(const Ending& ending) {
    const bool byStore = ending.waited.task && IsRefusedByStore(*ending.waited.task);
    return Failure(kTaskFailed, byStore ? Cause::kStoreRefused : Cause::kUnnamed,
                   "The task ended with an exception on the BMC: the service data could not be "
                   "gathered." +
                       ending.Says(" See the BMC's own log."));
}

Outcome Unreadable(const Ending& ending) {
    const std::string reason = ending.events.Last(EventKind::kTaskUnreadable)->text;
    if (IsOfTooManyValues(reason)) {
        return Failure(kTaskFailed, Cause::kBmcFault,
                       "The BMC's answer about the task is too large to be read (" +
                           ReaderWords(reason) + "). It is no usable Redfish service.");
    }
    return Failure(kTaskFailed, Cause::kTaskLost,
                   "The BMC's answer about the task is not readable JSON (" + ReaderWords(reason) +
                       "): the outcome of the task is not known." + ending.Says());
}

Outcome IsError(const Ending& ending) {
    return Failure(kTaskFailed, Cause::kTaskLost,
                   "The BMC answers with an error when asked for the task: its outcome is not "
                   "known." +
                       ending.Says());
}

Outcome WithoutState(const Ending& ending) {
    return Failure(kTaskFailed, Cause::kTaskLost,
                   "The BMC's answer about the task holds no TaskState: its outcome is not known." +
                       ending.Says());
}

Outcome Unknown(const Ending& ending) {
    return Failure(
        kTaskFailed, Cause::kTaskLost,
        "The task is in a state that is not known; it counts as failed." + ending.Says());
}

Outcome Lost(const Ending& ending) {
    const Event* last = ending.events.Last(EventKind::kPollFailed);
    if (last == nullptr) {
        return Failure(kTaskFailed, Cause::kTaskLost,
                       "The task could not be followed: its outcome is not known.");
    }
    if (const auto other = OtherTrouble(*last, "the request for the task", kTaskFailed)) {
        return *other;
    }
    if (last->curlCode == CURLE_URL_MALFORMAT) {
        return Failure(
            kTaskFailed, Cause::kBmcFault,
            "The BMC gave its task an Id that cannot be asked for (" + Clean(last->text) + ").");
    }
    if (last->curlCode != 0) {
        return Failure(kNotConnected, Cause::kConnectionLost,
                       "The connection to the BMC was lost while it gathered (" + Words(*last) +
                           "). It may go on gathering.");
    }
    return DiagnoseAnswer(kPollAnswers, *last);
}

Outcome NotFinished(const Ending& ending, int tries, int interval) {
    const std::string bound = " finished gathering after " + std::to_string(tries) +
                              " tries every " + std::to_string(interval) + " s";
    if (ending.waited.task && ending.waited.task->state == "Completed") {
        return Failure(kNotFinished, "The BMC had not" + bound +
                                         ", but has meanwhile. Allow it more --tries or a longer "
                                         "--interval.");
    }
    return Failure(kNotFinished, "The BMC has not" + bound + "." + ending.Says() +
                                     " It goes on; run again with more --tries or a longer "
                                     "--interval.");
}

// The first row whose event has happened counts: what ends the wait for sure stands first.
struct EndingRow {
    EventKind event;
    Outcome (*diagnose)(const Ending& ending);
};
constexpr EndingRow kEndings[] = {
    {EventKind::kWaitThrew, BrokenWait},
    {EventKind::kTaskKilled, Killed},
    {EventKind::kTaskException, EndedByException},
    {EventKind::kTaskUnreadable, Unreadable},
    {EventKind::kTaskIsError, IsError},
    {EventKind::kTaskWithoutState, WithoutState},
    {EventKind::kTaskBroken, Unknown},
    {EventKind::kConnectionLost, Lost},
};

bool HasEverAnswered(const Events& events) {
    return events.Has(EventKind::kTaskNew) || events.Has(EventKind::kTaskStarting) ||
           events.Has(EventKind::kTaskRunning);
}

// --- the download -------------------------------------------------------------------------------

struct TransferRow {
    std::error_condition fault;
    Cause cause;
};

Cause CauseOf(const std::error_code& error) {
    using Fault = Varnex::TransferFault;
    const TransferRow rows[] = {
        {std::errc::no_space_on_device, Cause::kDiskFull},
        {Fault::kUnreachable, Cause::kConnectionLost},
        {Fault::kSilent, Cause::kConnectionLost},
        {Fault::kLost, Cause::kConnectionLost},
        {Fault::kTlsFailed, Cause::kTlsFailed},
        {Fault::kUntrusted, Cause::kUntrusted},
        {Fault::kLoginRefused, Cause::kLoginRefused},
        {Fault::kNotPermitted, Cause::kNotPermitted},
    };
    const auto* row = std::find_if(std::begin(rows), std::end(rows),
                                   [&](const TransferRow& it) { return error == it.fault; });
    return row == std::end(rows) ? Cause::kUnnamed : row->cause;
}

Outcome TransferFailure(const Downloaded& downloaded) {
    const std::error_code& error = downloaded.error;
    const bool local = error.category() == std::generic_category();
    const std::string what = Clean(downloaded.errorText) + " (" + error.category().name() + ":" +
                             std::to_string(error.value()) + ").";
    if (local) {
        return Failure(kLocalFile, CauseOf(error),
                       "The archive cannot be stored: " + what +
                           " Choose another folder with --output, or make room.");
    }
    return Failure(
        kDownloadFailed, CauseOf(error),
        "The archive was gathered but could not be downloaded: " + what + " Run the tool again.");
}

Outcome NoToken(bool lowerCaseNames) {
    if (!lowerCaseNames) {
        return Failure(
            kDownloadFailed, Cause::kNoFileService,
            "The archive was gathered, but the BMC gave no session token to download it with.");
    }
    return Failure(kDownloadFailed, Cause::kNoFileService,
                   "The archive was gathered, but there is no X-Auth-Token to download it with: "
                   "something between here and the BMC changes header names to lower case. Go "
                   "round it, or let the BMC send the archive with --export-uri.");
}

}  // namespace

Outcome DiagnoseStart(const Events& events, std::chrono::seconds waited) {
    const Event* failed = events.Last(EventKind::kVersionFailed);
    if (failed == nullptr) return {};
    if (const auto other = OtherTrouble(*failed, "the request for its version", kNotConnected)) {
        return *other;
    }
    if (failed->curlCode == 0 && failed->httpCode == 503) {
        return Failure(kNotConnected, Cause::kStarting,
                       "The BMC is still starting (503) after " + std::to_string(waited.count()) +
                           " s. Try again later; a BMC that never gets ready needs a reset." +
                           (ReadObject(failed->text) ? "" : kPerhapsGateway));
    }
    return DiagnoseAnswer(kStartAnswers, *failed);
}

Outcome DiagnoseStarting() {
    return Failure(kNotConnected, Cause::kStarting,
                   "The BMC is still starting (503). Try again later.");
}

Outcome DiagnoseConnect(int code, const Events& events) {
    const Event* probed = events.Last(EventKind::kProbed);
    if (probed == nullptr) {
        return Failure(kNotConnected, "The library has no connection to the BMC.");
    }
    if (const auto other = OtherTrouble(*probed, "a request for a task", kNotConnected)) {
        return *other;
    }
    if (probed->curlCode != 0) {
        return Failure(kNotConnected, Cause::kConnectionLost,
                       "The connection to the BMC was lost (" + Words(*probed) + "). Try again.");
    }
    if (code != 0 || probed->httpCode == 401 || probed->httpCode == 403) {
        return WrongCredentials(*probed);
    }
    if (probed->httpCode == 503) {
        return DiagnoseStarting();
    }
    return {};
}

Outcome DiagnoseExport(int code, const std::string& thrown, const Events& events) {
    if (!thrown.empty()) {
        const char* what = IsOfTooManyValues(thrown) ? "too large to be read" : "not readable JSON";
        return Failure(kExportRefused, Cause::kBmcFault,
                       std::string("The BMC accepted the export, but its answer is ") + what +
                           " (" + ReaderWords(thrown) + "): there is no task to follow.");
    }
    if (code != 0) {
        const Event* answer = events.Last(EventKind::kPostFailed);
        if (answer == nullptr) return Failure(kExportRefused, "The export could not be requested.");
        if (const auto other = OtherTrouble(*answer, "the export", kExportRefused)) return *other;
        if (answer->curlCode == 0) return DiagnoseAnswer(kExportAnswers, *answer);
        return Failure(kNotConnected, Cause::kConnectionLost,
                       "The connection to the BMC was lost while the export was requested (" +
                           Words(*answer) + "). It may gather all the same.");
    }
    if (!events.Has(EventKind::kTaskNamed)) {
        return Failure(kExportRefused, Cause::kBmcFault,
                       "The BMC accepted the export but named no task to follow.");
    }
    const Event* answer = events.Last(EventKind::kExportAnswered);
    if (answer != nullptr && IsUnusableId(answer->text)) {
        return Failure(kExportRefused, Cause::kBmcFault,
                       "The BMC accepted the export but gave its task an Id that is no name: there "
                       "is no task to follow.");
    }
    return {};
}

Outcome DiagnoseWait(const Waited& waited, const Events& events, const Options& options) {
    if (waited.exists) {
        if (!waited.path.empty()) return {};
        return Failure(kDownloadFailed, Cause::kBmcFault,
                       "The task is completed, but the BMC does not tell where the archive lies.");
    }
    const Ending ending{waited, events};
    for (const EndingRow& row : kEndings) {
        if (events.Has(row.event)) return row.diagnose(ending);
    }
    // It gave up without a word: there was no memory left even for that.
    if (waited.asked < Own(options).tries) return OutOfMemory();
    if (!HasEverAnswered(events)) return Lost(ending);
    return NotFinished(ending, Own(options).tries, Own(options).interval);
}

Outcome DiagnoseTask(const Task& task) {
    static const std::set<std::string> goesOn{"Completed", "New",       "Starting", "Running",
                                              "Suspended", "Pending",   "Service",  "Interrupted",
                                              "Stopping",  "Cancelling"};
    if (goesOn.count(task.state) > 0) return {};
    const Waited waited{false, "", 0, task};
    const Events none;
    const Ending ending{waited, none};
    if (task.state == "Exception") return EndedByException(ending);
    if (task.state == "Killed" || task.state == "Cancelled") return Killed(ending);
    return task.state.empty() ? WithoutState(ending) : Unknown(ending);
}

Outcome DiagnoseLostTask(const Answer& answer) {
    if (answer.failedAt != Stage::kDone) {
        return Failure(kNotConnected, Cause::kConnectionLost, answer.reason);
    }
    if (answer.IsSuccess()) {
        return Failure(kTaskFailed, Cause::kTaskLost,
                       "The BMC's answer about the task is not readable JSON: the outcome of the "
                       "task is not known.");
    }
    return DiagnoseAnswer(
        kPollAnswers, {EventKind::kPollFailed, 0, static_cast<int>(answer.httpCode), answer.body});
}

Outcome DiagnoseDownload(const Downloaded& downloaded, const Events& events) {
    if (downloaded.code == 0) return {};
    if (downloaded.error) return TransferFailure(downloaded);
    if (const Event* refused = events.Last(EventKind::kPostFailed)) {
        const auto other = OtherTrouble(*refused, "the login for the download", kDownloadFailed);
        return other ? *other : DiagnoseAnswer(kSessionAnswers, *refused);
    }
    if (events.Has(EventKind::kNoToken)) return NoToken(downloaded.lowerCaseNames);
    if (const Event* uri = events.Last(EventKind::kBadUri)) {
        return Failure(kDownloadFailed, Cause::kBmcFault,
                       "The archive was gathered, but its path on the BMC cannot be used (" +
                           Clean(uri->text) + ").");
    }
    return Failure(kDownloadFailed, "The archive was gathered but could not be downloaded.");
}

}  // namespace Kemffdc::Redfish
