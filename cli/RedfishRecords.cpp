// SPDX-License-Identifier: Apache-2.0
#include "RedfishRecords.h"

#include <utility>

#include "Progress.h"
#include "RecordTable.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxText = std::size_t{1024} * 1024;
constexpr std::size_t kMaxFindings = 64;

constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcredfish_impl";
constexpr char kClient[] = "src/common/rest/RedfishClient";

struct Row {
    RecordPattern pattern;
    Sign sign;
};

// The library's texts as they stand, odd spelling and blanks at the end included. The first row
// that matches counts.
constexpr Row kRows[] = {
    {{4, kClient, "Redfish GET action on URL: ", ""}, Sign::kAsking},
    {{4, kClient, "curlCode: ", ""}, Sign::kStarting},
    {{2, kChannel, "Failed to get redfish version, curlCode: ", ""}, Sign::kVersionFailed},
    {{4, kChannel, "curlCode: ", ""}, Sign::kProbed},
    {{1, kChannel, "curlCode: ", ""}, Sign::kPostFailed},
    {{4, kChannel, "Entered SaveTaskId(), parameter strResponse = ", ""}, Sign::kExportAnswered},
    {{4, kChannel, "property Id found. ", ""}, Sign::kTaskNamed},
    {{2, kChannel, "Rest response error: curlCode: ", ""}, Sign::kPollFailed},
    {{3, kChannel, "The task \"", "\" is newing, please wait... "}, Sign::kTaskNew},
    {{3, kChannel, "The task \"", "\" is starting, please wait... "}, Sign::kTaskStarting},
    {{3, kChannel, "The task \"", "\" is running, please wait... "}, Sign::kTaskRunning},
    {{3, kChannel, "The task \"", "\" is completed! Its FFDC file is available now. "},
     Sign::kTaskCompleted},
    {{1, kChannel, R"(The successful GET request's response shows "TaskState":"Exception"! )", ""},
     Sign::kTaskException},
    {{1, kChannel, R"(The successful GET request's response shows "TaskState":"Killed"! )", ""},
     Sign::kTaskKilled},
    {{1, kChannel, "The task \"", "\" is killed. "}, Sign::kTaskKilled},
    {{1, kChannel, "Failed to parse Jason object : ", ""}, Sign::kTaskUnreadable},
    {{1, kChannel, "GET request received error response. ", ""}, Sign::kTaskIsError},
    {{1, kChannel, "The successful GET request's response has no property \"TaskState\"! ", ""},
     Sign::kTaskWithoutState},
    {{1, kChannel, "The task \"", "\" encounters exception or other unexpected error. "},
     Sign::kTaskBroken},
    {{1, kChannel, "Waiting for the FFDC task was ended by an exception: ", ""}, Sign::kWaitThrew},
    {{1, kChannel, "Connection error occurred while trying to GET the state of the task: \"",
      "\" from KTC via Redfish. "},
     Sign::kConnectionLost},
    {{1, kChannel, "Could not find FFDC log's path in sftp or internal.", ""},
     Sign::kNoArchivePath},
    {{1, kChannel, "Invalid auth token", ""}, Sign::kNoToken},
    {{1, kChannel, "Invalid uri ", ""}, Sign::kBadUri},
    {{1, kChannel, "Failed to download ffdc log, error is ", ""}, Sign::kTransferFailed},
};

// Three spellings: "httpCode: 503, body:\n", "httpCode:503, body:\n", "httpCode: 503 | body: ".
void ReadAnswer(const std::string& text, Finding& finding) {
    const std::string head = text.substr(0, 256);
    finding.curlCode = NumberBehind(head, "curlCode:", 0);
    finding.httpCode = NumberBehind(head, "httpCode:", 0);
    finding.text = RestBehind(text, "body:").substr(0, kMaxText);
    if (!finding.text.empty()) finding.text.erase(0, 1);
}

}  // namespace

std::optional<Finding> FindRedfishSign(const Varnex::LogRecord& record) {
    for (const Row& row : kRows) {
        if (!Matches(row.pattern, record)) continue;
        Finding finding{row.sign, 0, 0, ""};
        if (std::string(row.pattern.begin).find("curlCode: ") != std::string::npos) {
            ReadAnswer(record.text, finding);
        } else {
            finding.text = Between(row.pattern, record).substr(0, kMaxText);
        }
        return finding;
    }
    return std::nullopt;
}

const char* TaskStateText(Sign sign) {
    switch (sign) {
        case Sign::kTaskNew:
            return "New";
        case Sign::kTaskStarting:
            return "Starting";
        case Sign::kTaskRunning:
            return "Running";
        case Sign::kTaskCompleted:
            return "Completed";
        case Sign::kTaskException:
            return "Exception";
        case Sign::kTaskKilled:
            return "Killed";
        default:
            return nullptr;
    }
}

RedfishListener::RedfishListener(Progress& progress, std::function<void()> beforeRequest)
    : m_progress(progress), m_beforeRequest(std::move(beforeRequest)) {
    Varnex::AddLogSink(this);
}

RedfishListener::~RedfishListener() { Varnex::RemoveLogSink(this); }

void RedfishListener::Receive(const Varnex::LogRecord& record) {
    try {
        std::optional<Finding> finding = FindRedfishSign(record);
        if (!finding) return;
        const bool willAsk = finding->sign == Sign::kAsking || finding->sign == Sign::kStarting;
        if (willAsk && m_beforeRequest) m_beforeRequest();
        if (finding->sign == Sign::kAsking) {
            ++m_asked;
            return;
        }
        if (finding->sign == Sign::kProbed)
            m_started = finding->curlCode == 0 && finding->httpCode != 503;
        if (finding->sign == Sign::kStarting) {
            m_progress.State(m_started ? "BMC is busy (503)" : "BMC is starting (503)");
        }
        const char* task = TaskStateText(finding->sign);
        if (task != nullptr) m_progress.State(std::string("task ") + task);
        Keep(std::move(*finding));
    } catch (...) {
        // Out of memory: the record is lost, the run goes on.
    }
}

std::vector<Finding> RedfishListener::Take() {
    std::lock_guard<std::mutex> hold(m_lock);
    return std::exchange(m_findings, {});
}

void RedfishListener::Keep(Finding finding) {
    std::lock_guard<std::mutex> hold(m_lock);
    if (!m_findings.empty() && m_findings.back().sign == finding.sign) {
        m_findings.back() = std::move(finding);
        return;
    }
    if (m_findings.size() == kMaxFindings) m_findings.erase(m_findings.begin());
    m_findings.push_back(std::move(finding));
}

}  // namespace Kemffdc
