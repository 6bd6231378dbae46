// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Diagnosis.h"

#include <algorithm>
#include <cctype>

#include "cli/RecordTable.h"
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

// libcurl's numbers in the reason of a listing.
constexpr int kNoConnection = 7;
constexpr int kLoginDenied = 67;
constexpr int kNoSuchFile = 78;
constexpr int kSilent = 28;

bool Holds(const std::string& text, const char* piece) {
    return text.find(piece) != std::string::npos;
}

std::string Trouble(const RunEvents& events) {
    return events.sessionTrouble.empty() ? "no reason given" : Clean(events.sessionTrouble);
}

// What to do about a reason of the IPMI client. Empty where the reason says it itself.
std::string Advice(const std::string& trouble, const Options& options) {
    struct Row {
        const char* piece;
        const char* advice;
    };
    const Row rows[] = {
        {": refused; ", " Check address, --port and whether IPMI over LAN is switched on."},
        {": no answer",
         " Check the address, --port, firewalls (UDP) and whether IPMI over LAN is switched on."},
        {": wrong password ", " Check --user and the password."},
        {": the BMC knows no user ", " Check --user."},
        {": no address for ", " Check the spelling, or give its address."},
        {" may not act as administrator", " The account needs the administrator's privilege."},
        {"does not offer cipher suite ",
         Own(options).cipherSuite == 3 ? " Try --cipher-suite 17." : " Try --cipher-suite 3."},
    };
    for (const Row& row : rows) {
        if (Holds(trouble, row.piece)) return row.advice;
    }
    return "";
}

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
    return Failure(kNotConnected,
                   "The connection to the BMC was lost " + when + " (" + Trouble(events) + ").");
}

// Why an account may be refused in a mode other than 2.
std::string WhoseAccount(const RunEvents& events) {
    return " In this mode an account comes from this machine's own BMC, else --user and the "
           "password hold" +
           (events.inBandTrouble.empty() ? "." : " (" + Clean(events.inBandTrouble) + ").");
}

// The library's "NUMBER words", or words alone.
Outcome DiagnoseListing(const RunEvents& events, const Options& options) {
    const std::string& reason = *events.notListed;
    const bool numbered = !reason.empty() && std::isdigit(static_cast<unsigned char>(reason[0]));
    const int number = numbered ? NumberBehind(reason, "", 0) : 0;
    // A host key's reason holds the key, for the file of known ones.
    std::string words = Clean(numbered ? RestBehind(reason, " ") : reason, kMaxReason);
    if (!words.empty() && words.back() == '.') words.pop_back();
    std::string text = "The BMC's files cannot be listed: " + words +
                       (numbered ? " (" + std::to_string(number) + ")." : ".");
    if (number == kLoginDenied && Own(options).mode == kAccountOverSession) {
        text += " Its file service refuses the account that the BMC itself has given.";
    } else if (number == kLoginDenied) {
        text += WhoseAccount(events);
    } else if (number == kNoConnection || number == kSilent) {
        text += " Check that its file service (SFTP, TCP port 115) can be reached.";
    } else if (number == kNoSuchFile) {
        text += " The BMC has no such folder; another --mode may be right for it.";
    }
    return Failure(kDownloadFailed, text);
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

// How far the fetching came, when the gathering went well.
Outcome DiagnoseFetch(const RunEvents& events, const Options& options) {
    if (events.noAccount) {
        return Failure(kDownloadFailed, std::string("The BMC gives no account for its files (it ") +
                                            (events.accountRefused ? "refused the request"
                                                                   : "sent an answer that "
                                                                     "holds none") +
                                            ").");
    }
    if (events.notListed) return DiagnoseListing(events, options);
    return DiagnoseFetched(events);
}

// A gathering that did not go well, and what came all the same.
Outcome Spoilt(ExitCode code, const std::string& what, const std::string& doubt,
               const Outcome& fetch, const RunEvents& events) {
    if (CountOf(events, State::kFetched) == 0) {
        return Failure(code, what + " Nothing was fetched: " + fetch.reason);
    }
    const auto fetched = static_cast<std::size_t>(CountOf(events, State::kFetched));
    const std::string files = fetch.Ok() ? "All the same, " + Plural(fetched, "file") +
                                               (fetched == 1 ? " was" : " were") + " fetched."
                                         : fetch.reason;
    return Failure(code, what + " " + files + " " + doubt);
}

std::string WhyNotTold(const RunEvents& events) {
    if (events.pollUnsent) return Trouble(events);
    return events.pollRefused ? "it refused the question" : "its answer was empty";
}

Outcome DiagnoseLocalTrouble(const RunEvents& events) {
    for (const RemoteFile& file : events.files) {
        if (!file.localTrouble) continue;
        return Failure(
            kLocalFile,
            "The BMC's files cannot be stored: " + file.reason + ". " +
                Plural(static_cast<std::size_t>(CountOf(events, State::kFetched)), "whole file") +
                " came before. Choose another folder with --output, or make room.");
    }
    return {};
}

// A session that broke before the account for the files was there.
Outcome DiagnoseLost(int code, const RunEvents& events) {
    if (code == kNoHost) {
        return Failure(kNotConnected, "The BMC's files cannot be reached from this machine (" +
                                          Clean(events.inBandTrouble) + ").");
    }
    if (code == 0 || events.notListed) return {};
    if (events.startUnsent) return Lost("before it could be told to gather", events);
    if (events.pollUnsent) {
        return Lost("while it gathered; it may go on gathering", events);
    }
    if (events.accountUnsent) return Lost("before it gave an account for its files", events);
    if (events.notReconnected) {
        return Lost("when it was connected to again, before its files were fetched", events);
    }
    return {};
}

}  // namespace

Outcome DiagnoseConnect(int code, const RunEvents& events, const Options& options) {
    if (code == 0) return {};
    return Failure(kNotConnected, "Cannot connect. " + Trouble(events) + "." +
                                      Advice(events.sessionTrouble, options));
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
    if (events.noRunFolder) {
        return Failure(kLocalFile,
                       "The folder for the BMC's files cannot be made. Choose another with "
                       "--output, or make room.");
    }
    for (const Outcome& decisive : {DiagnoseLost(code, events), DiagnoseLocalTrouble(events)}) {
        if (!decisive.Ok()) return decisive;
    }
    Outcome fetch = DiagnoseFetch(events, options);
    if (events.startUnsent || events.startRefused) {
        return Spoilt(kExportRefused,
                      events.startRefused ? "The BMC refused to start gathering."
                                          : "The BMC could not be told to gather.",
                      "They may be of an earlier gathering.", fetch, events);
    }
    if (events.pollFailed) {
        return Spoilt(
            kTaskFailed,
            "The BMC did not tell whether it has finished gathering (" + WhyNotTold(events) + ").",
            "They may be old or unfinished.", fetch, events);
    }
    if (events.timedOut) {
        return Spoilt(kNotFinished, "The BMC has not finished gathering after 900 s.",
                      "They may be old or unfinished. Run again later.", fetch, events);
    }
    if (code != 0 && fetch.Ok()) {
        return Failure(kDownloadFailed, "The run ended with the library's code " +
                                            std::to_string(code) + ", for a reason not known.");
    }
    return fetch;
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
