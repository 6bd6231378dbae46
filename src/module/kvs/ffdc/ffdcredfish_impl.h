// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_FFDC_FFDCREDFISH_IMPL_H
#define VARNEX_FFDC_FFDCREDFISH_IMPL_H

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "common/rest/RestClientInterface.h"
#include "file_client.h"
#include "varnex/BMCLogOption.h"
#include "varnex/ConnectionInfo.h"
#include "varnex/KEMFfdcUploadingUri.h"

namespace Varnex {

// What the last look at the export's task showed.
enum TaskStateCode : std::int32_t {
    TaskNotStarted = 0,
    TaskRunning = 1,
    TaskCompleted = 2,
    TaskError = 3,
    TaskNew = 4,
    TaskStarting = 5,
    TaskKilled = 6,
};

// The Redfish channel (DMTF DSP0266) of KEMFfdc: an OEM action makes the BMC gather its archive as
// a task; the task is polled, the archive downloaded or left where the BMC uploaded it.
//
// Blocks its caller; one thread at a time. Exceptions: std::runtime_error out of the constructor
// and ResetConn when libcurl cannot be initialised, json_parser_error out of Apply.
class KEMFfdcRedfishImpl {
public:
    KEMFfdcRedfishImpl(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
                       BMCLogOption option, bool reserved);
    ~KEMFfdcRedfishImpl();

    KEMFfdcRedfishImpl(const KEMFfdcRedfishImpl&) = delete;
    KEMFfdcRedfishImpl& operator=(const KEMFfdcRedfishImpl&) = delete;

    // 0 connected, 1 not connected.
    int Connect();
    int GetConnectStatus();
    void Disconnect();
    int ResetConn(const VarnexConnection::ConnectionInfo& info);

    // 0 the BMC has accepted the export, 2 it has not.
    int Apply();

    void SetTrialCount(std::int32_t count);
    void SetTrialInterval(std::int32_t seconds);

    // True when the task has completed, then `path` is where the archive lies, else empty.
    bool IsFFDCLogExist(std::string& path);

    // 0 downloaded, 1 and 2 as RequestSession, 2 no URI or no download, 4 an argument or the token
    // is missing.
    int DownloadFFDC(const std::string& ffdcPath, const std::string& localPath);

    // The steps of the operations above.

    // The service root's RedfishVersion; empty when unknown.
    std::string GetRedfishVersion();

    // Whether `thisVersion` is `given` or newer. Throws `given`, a std::string, when either has not
    // exactly three pieces.
    static bool CompareRedfishVersion(const std::string& given, const std::string& thisVersion);

    // 0 the session is open (m_authToken is set when the answer carried a token), 1 no client, 2
    // the BMC refused.
    int RequestSession();
    void SaveXAuthToken(const std::map<std::string, std::string>& headers);

    void SaveTaskId(const std::string& response);
    static TaskStateCode ParseTaskState(const Rest::Response& response);

    // Polls the task until it ends, three polls have failed, or the trial count is spent.
    void WaitForTask(const std::string& baseUrl);
    void FindFFDCPath(const Rest::Response& response);

private:
    enum class Redirects { kFollow, kRefuse };

    void BuildClient(const VarnexConnection::ConnectionInfo& info, Redirects redirects);
    void DecideTaskService();
    bool Post(const std::string& url, const std::string& body, Rest::Response& response);
    std::string ExportBody() const;
    void RunWait(const std::string& baseUrl) noexcept;
    bool HasEnded(const Rest::Response& response);
    bool ReadArchivePath(const std::string& body);
    curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER> DownloadHeaders() const;

    VarnexConnection::ConnectionInfo m_connection;
    KEMFfdcUploadingUri m_uploading;
    std::unique_ptr<Rest::RestClientInterface> m_restClient;  // null after Disconnect()
    std::string m_taskUri;   // path of the task; empty until an export was accepted
    std::string m_ffdcPath;  // where the archive of the last completed task lies
    [[maybe_unused]] bool m_reserved;
    std::int32_t m_taskState = TaskNotStarted;  // never reset: a later wait may report an older one
    std::int32_t m_trialCount = 0;
    std::int32_t m_trialInterval = 5;  // seconds
    std::string m_authToken;           // whole header line; empty without a session
    bool m_useTaskService = true;      // the BMC's Redfish is 1.6.0 or newer
    std::string m_baseUrl;
    BMCLogOption m_logOption;
};

}  // namespace Varnex

#endif
