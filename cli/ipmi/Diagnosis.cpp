// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Diagnosis.h"

#include <algorithm>
#include <iterator>

#include "IpmiClient.h"
#include "cli/ipmi/CompletionCodes.h"
#include "cli/ipmi/Options.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Ipmi {
namespace {

using State = RemoteFile::State;

// Results of the library's Apply.
constexpr int kNoHost = 6;

constexpr std::size_t kMaxNamedFiles = 3;
constexpr std::size_t kMaxReason = 2000;
constexpr std::size_t kMaxShownName = 60;

using Varnex::TransferFault;

std::string ReasonOf(const RunEvents& events) {
    return events.session.reason.empty() ? "no reason given" : Clean(events.session.reason);
}

// What to do about a failure of the IPMI client, where its words do not say it themselves.
struct ConnectRow {
    IpmiResult result;
    Cause cause;
    const char* advice;
};

constexpr ConnectRow kConnectRows[] = {
    {kIpmiRefused, Cause::kUnreachable,
     " Check address, --port and whether IPMI over LAN is switched on."},
    {kIpmiNoAnswer, Cause::kUnreachable,
     " Check the address, --port, firewalls (UDP) and whether IPMI over LAN is switched on."},
    {kIpmiWrongPassword, Cause::kLoginRefused, " Check --user and the password."},
    {kIpmiUnknownUser, Cause::kLoginRefused, " Check --user."},
    {kIpmiUnknownHost, Cause::kUnknownHost, " Check the spelling, or give its address."},
    {kIpmiNoPrivilege, Cause::kNotPermitted, " The account needs the administrator's privilege."},
    {kIpmiNoCipherSuite, Cause::kUnsupported, nullptr},  // depends on the one that was tried
};

long CountOf(const RunEvents& events, State state) {
    return std::count_if(events.files.begin(), events.files.end(),
                         [state](const RemoteFile& file) { return file.state == state; });
}

bool IsMissing(const RemoteFile& file) {
    return file.state != State::kFetched && file.state != State::kSkipped &&
           file.state != State::kFolder;
}

std::string Plural(std::size_t count, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

// "a.tgz (Permission denied (varnex.transfer:9)), b.log (...) and 2 more"
std::string Missing(const RunEvents& events) {
    std::string text;
    std::size_t named = 0;
    std::size_t more = 0;
    for (const RemoteFile& file : events.files) {
        if (!IsMissing(file)) continue;
        if (named == kMaxNamedFiles) {
            ++more;
            continue;
        }
        const std::string why = file.reason.empty() ? "no reason given" : file.reason;
        text += (named == 0 ? "" : ", ") + Clean(file.name, kMaxShownName) + " (" + why + ")";
        ++named;
    }
    if (more > 0) text += " and " + std::to_string(more) + " more";
    const std::size_t notTried = NotTried(events);
    if (notTried > 0) text += "; " + Plural(notTried, "more file") + " not tried after that";
    return text;
}

Outcome Lost(const std::string& when, const RunEvents& events) {
    return Failure(kNotConnected, Cause::kConnectionLost,
                   "The connection to the BMC was lost " + when + " (" + ReasonOf(events) + ").");
}

// Why an account may be refused in a mode other than 2.
std::string WhoseAccount(const RunEvents& events) {
    return " In this mode an account comes from this machine's own BMC, else --user and the "
           "password hold" +
           (events.inBand.empty() ? "." : " (" + Clean(events.inBand) + ").");
}

// What to do about a listing that failed.
std::string ListingAdvice(const std::error_code& error, const RunEvents& events,
                          const Options& options) {
    if (error == TransferFault::kLoginRefused) {
        return Own(options).mode == kAccountOverSession
                   ? " Its file service refuses the account that the BMC itself has given."
                   : WhoseAccount(events);
    }
    if (error == TransferFault::kUnreachable || error == TransferFault::kSilent) {
        return " Check that its file service (SFTP, TCP port 115) can be reached.";
    }
    if (error == TransferFault::kNotThere) {
        return " The BMC has no such folder; another --mode may be right for it.";
    }
    return "";
}

// Where there was none, the library could not even ask for it, and says why.
Outcome DiagnoseListing(const RunEvents& events, const Options& options) {
    const bool listed = events.listing && events.listing->error;
    const std::error_code error = listed ? events.listing->error : std::error_code();
    // A host key's reason holds the key, for the file of known ones.
    std::string words = Clean(listed ? events.listing->words : events.notListed, kMaxReason);
    if (!words.empty() && words.back() == '.') words.pop_back();
    const std::string number = listed ? " (" + std::to_string(error.value()) + ")" : "";
    return Failure(kDownloadFailed, "The BMC's files cannot be listed: " + words + number + "." +
                                        ListingAdvice(error, events, options));
}

Outcome DiagnoseFetched(const RunEvents& events) {
    const long fetched = CountOf(events, State::kFetched);
    const std::string missing = Missing(events);
    if (fetched > 0 && missing.empty()) return {};
    if (fetched > 0) {
        return Failure(kIncomplete, Plural(static_cast<std::size_t>(fetched), "file") +
                                        (fetched == 1 ? " was" : " were") +
                                        " fetched. Missing: " + missing + ".");
    }
    if (!missing.empty()) {
        return Failure(kDownloadFailed,
                       "None of the BMC's files could be fetched: " + missing + ".");
    }
    if (events.files.empty()) {
        return Failure(kDownloadFailed, "The BMC's folder is empty: there was nothing to fetch.");
    }
    if (CountOf(events, State::kFolder) == static_cast<long>(events.files.size())) {
        return Failure(kDownloadFailed,
                       "The BMC's folder holds folders alone: there was nothing to fetch.");
    }
    return Failure(kDownloadFailed, "The BMC has " + Plural(events.files.size(), "file") +
                                        ", and none that this mode asks for.");
}

// "it refused the request with completion code C1h: it does not know the command"
std::string Refused(const char* what, const RunEvents& events, Refusal::Request request) {
    return std::string("it refused ") + what + " with " + WordsFor(CodeOf(events, request));
}

// How far the fetching came, when the gathering went well.
Outcome DiagnoseFetch(const RunEvents& events, const Options& options) {
    if (events.seen.Has(EventKind::kNoAccount)) {
        const std::string why = events.seen.Has(EventKind::kAccountRefused)
                                    ? Refused("the request", events, Refusal::Request::kAccount)
                                    : "it sent an answer that holds none";
        return Failure(kDownloadFailed, "The BMC gives no account for its files (" + why + ").");
    }
    if (events.seen.Has(EventKind::kNotListed)) return DiagnoseListing(events, options);
    return DiagnoseFetched(events);
}

// What one run has come to, as far as the rows below want to know.
struct Ending {
    int code;  // the library's
    const RunEvents& events;
    const Options& options;
};

// A gathering that did not go well, and what came all the same.
Outcome Spoilt(Outcome what, const std::string& doubt, const Ending& run) {
    const Outcome fetch = DiagnoseFetch(run.events, run.options);
    const auto fetched = static_cast<std::size_t>(CountOf(run.events, State::kFetched));
    if (fetched == 0) {
        what.reason += " Nothing was fetched: " + fetch.reason;
    } else if (fetch.Ok()) {
        what.reason += " All the same, " + Plural(fetched, "file") +
                       (fetched == 1 ? " was" : " were") + " fetched. " + doubt;
    } else {
        what.reason += " " + fetch.reason + " " + doubt;
    }
    return what;
}

constexpr char kPerhapsOld[] = "They may be of an earlier gathering.";
constexpr char kPerhapsUnfinished[] = "They may be old or unfinished.";

Outcome NoRunFolder(const Ending& /*run*/) {
    return Failure(kLocalFile,
                   "The folder for the BMC's files cannot be made. Choose another with --output, "
                   "or make room.");
}

Outcome NoHost(const Ending& run) {
    return Failure(kNotConnected, "The BMC's files cannot be reached from this machine (" +
                                      Clean(run.events.inBand) + ").");
}

Outcome LostAtStart(const Ending& run) {
    return Lost("before it could be told to gather", run.events);
}

Outcome LostWhileGathering(const Ending& run) {
    return Lost("while it gathered; it may go on gathering", run.events);
}

Outcome LostAtAccount(const Ending& run) {
    return Lost("before it gave an account for its files", run.events);
}

Outcome NotReconnected(const Ending& run) {
    return Lost("when it was connected to again, before its files were fetched", run.events);
}

Outcome StartRefused(const Ending& run) {
    const std::uint8_t code = CodeOf(run.events, Refusal::Request::kStart);
    return Spoilt(Failure(kExportRefused, CauseOf(code),
                          "The BMC refused to start gathering (" + WordsFor(code) + ")."),
                  kPerhapsOld, run);
}

Outcome StartUnsent(const Ending& run) {
    return Spoilt(Failure(kExportRefused, "The BMC could not be told to gather."), kPerhapsOld,
                  run);
}

Outcome NotTold(const std::string& why, const Ending& run) {
    return Spoilt(Failure(kTaskFailed,
                          "The BMC did not tell whether it has finished gathering (" + why + ")."),
                  kPerhapsUnfinished, run);
}

Outcome PollUnsent(const Ending& run) { return NotTold(ReasonOf(run.events), run); }

Outcome PollRefused(const Ending& run) {
    return NotTold(Refused("the question", run.events, Refusal::Request::kPoll), run);
}

Outcome PollEmpty(const Ending& run) { return NotTold("its answer was empty", run); }

Outcome TimedOut(const Ending& run) {
    return Spoilt(Failure(kNotFinished, "The BMC has not finished gathering after 900 s."),
                  std::string(kPerhapsUnfinished) + " Run again later.", run);
}

Outcome LocalTrouble(const Ending& run) {
    const auto& files = run.events.files;
    const auto file = std::find_if(files.begin(), files.end(),
                                   [](const RemoteFile& one) { return one.localTrouble; });
    const auto whole = static_cast<std::size_t>(CountOf(run.events, State::kFetched));
    return Failure(kLocalFile, "The BMC's files cannot be stored: " + file->reason + ". " +
                                   Plural(whole, "whole file") +
                                   " came before. Choose another folder with --output, or make "
                                   "room.");
}

Outcome Fetched(const Ending& run) {
    Outcome fetch = DiagnoseFetch(run.events, run.options);
    if (!fetch.Ok() || !run.events.seen.Has(EventKind::kFailed)) return fetch;
    return Failure(kDownloadFailed, "The run ended with the library's code " +
                                        std::to_string(run.code) + ", for a reason not known.");
}

struct EndingRow {
    EventSet events;
    Outcome (*diagnose)(const Ending& run);
};

// The first row counts whose events have all happened.
constexpr EndingRow kEndings[] = {
    {{EventKind::kNoRunFolder}, NoRunFolder},
    {{EventKind::kNoHost}, NoHost},
    {{EventKind::kCutOff, EventKind::kStartUnsent}, LostAtStart},
    {{EventKind::kCutOff, EventKind::kPollUnsent}, LostWhileGathering},
    {{EventKind::kCutOff, EventKind::kAccountUnsent}, LostAtAccount},
    {{EventKind::kCutOff, EventKind::kNotReconnected}, NotReconnected},
    {{EventKind::kLocalTrouble}, LocalTrouble},
    {{EventKind::kStartRefused}, StartRefused},
    {{EventKind::kStartUnsent}, StartUnsent},
    {{EventKind::kPollFailed, EventKind::kPollUnsent}, PollUnsent},
    {{EventKind::kPollFailed, EventKind::kPollRefused}, PollRefused},
    {{EventKind::kPollFailed}, PollEmpty},
    {{EventKind::kTimedOut}, TimedOut},
    {{}, Fetched},
};

// With what only the end shows.
EventSet AtTheEnd(int code, const RunEvents& events) {
    EventSet seen = events.seen;
    if (code == kNoHost) seen.Add(EventKind::kNoHost);
    if (code != 0) seen.Add(EventKind::kFailed);
    if (code != 0 && !seen.Has(EventKind::kNotListed)) seen.Add(EventKind::kCutOff);
    const bool local = std::any_of(events.files.begin(), events.files.end(),
                                   [](const RemoteFile& file) { return file.localTrouble; });
    if (local) seen.Add(EventKind::kLocalTrouble);
    return seen;
}

}  // namespace

Outcome DiagnoseConnect(int code, const RunEvents& events, const Options& options) {
    if (code == 0) return {};
    const std::string words = "Cannot connect. " + ReasonOf(events) + ".";
    for (const ConnectRow& row : kConnectRows) {
        if (events.session.error != Varnex::IpmiError(row.result)) continue;
        const char* otherSuite =
            Own(options).cipherSuite == 3 ? " Try --cipher-suite 17." : " Try --cipher-suite 3.";
        return Failure(kNotConnected, row.cause,
                       words + (row.advice == nullptr ? otherSuite : row.advice));
    }
    return Failure(kNotConnected, words);
}

Outcome DiagnoseSilentBmc(const std::string& silence) {
    return Failure(kNotConnected,
                   "This machine has an IPMI device, but its BMC does not answer (" + silence +
                       "). The BMC may hang or be starting; try again in some minutes.");
}

Outcome DiagnoseFileService(const FileService& found, const std::string& host,
                            const RunEvents& events) {
    const std::string place = "The BMC's file service (SFTP, " + host + " port 115)";
    const std::string why = Clean(found.reason, kMaxReason);
    const std::string notGathered =
        " The BMC was not told to gather: its files could not be fetched.";
    switch (found.state) {
        case FileService::State::kReady:
            return {};
        case FileService::State::kUntrusted:
            return Failure(kNotConnected, Cause::kUntrusted,
                           place + " is not to be trusted: " + why + ".");
        case FileService::State::kNoLogin:
            return Failure(
                kLimited, Cause::kLoginRefused,
                place + " refuses the login: " + why + "." + WhoseAccount(events) + notGathered);
        case FileService::State::kUnusable:
            break;
    }
    return Failure(kLimited, Cause::kNoFileService,
                   place + " cannot be used: " + why + "." + notGathered +
                       " Check that it is switched on and not behind a firewall.");
}

std::string FoldersPassedOver(const RunEvents& events) {
    std::string names;
    std::size_t count = 0;
    for (const RemoteFile& file : events.files) {
        if (file.state != State::kFolder) continue;
        if (count < kMaxNamedFiles) {
            names += (count == 0 ? "" : ", ") + Clean(file.name, kMaxShownName);
        }
        ++count;
    }
    if (count == 0) return "";
    if (count > kMaxNamedFiles) names += " and " + std::to_string(count - kMaxNamedFiles) + " more";
    return "Passed over, for being " + std::string(count == 1 ? "a folder" : "folders") +
           " of the BMC: " + names + ".";
}

Outcome DiagnoseCollect(int code, const RunEvents& events, const Options& options) {
    RunEvents ended = events;
    ended.seen = AtTheEnd(code, events);
    const auto row =
        std::find_if(std::begin(kEndings), std::end(kEndings),
                     [&ended](const EndingRow& one) { return ended.seen.Holds(one.events); });
    return row->diagnose({code, ended, options});
}

Outcome DiagnoseUnreadable(const RunEvents& events) {
    std::string unreadable;
    for (const RemoteFile& file : events.files) {
        if (file.state != State::kFetched || file.damage.empty()) continue;
        unreadable += (unreadable.empty() ? "" : "; ") + Clean(file.name) + " " + file.damage;
    }
    if (unreadable.empty()) return {};
    return Failure(
        kIncomplete, Cause::kUnreadable,
        "All files are kept, but not every archive among them can be read: " + unreadable + ".");
}

}  // namespace Kemffdc::Ipmi
