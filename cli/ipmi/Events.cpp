// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Events.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "cli/Context.h"
#include "cli/RecordTable.h"
#include "cli/ipmi/Options.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Ipmi {
namespace {

constexpr std::size_t kMaxText = std::size_t{64} * 1024;
constexpr std::size_t kMaxSentence = 1000;
constexpr std::size_t kMaxShownName = 60;

constexpr int kProcessorArchivesOnly = 3;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcipmi_impl";
constexpr char kClient[] = "platform/src/IpmiClient";
constexpr char kAccountService[] = "platform/src/KEMAccount";
constexpr char kUsbLan[] = "platform/src/UsbLanCfg";
constexpr char kFileClient[] = "platform/src/file_client";
constexpr char kHostKeys[] = "platform/src/HostKeyCheck";

constexpr char kBehindName[] = "\" of the listing is passed over: ";

constexpr char kNoSession[] = "IPMI: nothing is connected";
constexpr char kThroughDevice[] = "IPMI through ";

struct Row {
    RecordPattern pattern;
    EventKind kind;
};

// Texts as they stand.
constexpr Row kRows[] = {
    {{1, kClient, "", ""}, EventKind::kSessionTrouble},
    {{1, kAccountService, "", ""}, EventKind::kInBandTrouble},
    {{1, kUsbLan, "", ""}, EventKind::kInBandTrouble},
    {{4, kChannel, "Entering KEMFfdcIpmiImpl::CollectFiles.", ""}, EventKind::kStarting},
    {{4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.", ""},
     EventKind::kStartUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.", ""},
     EventKind::kStartRefused},
    {{4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.", ""},
     EventKind::kPollUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.", ""},
     EventKind::kPollRefused},
    {{4, kChannel, "KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()", ""},
     EventKind::kPollFailed},
    {{4, kChannel, "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem",
      ""},
     EventKind::kTimedOut},
    {{4, kChannel, "Entering KEMFfdcIpmiImpl::GetCredential.", ""}, EventKind::kAskingAccount},
    {{4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.", ""},
     EventKind::kAccountUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.", ""},
     EventKind::kAccountRefused},
    {{1, kChannel, "the size of response_date is 0, return false", ""}, EventKind::kAccountCut},
    {{1, kChannel, "Failed getting BMC credential ", ""}, EventKind::kNoAccount},
    {{4, kChannel, "KEMFfdcIpmiImpl::Connect Success ", ""}, EventKind::kConnected},
    {{4, kChannel, "Failed to connect ipmi KCS.", ""}, EventKind::kNotReconnected},
    {{1, kChannel, "Failed getting BMC FFDC data files, error is ", ""}, EventKind::kNotListed},
    {{1, kChannel, "remote ffdc size = ", ""}, EventKind::kListed},
    {{4, kChannel, "Getting file ", ""}, EventKind::kGetting},
    {{2, kFileClient, "The name \"", "."}, EventKind::kPassedOver},
    {{3, kHostKeys, "The host key of ", ""}, EventKind::kHostKey},
    {{2, kHostKeys, "The host key of ", ""}, EventKind::kHostKey},
    {{4, kHostKeys, "The host key of ", " is not verified."}, EventKind::kHostKey},
    {{1, kChannel, "Failed to create FFDC output path ", ""}, EventKind::kNoRunFolder},
};

// These rows' texts are the beginning of others.
bool IsWhole(const Row& row, const Varnex::LogRecord& record) {
    return row.kind != EventKind::kStartUnsent && row.kind != EventKind::kPollUnsent &&
                   row.kind != EventKind::kAccountUnsent
               ? true
               : record.text == row.pattern.begin;
}

bool EndsWith(const std::string& text, const char* end) {
    const std::string wanted(end);
    return text.size() >= wanted.size() &&
           strcasecmp(text.c_str() + text.size() - wanted.size(), end) == 0;
}

std::optional<unsigned> Number(const std::string& text) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return number;
}

// An errno that the BMC's name for a file has brought about, and not this machine's state.
bool IsOfTheName(int error) {
    return error == ENAMETOOLONG || error == EINVAL || error == EISDIR || error == EBUSY ||
           error == EILSEQ;
}

// A local name may be one, too: that is an error of this machine's.
bool IsRemoteFolder(const std::error_code& error) {
    return error.category() != std::generic_category() && error == std::errc::is_a_directory;
}

}  // namespace

std::optional<Event> ReadEvent(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record) || !IsWhole(row, record)) continue;
        const bool sentence = row.kind == EventKind::kHostKey;
        return Event{row.kind, sentence ? Clean(record.text, kMaxSentence)
                                        : Between(row.pattern, record).substr(0, kMaxText)};
    }
    return std::nullopt;
}

bool IsAskedFor(const std::string& name, int mode) {
    return mode != kProcessorArchivesOnly || EndsWith(name, ".tzz");
}

std::size_t NotTried(const RunEvents& events) {
    const auto tried = std::count_if(
        events.files.begin(), events.files.end(),
        [](const RemoteFile& file) { return file.state != RemoteFile::State::kPassedOver; });
    const std::size_t all = events.listed.value_or(0);
    return all - std::min(all, static_cast<std::size_t>(tried));
}

void RunTracker::Take(const Event& event) {
    RunEvents& events = m_events;
    switch (event.kind) {
        case EventKind::kSessionTrouble:
            // Later requests only say that there is no session any more.
            if (events.sessionTrouble.empty() || event.text.rfind(kNoSession, 0) != 0) {
                events.sessionTrouble = event.text;
            }
            // In band, the account is asked for over a connection of its own.
            if (event.text.rfind(kThroughDevice, 0) == 0) events.inBandTrouble = event.text;
            break;
        case EventKind::kInBandTrouble:
            events.inBandTrouble = event.text;
            break;
        case EventKind::kStartUnsent:
            events.startUnsent = true;
            break;
        case EventKind::kStartRefused:
            events.startRefused = true;
            break;
        case EventKind::kPollUnsent:
            events.pollUnsent = true;
            break;
        case EventKind::kPollRefused:
            events.pollRefused = true;
            break;
        case EventKind::kPollFailed:
            events.pollFailed = true;
            break;
        case EventKind::kTimedOut:
            events.timedOut = true;
            break;
        case EventKind::kAccountUnsent:
            events.accountUnsent = true;
            break;
        case EventKind::kAccountRefused:
            events.accountRefused = true;
            break;
        case EventKind::kNoAccount:
            events.noAccount = true;
            break;
        case EventKind::kNotReconnected:
            events.notReconnected = true;
            break;
        case EventKind::kNotListed:
            events.notListed = event.text;
            break;
        case EventKind::kListed:
            events.listed = Number(event.text);
            break;
        case EventKind::kGetting:
            events.files.emplace_back().name = event.text;
            break;
        case EventKind::kPassedOver:
            TakePassedOver(event.text);
            break;
        case EventKind::kHostKey:
            // Every transfer has a connection of its own, and says the same again.
            if (std::find(events.hostKeys.begin(), events.hostKeys.end(), event.text) ==
                events.hostKeys.end()) {
                events.hostKeys.push_back(event.text);
            }
            break;
        case EventKind::kNoRunFolder:
            events.noRunFolder = true;
            break;
        case EventKind::kStarting:
            events.files.clear();  // an earlier listing was a look at the file service alone
            break;
        case EventKind::kAskingAccount:
        case EventKind::kAccountCut:
        case EventKind::kConnected:
            break;
    }
}

// "NAME" of the listing is passed over: WHY. The name itself may hold anything.
void RunTracker::TakePassedOver(const std::string& text) {
    const std::size_t behind = text.rfind(kBehindName);
    if (behind == std::string::npos) return;
    RemoteFile file;
    file.name = text.substr(0, behind);
    file.reason = Clean(text.substr(behind + sizeof kBehindName - 1));
    file.state = RemoteFile::State::kPassedOver;
    if (IsAskedFor(file.name, m_mode)) m_events.files.push_back(file);
}

void RunTracker::TransferStarted() {
    if (!m_events.files.empty()) m_events.files.back().state = RemoteFile::State::kRunning;
}

void RunTracker::TransferEnded(const std::error_code& error) {
    if (m_events.files.empty()) return;
    RemoteFile& file = m_events.files.back();
    file.state = error ? RemoteFile::State::kFailed : RemoteFile::State::kFetched;
    if (!error) return;
    // The library's run ends at one that is named as an archive: that is no folder to pass over.
    if (IsRemoteFolder(error) && !EndsWith(file.name, ".tgz")) {
        file.state = RemoteFile::State::kFolder;
        return;
    }
    file.reason = Clean(error.message()) + " (" + error.category().name() + ":" +
                  std::to_string(error.value()) + ")";
    file.localTrouble = error.category() == std::generic_category() && !IsOfTheName(error.value());
}

std::string FileProgress(const RunEvents& events) {
    const auto passedOver = std::count_if(
        events.files.begin(), events.files.end(),
        [](const RemoteFile& file) { return file.state == RemoteFile::State::kPassedOver; });
    return "file " + std::to_string(events.files.size() - static_cast<std::size_t>(passedOver)) +
           " of " + std::to_string(events.listed.value_or(0));
}

Listener::Listener(Context& run) : m_run(run), m_tracker(Own(run.options).mode) {
    Varnex::AddLogSink(this);
    Varnex::AddTransferWatcher(this);
}

Listener::~Listener() {
    Varnex::RemoveTransferWatcher(this);
    Varnex::RemoveLogSink(this);
}

void Listener::Receive(const Varnex::LogRecord& record) {
    try {
        const std::optional<Event> event = ReadEvent(record);
        if (!event) return;
        std::lock_guard<std::mutex> hold(m_lock);
        const std::size_t said = m_tracker.Events().hostKeys.size();
        m_tracker.Take(*event);
        if (event->kind == EventKind::kStarting) m_run.bmcGathers = true;
        if (event->kind == EventKind::kAskingAccount) m_run.bmcGathers = false;
        if (m_tracker.Events().hostKeys.size() > said) m_run.progress.Say(event->text);
        Show(*event);
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void Listener::Show(const Event& event) {
    if (event.kind == EventKind::kStarting) {
        m_run.progress.Step("start");
    } else if (event.kind == EventKind::kAskingAccount) {
        m_run.progress.Step("account");
    }
}

void Listener::Started(const std::string&) {
    try {
        std::lock_guard<std::mutex> hold(m_lock);
        m_tracker.TransferStarted();
        const RunEvents& events = m_tracker.Events();
        if (events.files.empty()) return;
        m_run.progress.Step("download, " + FileProgress(events) + " (" +
                            Clean(events.files.back().name, kMaxShownName) + ")");
    } catch (...) {
        // Out of memory: nothing is shown, the run goes on.
    }
}

bool Listener::Progress(const Varnex::TransferProgress& progress) {
    m_run.progress.Bytes(progress.bytes, progress.expected);
    return !m_run.interrupt.Raised();
}

void Listener::Ended(const std::string&, const std::error_code& error) {
    try {
        std::lock_guard<std::mutex> hold(m_lock);
        m_tracker.TransferEnded(error);
    } catch (...) {
        // Out of memory: the file's reason is lost; that it is not there will be seen.
    }
}

RunEvents Listener::Events() {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_tracker.Events();
}

}  // namespace Kemffdc::Ipmi
