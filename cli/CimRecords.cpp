// SPDX-License-Identifier: Apache-2.0
#include "CimRecords.h"

#include <charconv>
#include <utility>

#include "Progress.h"
#include "RecordTable.h"
#include "Text.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxText = std::size_t{64} * 1024;
constexpr std::size_t kMaxPath = 2000;  // bytes of it that are shown
constexpr std::size_t kMaxShownType = 100;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdc_impl";
constexpr char kHelpers[] = "src/common/cimom/src/cimfunc";

constexpr char kServiceClass[] = "ZOR_FFDCService";
constexpr char kDataClass[] = "ZOR_FFDCData";
constexpr char kNeverExported[] = "4";
constexpr char kRawData[] = " with raw data (";

struct Row {
    RecordPattern pattern;
    CimSign sign;
};

// The library's texts as they stand, odd spelling and line ends included.
constexpr Row kRows[] = {
    {{3, kHelpers, "Connecting to ", ""}, CimSign::kConnecting},
    {{3, kHelpers, "Cimserver connection succeeded ", ""}, CimSign::kConnected},
    {{1, kHelpers, "Failed to connect remote cimserver with the reason: ", ""},
     CimSign::kNotConnected},
    {{3, kHelpers, "The value of class name is:", ""}, CimSign::kClass},
    {{3, kHelpers, "The size of ei_array is:", ""}, CimSign::kFound},
    {{1, kHelpers, "Enumerate instances failed with the reason: ", ""}, CimSign::kNotEnumerated},
    {{4, kChannel, "EnumerateInstances ZOR_FFDCService Failed!", ""}, CimSign::kNoService},
    {{4, kChannel, "EnumerateInstances ZOR_FFDCData Failed!", ""}, CimSign::kNoData},
    {{4, kHelpers, "Showing properties for ", ""}, CimSign::kObject},
    {{4, kHelpers, "DataCollectionType = ", ")"}, CimSign::kType},
    {{1, kChannel, "ExportData rev = ", "\n"}, CimSign::kReturned},
    {{1, kChannel, "invokeMethod return exeption: ", ""}, CimSign::kExportBroken},
    {{1, kChannel, "Invalid uploading_uri_.filestore_uri_ : ", "\n"}, CimSign::kBadUri},
};

std::optional<unsigned> Number(const std::string& text) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return number;
}

}  // namespace

std::optional<CimFinding> FindCimSign(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record)) continue;
        return CimFinding{row.sign, Between(row.pattern, record).substr(0, kMaxText)};
    }
    return std::nullopt;
}

bool CimLedger::Take(const CimFinding& finding, Time now) {
    switch (finding.sign) {
        case CimSign::kClass:
            m_account.asked = finding.text;
            return false;
        case CimSign::kFound:
            TakeCount(finding.text);
            return false;
        case CimSign::kObject:
            Close(ExportedObject::State::kExported, now);
            m_account.objects.emplace_back().path = Clean(finding.text, kMaxPath);
            m_since = now;
            return true;
        case CimSign::kType:
            TakeType(finding.text, now);
            return true;
        case CimSign::kReturned:
            if (ExportedObject* open = Open()) {
                open->returned = Clean(finding.text, kMaxShownType);
                Close(ExportedObject::State::kRefused, now);
            }
            return true;
        case CimSign::kExportBroken:
            m_account.exportBroken = true;
            m_account.failure = finding.text;
            Close(ExportedObject::State::kFailed, now);
            return true;
        case CimSign::kNotConnected:
            // An export's failure says more than that of the connection attempts behind it.
            if (!m_account.exportBroken) m_account.failure = finding.text;
            return false;
        case CimSign::kNotEnumerated:
            m_account.failure = finding.text;
            return false;
        default:
            return false;
    }
}

void CimLedger::End(bool success, Time now) {
    Close(success ? ExportedObject::State::kExported : ExportedObject::State::kFailed, now);
    while (m_account.objects.size() < m_account.found.value_or(0)) {
        m_account.objects.emplace_back().state = ExportedObject::State::kNotTried;
    }
}

ExportedObject* CimLedger::Open() {
    if (m_account.objects.empty()) return nullptr;
    ExportedObject& last = m_account.objects.back();
    return last.state == ExportedObject::State::kRunning ? &last : nullptr;
}

void CimLedger::Close(ExportedObject::State state, Time now) {
    ExportedObject* open = Open();
    if (open == nullptr) return;
    open->state = state;
    open->seconds = std::chrono::duration<double>(now - m_since).count();
}

void CimLedger::TakeType(const std::string& text, Time now) {
    ExportedObject* open = Open();
    if (open == nullptr) return;
    const std::string type = text.substr(0, text.find(kRawData));
    open->type = Clean(type, kMaxShownType);
    if (type == kNeverExported) Close(ExportedObject::State::kSkipped, now);
}

void CimLedger::TakeCount(const std::string& text) {
    if (m_account.asked == kServiceClass) m_account.services = Number(text);
    if (m_account.asked == kDataClass) m_account.found = Number(text);
}

std::string ObjectProgress(const CimAccount& account) {
    if (account.objects.empty()) return "";  // a type that belongs to no data object
    const ExportedObject& object = account.objects.back();
    std::string text = "object " + std::to_string(account.objects.size()) + " of " +
                       std::to_string(account.found.value_or(0));
    if (!object.type.empty()) text += " (type " + object.type + ")";
    if (object.state == ExportedObject::State::kSkipped) return text + ": skipped";
    return text + ": the BMC gathers and uploads, for up to 20 minutes";
}

CimListener::CimListener(Progress& progress, Report& report, std::atomic<bool>& bmcGathers,
                         std::function<void()> beforeRequest)
    : m_progress(progress),
      m_report(report),
      m_bmcGathers(bmcGathers),
      m_beforeRequest(std::move(beforeRequest)) {
    Varnex::AddLogSink(this);
}

CimListener::~CimListener() { Varnex::RemoveLogSink(this); }

void CimListener::Receive(const Varnex::LogRecord& record) {
    try {
        const std::optional<CimFinding> finding = FindCimSign(record);
        if (!finding) return;
        const bool willAsk = finding->sign == CimSign::kClass || finding->sign == CimSign::kObject;
        if (willAsk && m_beforeRequest) m_beforeRequest();
        std::lock_guard<std::mutex> hold(m_lock);
        const std::size_t before = m_ledger.Account().objects.size();
        const bool changed = m_ledger.Take(*finding, std::chrono::steady_clock::now());
        const std::vector<ExportedObject>& objects = m_ledger.Account().objects;
        m_bmcGathers = !objects.empty() && objects.back().state == ExportedObject::State::kRunning;
        // The object before it has ended well.
        if (m_ledger.Account().objects.size() > before && before > 0) {
            m_report.SetObject(before - 1, m_ledger.Account().objects[before - 1]);
        }
        Show(*finding, changed);
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

void CimListener::Show(const CimFinding& finding, bool changed) {
    const CimAccount& account = m_ledger.Account();
    if (changed && !account.objects.empty()) {
        m_report.SetObject(account.objects.size() - 1, account.objects.back());
    }
    if (finding.sign == CimSign::kClass) {
        m_progress.State("looking for " + Clean(finding.text, kMaxShownType));
    } else if (finding.sign == CimSign::kType) {
        m_progress.State(ObjectProgress(account));
    } else if (finding.sign == CimSign::kConnecting && !account.asked.empty()) {
        m_progress.State("connecting again");
    }
}

CimAccount CimListener::Account() {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_ledger.Account();
}

CimAccount CimListener::End(bool success) {
    std::lock_guard<std::mutex> hold(m_lock);
    m_ledger.End(success, std::chrono::steady_clock::now());
    const CimAccount& account = m_ledger.Account();
    for (std::size_t i = 0; i < account.objects.size(); ++i) {
        m_report.SetObject(i, account.objects[i]);
    }
    return account;
}

}  // namespace Kemffdc
