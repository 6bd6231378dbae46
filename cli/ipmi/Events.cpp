// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Events.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>

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
struct Row {
    RecordPattern pattern;
    EventKind kind;
};

// Texts as they stand.
constexpr Row kRows[] = {
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
    {{1, kChannel, "Failed getting BMC credential ", ""}, EventKind::kNoAccount},
    {{4, kChannel, "Failed to connect ipmi KCS.", ""}, EventKind::kNotReconnected},
    {{1, kChannel, "Failed getting BMC FFDC data files, error is ", ""}, EventKind::kNotListed},
    {{4, kChannel, "Getting file ", ""}, EventKind::kGetting},
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

// Why a name of the BMC's is no file's.
const char* WordsFor(Varnex::NameFault fault) {
    switch (fault) {
        case Varnex::NameFault::kEmpty:
            return "it is empty";
        case Varnex::NameFault::kSlash:
            return "it holds a slash";
        case Varnex::NameFault::kNulByte:
            return "it holds a NUL byte";
        case Varnex::NameFault::kLineEnd:
            return "it holds a line end";
    }
    return "it is no name of a file";
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
        return Event{row.kind, Between(row.pattern, record).substr(0, kMaxText)};
    }
    return std::nullopt;
}

bool IsAskedFor(const std::string& name, int mode) {
    return mode != kProcessorArchivesOnly || EndsWith(name, ".tzz");
}

std::uint8_t CodeOf(const RunEvents& events, Refusal::Request request) {
    const auto found =
        std::find_if(events.refusals.begin(), events.refusals.end(),
                     [request](const Refusal& refusal) { return refusal.request == request; });
    return found == events.refusals.end() ? std::uint8_t{0} : found->completionCode;
}

std::size_t NotTried(const RunEvents& events) {
    const auto tried = std::count_if(
        events.files.begin(), events.files.end(),
        [](const RemoteFile& file) { return file.state != RemoteFile::State::kPassedOver; });
    const std::size_t all = events.listing ? events.listing->names : 0;
    return all - std::min(all, static_cast<std::size_t>(tried));
}

void RunTracker::Take(const Event& event) {
    m_events.seen.Add(event.kind);
    switch (event.kind) {
        case EventKind::kStarting:
            // What was looked at before is another listing of the same folder.
            m_events.files.clear();
            m_events.listing.reset();
            break;
        case EventKind::kStartRefused:
            TakeRefusal(Refusal::Request::kStart);
            break;
        case EventKind::kPollRefused:
            TakeRefusal(Refusal::Request::kPoll);
            break;
        case EventKind::kAccountRefused:
            TakeRefusal(Refusal::Request::kAccount);
            break;
        case EventKind::kNotListed:
            m_events.notListed = event.text;
            break;
        case EventKind::kGetting:
            m_events.files.emplace_back().name = event.text;
            break;
        default:
            break;
    }
}

// The library tells of it right after the answer.
void RunTracker::TakeRefusal(Refusal::Request request) {
    m_events.refusals.push_back({request, m_lastCode});
}

void RunTracker::Take(const Varnex::IpmiConnection& connection) {
    if (!connection.inBand) m_events.address = connection.address;
    if (connection.error) TakeTrouble(connection.inBand, {connection.error, connection.reason});
}

void RunTracker::Take(const Varnex::IpmiExchange& exchange) {
    m_lastCode = exchange.completionCode;
    if (exchange.error) TakeTrouble(exchange.inBand, {exchange.error, exchange.reason});
}

void RunTracker::TakeTrouble(bool inBand, const Trouble& trouble) {
    if (inBand) m_events.inBand = trouble.reason;
    if (inBand != m_inBand) return;  // that of an account's, asked for besides
    // Later requests only say that there is no session any more.
    const bool broken = trouble.error == Varnex::IpmiError(kIpmiNotConnected);
    if (!m_events.session.error || !broken) m_events.session = trouble;
}

// Where it was not found because of the connection, that has been told.
void RunTracker::Take(const Varnex::AccountLookupResult& account) {
    if (!account.reason.empty()) m_events.inBand = account.reason;
}

void RunTracker::Take(const Varnex::UsbLanLookupResult& usbLan) {
    if (!usbLan.reason.empty()) m_events.inBand = usbLan.reason;
}

void RunTracker::Take(const Varnex::PassedOverName& name) {
    if (!IsAskedFor(name.name, m_mode)) return;
    RemoteFile& file = m_events.files.emplace_back();
    file.name = name.name;
    file.reason = WordsFor(name.fault);
    file.state = RemoteFile::State::kPassedOver;
}

void RunTracker::Take(const Varnex::ListingResult& listing) {
    const std::string words = listing.error ? listing.error.message() : "";
    m_events.listing = Listing{listing.names, listing.error, words};
}

bool RunTracker::Take(const Varnex::HostKeyResult& key) {
    if (key.accepted) m_events.hostKey = key.fingerprint;
    if (!key.accepted || key.decision == Varnex::HostKeyDecision::kKnown) return false;
    // Every transfer has it judged, and most say the same again.
    const std::string sentence = Clean(key.text, kMaxSentence);
    std::vector<std::string>& said = m_events.hostKeys;
    if (std::find(said.begin(), said.end(), sentence) != said.end()) return false;
    said.push_back(sentence);
    return true;
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
           " of " + std::to_string(events.listing ? events.listing->names : 0);
}

Listener::Listener(Context& run)
    : m_run(run), m_tracker(Own(run.options).mode, Own(run.options).inBand) {
    Varnex::AddLogSink(this);
    Varnex::AddTransferWatcher(this);
    Varnex::AddIpmiWatcher(this);
}

Listener::~Listener() {
    Varnex::RemoveIpmiWatcher(this);
    Varnex::RemoveTransferWatcher(this);
    Varnex::RemoveLogSink(this);
}

void Listener::Receive(const Varnex::LogRecord& record) {
    try {
        const std::optional<Event> event = ReadEvent(record);
        if (!event) return;
        const std::lock_guard<std::mutex> hold(m_lock);
        m_tracker.Take(*event);
        Show(*event);
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void Listener::HostKeyJudged(const Varnex::HostKeyResult& key) {
    try {
        const std::lock_guard<std::mutex> hold(m_lock);
        if (m_tracker.Take(key)) m_run.progress.Say(m_tracker.Events().hostKeys.back());
    } catch (...) {
        // Out of memory: the sentence is lost, the run goes on.
    }
}

void Listener::Show(const Event& event) {
    if (event.kind == EventKind::kStarting) {
        m_run.bmcGathers = true;
        m_run.progress.Step("start");
    } else if (event.kind == EventKind::kAskingAccount) {
        m_run.bmcGathers = false;
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
