// SPDX-License-Identifier: Apache-2.0
#include "IpmiRecords.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "Context.h"
#include "RecordTable.h"
#include "Text.h"

namespace Kemffdc {
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
    IpmiSign sign;
};

// Texts as they stand.
constexpr Row kRows[] = {
    {{1, kClient, "", ""}, IpmiSign::kSessionTrouble},
    {{1, kAccountService, "", ""}, IpmiSign::kInBandTrouble},
    {{1, kUsbLan, "", ""}, IpmiSign::kInBandTrouble},
    {{4, kChannel, "Entering KEMFfdcIpmiImpl::CollectFiles.", ""}, IpmiSign::kStarting},
    {{4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.", ""},
     IpmiSign::kStartUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.", ""},
     IpmiSign::kStartRefused},
    {{4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.", ""},
     IpmiSign::kPollUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.", ""},
     IpmiSign::kPollRefused},
    {{4, kChannel, "KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()", ""},
     IpmiSign::kPollFailed},
    {{4, kChannel, "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem",
      ""},
     IpmiSign::kTimedOut},
    {{4, kChannel, "Entering KEMFfdcIpmiImpl::GetCredential.", ""}, IpmiSign::kAskingAccount},
    {{4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.", ""},
     IpmiSign::kAccountUnsent},
    {{4, kChannel, "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.", ""},
     IpmiSign::kAccountRefused},
    {{1, kChannel, "the size of response_date is 0, return false", ""}, IpmiSign::kAccountCut},
    {{1, kChannel, "Failed getting BMC credential ", ""}, IpmiSign::kNoAccount},
    {{4, kChannel, "KEMFfdcIpmiImpl::Connect Success ", ""}, IpmiSign::kConnected},
    {{4, kChannel, "Failed to connect ipmi KCS.", ""}, IpmiSign::kNotReconnected},
    {{1, kChannel, "Failed getting BMC FFDC data files, error is ", ""}, IpmiSign::kNotListed},
    {{1, kChannel, "remote ffdc size = ", ""}, IpmiSign::kListed},
    {{4, kChannel, "Getting file ", ""}, IpmiSign::kGetting},
    {{2, kFileClient, "The name \"", "."}, IpmiSign::kPassedOver},
    {{3, kHostKeys, "The host key of ", ""}, IpmiSign::kHostKey},
    {{2, kHostKeys, "The host key of ", ""}, IpmiSign::kHostKey},
    {{4, kHostKeys, "The host key of ", " is not verified."}, IpmiSign::kHostKey},
    {{1, kChannel, "Failed to create FFDC output path ", ""}, IpmiSign::kNoRunFolder},
};

// These rows' texts are the beginning of others.
bool IsWhole(const Row& row, const Varnex::LogRecord& record) {
    return row.sign != IpmiSign::kStartUnsent && row.sign != IpmiSign::kPollUnsent &&
                   row.sign != IpmiSign::kAccountUnsent
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

std::optional<IpmiFinding> FindIpmiSign(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record) || !IsWhole(row, record)) continue;
        const bool sentence = row.sign == IpmiSign::kHostKey;
        return IpmiFinding{row.sign, sentence ? Clean(record.text, kMaxSentence)
                                              : Between(row.pattern, record).substr(0, kMaxText)};
    }
    return std::nullopt;
}

bool IsAskedFor(const std::string& name, int mode) {
    return mode != kProcessorArchivesOnly || EndsWith(name, ".tzz");
}

std::size_t NotTried(const IpmiAccount& account) {
    const auto tried = std::count_if(
        account.files.begin(), account.files.end(),
        [](const RemoteFile& file) { return file.state != RemoteFile::State::kPassedOver; });
    const std::size_t all = account.listed.value_or(0);
    return all - std::min(all, static_cast<std::size_t>(tried));
}

void IpmiLedger::Take(const IpmiFinding& finding) {
    IpmiAccount& account = m_account;
    switch (finding.sign) {
        case IpmiSign::kSessionTrouble:
            // Later requests only say that there is no session any more.
            if (account.sessionTrouble.empty() || finding.text.rfind(kNoSession, 0) != 0) {
                account.sessionTrouble = finding.text;
            }
            // In band, the account is asked for over a connection of its own.
            if (finding.text.rfind(kThroughDevice, 0) == 0) account.inBandTrouble = finding.text;
            break;
        case IpmiSign::kInBandTrouble:
            account.inBandTrouble = finding.text;
            break;
        case IpmiSign::kStartUnsent:
            account.startUnsent = true;
            break;
        case IpmiSign::kStartRefused:
            account.startRefused = true;
            break;
        case IpmiSign::kPollUnsent:
            account.pollUnsent = true;
            break;
        case IpmiSign::kPollRefused:
            account.pollRefused = true;
            break;
        case IpmiSign::kPollFailed:
            account.pollFailed = true;
            break;
        case IpmiSign::kTimedOut:
            account.timedOut = true;
            break;
        case IpmiSign::kAccountUnsent:
            account.accountUnsent = true;
            break;
        case IpmiSign::kAccountRefused:
            account.accountRefused = true;
            break;
        case IpmiSign::kNoAccount:
            account.noAccount = true;
            break;
        case IpmiSign::kNotReconnected:
            account.notReconnected = true;
            break;
        case IpmiSign::kNotListed:
            account.notListed = finding.text;
            break;
        case IpmiSign::kListed:
            account.listed = Number(finding.text);
            break;
        case IpmiSign::kGetting:
            account.files.emplace_back().name = finding.text;
            break;
        case IpmiSign::kPassedOver:
            TakePassedOver(finding.text);
            break;
        case IpmiSign::kHostKey:
            // Every transfer has a connection of its own, and says the same again.
            if (std::find(account.hostKeys.begin(), account.hostKeys.end(), finding.text) ==
                account.hostKeys.end()) {
                account.hostKeys.push_back(finding.text);
            }
            break;
        case IpmiSign::kNoRunFolder:
            account.noRunFolder = true;
            break;
        case IpmiSign::kStarting:
        case IpmiSign::kAskingAccount:
        case IpmiSign::kAccountCut:
        case IpmiSign::kConnected:
            break;
    }
}

// "NAME" of the listing is passed over: WHY. The name itself may hold anything.
void IpmiLedger::TakePassedOver(const std::string& text) {
    const std::size_t behind = text.rfind(kBehindName);
    if (behind == std::string::npos) return;
    RemoteFile file;
    file.name = text.substr(0, behind);
    file.reason = Clean(text.substr(behind + sizeof kBehindName - 1));
    file.state = RemoteFile::State::kPassedOver;
    if (IsAskedFor(file.name, m_mode)) m_account.files.push_back(file);
}

void IpmiLedger::TransferStarted() {
    if (!m_account.files.empty()) m_account.files.back().state = RemoteFile::State::kRunning;
}

void IpmiLedger::TransferEnded(const std::error_code& error) {
    if (m_account.files.empty()) return;
    RemoteFile& file = m_account.files.back();
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

std::string FileProgress(const IpmiAccount& account) {
    const auto passedOver = std::count_if(
        account.files.begin(), account.files.end(),
        [](const RemoteFile& file) { return file.state == RemoteFile::State::kPassedOver; });
    return "file " + std::to_string(account.files.size() - static_cast<std::size_t>(passedOver)) +
           " of " + std::to_string(account.listed.value_or(0));
}

IpmiListener::IpmiListener(Context& run) : m_run(run), m_ledger(run.options.mode) {
    Varnex::AddLogSink(this);
    Varnex::AddTransferWatcher(this);
}

IpmiListener::~IpmiListener() {
    Varnex::RemoveTransferWatcher(this);
    Varnex::RemoveLogSink(this);
}

void IpmiListener::Receive(const Varnex::LogRecord& record) {
    try {
        const std::optional<IpmiFinding> finding = FindIpmiSign(record);
        if (!finding) return;
        std::lock_guard<std::mutex> hold(m_lock);
        const std::size_t said = m_ledger.Account().hostKeys.size();
        m_ledger.Take(*finding);
        if (finding->sign == IpmiSign::kStarting) m_run.bmcGathers = true;
        if (finding->sign == IpmiSign::kAskingAccount) m_run.bmcGathers = false;
        if (m_ledger.Account().hostKeys.size() > said) m_run.progress.Say(finding->text);
        Show(*finding);
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void IpmiListener::Show(const IpmiFinding& finding) {
    if (finding.sign == IpmiSign::kStarting) {
        m_run.progress.Step("start");
    } else if (finding.sign == IpmiSign::kAskingAccount) {
        m_run.progress.Step("account");
    }
}

void IpmiListener::Started(const std::string&) {
    try {
        std::lock_guard<std::mutex> hold(m_lock);
        m_ledger.TransferStarted();
        const IpmiAccount& account = m_ledger.Account();
        if (account.files.empty()) return;
        m_run.progress.Step("download, " + FileProgress(account) + " (" +
                            Clean(account.files.back().name, kMaxShownName) + ")");
    } catch (...) {
        // Out of memory: nothing is shown, the run goes on.
    }
}

bool IpmiListener::Progress(const Varnex::TransferProgress& progress) {
    m_run.progress.Bytes(progress.bytes, progress.expected);
    return !m_run.interrupt.Raised();
}

void IpmiListener::Ended(const std::string&, const std::error_code& error) {
    try {
        std::lock_guard<std::mutex> hold(m_lock);
        m_ledger.TransferEnded(error);
    } catch (...) {
        // Out of memory: the file's reason is lost; that it is not there will be seen.
    }
}

IpmiAccount IpmiListener::Account() {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_ledger.Account();
}

}  // namespace Kemffdc
