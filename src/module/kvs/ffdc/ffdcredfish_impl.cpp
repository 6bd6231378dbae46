// SPDX-License-Identifier: Apache-2.0
#include "module/kvs/ffdc/ffdcredfish_impl.h"

#include <algorithm>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/property_tree/exceptions.hpp>
#include <boost/thread/thread.hpp>
#include <exception>
#include <list>
#include <new>
#include <sstream>
#include <utility>
#include <vector>

#include "Clock.h"
#include "Uri.h"
#include "common/json_reading.h"
#include "common/log_line.h"
#include "common/rest/RedfishClient.h"
#include "file_client.h"
#include "module/kvs/ffdc/ffdc_common.h"

namespace Varnex {

namespace {

constexpr char kLogSource[] = "src/module/kvs/ffdc/ffdcredfish_impl";

enum : int { kSuccess = 0, kNotConnected = 1, kNoClient = 1, kRefused = 2, kMissing = 4 };

constexpr int kRequestTimeout = 60;  // seconds
constexpr int kMaxRedirects = 10;
constexpr std::int32_t kMaxFailedPolls = 3;

constexpr char kServiceRoot[] = "/redfish/v1/";
constexpr char kExportAction[] =
    "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData";

// Redfish 1.6.0 moved the tasks; a BMC knows only one of the two places.
constexpr char kFirstWithTaskService[] = "1.6.0";
constexpr char kTasks[] = "/redfish/v1/TaskService/Tasks/";
constexpr char kOlderTasks[] = "/redfish/v1/Tasks/Tasks/";
constexpr char kSessions[] = "/redfish/v1/SessionService/Sessions";
constexpr char kOlderSessions[] = "/redfish/v1/SessionService/Sessions/";

// A task that no BMC has: asking for it shows whether the service answers and takes the
// credentials, and starts nothing.
constexpr char kProbe[] = "/redfish/v1/TaskService/Tasks/8A6CA3D3EC";
constexpr char kOlderProbe[] = "/redfish/v1/Tasks/Tasks/8A6CA3D3EC";
constexpr char kWrongCredentials[] =
    "The request requires user authentication which has not yet been provided or invalid.";

constexpr char kTokenHeader[] = "X-Auth-Token";

// The objects of a completed task's answer that lead to the archive's "Path".
constexpr std::pair<const char*, const char*> kWayToPath[] = {
    {"Oem", "Found \"Oem\" in KTC Redfish response. "},
    {"Tavrin", "Found \"Tavrin\" in KTC Redfish response. "},
    {"FFDCForDownloading", "Found \"FFDCForDownloading\" in KTC Redfish response. "},
};

std::string BaseUrl(const VarnexConnection::ConnectionInfo& info) {
    const bool isIpv6 = info.connection_ipversion == 1;
    const std::string host = isIpv6 ? "[" + info.host + "]" : info.host;
    return "https://" + host + ":" + std::to_string(info.port);
}

using Json = boost::property_tree::ptree;

std::string Text(const Json& value) { return value.get_value<std::string>(); }

// As many as there are, but no more than four: that is too many already.
std::vector<std::string> Pieces(const std::string& version) {
    std::vector<std::string> pieces;
    std::istringstream rest(version + ".");  // so the last piece, too, ends with a dot
    std::string piece;
    while (pieces.size() < 4 && std::getline(rest, piece, '.')) pieces.push_back(piece);
    return pieces;
}

std::int32_t NumberOf(const std::string& piece) {
    std::int32_t number = 0;
    return boost::conversion::try_lexical_convert(piece, number) ? number : 0;
}

std::vector<std::int32_t> Numbers(const std::vector<std::string>& pieces) {
    std::vector<std::int32_t> numbers(pieces.size());
    std::transform(pieces.begin(), pieces.end(), numbers.begin(), NumberOf);
    return numbers;
}

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

void LogAnswer(int level, const Rest::Response& response) {
    LOG_LINE(level) << "curlCode: " << response.curlCode << ", httpCode: " << response.httpCode
                    << ", body:\n"
                    << response.body;
}

void LogRestError(int level, const Rest::Response& response) {
    LOG_LINE(level) << "Rest response error: curlCode: " << response.curlCode
                    << ", httpCode:" << response.httpCode << ", body:\n"
                    << response.body;
}

void LogNotJson(const boost::property_tree::ptree_error& failure) {
    LOG_LINE(kFailure) << "Failed to parse Jason object : " << ReasonOf(failure);
}

void LogDumpedTo(const std::string& path) {
    LOG_LINE(kTrace) << "FFDC has been been dumped to path: " << path;
}

// With no memory left there is no line.
void LogBrokenWait(const char* reason) noexcept {
    try {
        LOG_LINE(kFailure) << "Waiting for the FFDC task was ended by an exception: " << reason;
    } catch (...) {
    }
}

// The task state in a BMC's own words, which may stand among others; the first match counts.
TaskStateCode StateNamed(const std::string& text) {
    if (Contains(text, "New")) return TaskNew;
    if (Contains(text, "Starting")) return TaskStarting;
    if (Contains(text, "Running")) return TaskRunning;
    if (Contains(text, "Completed")) return TaskCompleted;
    if (Contains(text, "Exception")) {
        LOG_LINE(kFailure)
            << "The successful GET request's response shows \"TaskState\":\"Exception\"! ";
        return TaskError;
    }
    if (Contains(text, "Killed")) {
        LOG_LINE(kFailure)
            << "The successful GET request's response shows \"TaskState\":\"Killed\"! ";
        return TaskKilled;
    }
    return TaskError;
}

// Null, and a line that says why, when no URI can be formed.
std::unique_ptr<Uri> FormUri(const VarnexConnection::ConnectionInfo& conn,
                             const std::string& path) {
    std::string reason;
    try {
        return std::make_unique<Uri>("https", conn.host, conn.port, conn.userid, conn.password,
                                     path);
    } catch (const std::exception& failure) {
        reason = failure.what();
    } catch (...) {
        reason.clear();
    }
    LOG_LINE(kFailure) << "Invalid uri " << (reason.empty() ? "Unknown exception" : reason);
    return nullptr;
}

}  // namespace

KEMFfdcRedfishImpl::KEMFfdcRedfishImpl(const VarnexConnection::ConnectionInfo& conn,
                                       const KEMFfdcUploadingUri& uri, BMCLogOption option,
                                       bool reserved)
    : m_connection(conn), m_uploading(uri), m_reserved(reserved), m_logOption(option) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdcRedfishImpl";
    BuildClient(conn, Redirects::kFollow);
    m_baseUrl = BaseUrl(conn);
    DecideTaskService();
}

KEMFfdcRedfishImpl::~KEMFfdcRedfishImpl() {
    LOG_LINE(kTrace) << "Calling destructor of KEMFfdcRedfishImpl";
}

void KEMFfdcRedfishImpl::BuildClient(const VarnexConnection::ConnectionInfo& info,
                                     Redirects redirects) {
    m_restClient.reset();  // first: the BMC loses its connection before it is asked for another
    m_restClient.reset(new (std::nothrow) Rest::RedfishClient);
    if (!m_restClient) {
        LOG_LINE(kFailure) << "Failed to construct rest client point.";
        return;
    }
    m_restClient->SetSkipSslVerify(true);
    m_restClient->SetBasicAuth(info.userid, info.password);
    m_restClient->SetTimeout(kRequestTimeout);
    if (redirects == Redirects::kFollow) m_restClient->FollowRedirects(true, kMaxRedirects);
    m_restClient->AppendHeader("Accept", "application/json");
    m_restClient->AppendHeader("Content-Type", "application/json");
}

void KEMFfdcRedfishImpl::DecideTaskService() {
    const std::string version = GetRedfishVersion();
    try {
        m_useTaskService = CompareRedfishVersion(kFirstWithTaskService, version);
    } catch (const std::string& text) {
        LOG_LINE(kFailure) << "An exception's been thrown, error message: " << text;
        m_useTaskService = true;
    }
}

std::string KEMFfdcRedfishImpl::GetRedfishVersion() {
    if (!m_restClient) return std::string();

    const Rest::Response response = m_restClient->Get(m_baseUrl + kServiceRoot);
    if (Rest::Failed(response)) {
        LOG_LINE(kWarning) << "Failed to get redfish version, curlCode: " << response.curlCode
                           << ", httpCode: " << response.httpCode << ", body:\n"
                           << response.body;
        return std::string();
    }
    try {
        const Json root = ReadJson(response.body);
        if (const Json* version = FindMember(root, "RedfishVersion")) return Text(*version);
    } catch (const boost::property_tree::ptree_error&) {
        // An answer that is not JSON has no version either.
    }
    LOG_LINE(kWarning) << "Failed to get redfish version.";
    return std::string();
}

bool KEMFfdcRedfishImpl::CompareRedfishVersion(const std::string& given,
                                               const std::string& thisVersion) {
    LOG_LINE(kTrace) << "Given version: " << given << ", this version: " << thisVersion;

    const std::vector<std::string> givenPieces = Pieces(given);
    const std::vector<std::string> thisPieces = Pieces(thisVersion);
    if (givenPieces.size() != 3 || thisPieces.size() != 3) {
        throw given;  // Deliberate: the text names the given version, whichever is malformed.
    }
    const bool isNewer = Numbers(givenPieces) <= Numbers(thisPieces);
    LOG_LINE(kTrace) << (isNewer ? "This version is newer." : "This version is older.");
    return isNewer;
}

int KEMFfdcRedfishImpl::Connect() {
    if (!m_restClient) return kNotConnected;

    const std::string url = m_baseUrl + (m_useTaskService ? kProbe : kOlderProbe);
    const Rest::Response response = m_restClient->Get(url);
    LogAnswer(kTrace, response);

    // Deliberate: any other failure counts as connected, a time-out included.
    if (response.curlCode == CURLE_COULDNT_CONNECT ||
        response.curlCode == CURLE_SSL_INVALIDCERTSTATUS ||
        Contains(response.body, kWrongCredentials)) {
        LOG_LINE(kFailure) << "Failed to connect to " << url;
        return kNotConnected;
    }
    LOG_LINE(kTrace) << "Regard as successfully to connect to " << url;
    return kSuccess;
}

int KEMFfdcRedfishImpl::GetConnectStatus() { return Connect(); }

void KEMFfdcRedfishImpl::Disconnect() { m_restClient.reset(); }

int KEMFfdcRedfishImpl::ResetConn(const VarnexConnection::ConnectionInfo& info) {
    BuildClient(info, Redirects::kRefuse);
    m_baseUrl = BaseUrl(info);
    if (info.host != m_connection.host) DecideTaskService();
    m_connection = info;
    return Connect();
}

int KEMFfdcRedfishImpl::Apply() {
    m_taskUri.clear();
    if (!m_restClient) return kRefused;

    const std::string url = m_baseUrl + kExportAction;
    Rest::Response response;
    if (!Post(url, ExportBody(), response)) return kRefused;
    SaveTaskId(response.body);
    return kSuccess;
}

bool KEMFfdcRedfishImpl::Post(const std::string& url, const std::string& body,
                              Rest::Response& response) {
    response = m_restClient->Post(url, body);
    if (Rest::Failed(response)) {
        LOG_LINE(kFailure) << "Failed post info to " << url;
        LogAnswer(kFailure, response);
        return false;
    }
    LOG_LINE(kTrace) << "Successfully post info to " << url;
    return true;
}

std::string KEMFfdcRedfishImpl::ExportBody() const {
    const bool toFileStore = !m_uploading.filestore_uri_.empty() ||
                             !m_uploading.filestore_user_.empty() ||
                             !m_uploading.filestore_password_.empty();
    boost::json::object body;
    body["InitializationNeeded"] = true;
    if (toFileStore) {
        body["Username"] = m_uploading.filestore_user_;
        body["Password"] = m_uploading.filestore_password_;
        body["ExportURI"] = m_uploading.filestore_uri_;
    }
    body["DataCollectionType"] = m_logOption == BMCLOG_MINI_LOG ? "Mini-log" : "ProcessorDump";
    return boost::json::serialize(body);
}

void KEMFfdcRedfishImpl::SaveTaskId(const std::string& response) {
    LOG_LINE(kTrace) << "Entered SaveTaskId(), parameter strResponse = " << response;
    const Json answer = ReadJson(response);
    const Json* id = FindMember(answer, "Id");
    if (id == nullptr) return;

    LOG_LINE(kTrace) << "property Id found. ";
    const std::string text = Text(*id);
    LOG_LINE(kTrace) << "jsonPtree.get<string>() invoked. ";
    m_taskUri = (m_useTaskService ? kTasks : kOlderTasks) + text;
}

void KEMFfdcRedfishImpl::SetTrialCount(std::int32_t count) { m_trialCount = count; }

void KEMFfdcRedfishImpl::SetTrialInterval(std::int32_t seconds) { m_trialInterval = seconds; }

bool KEMFfdcRedfishImpl::IsFFDCLogExist(std::string& path) {
    boost::thread wait([this, baseUrl = m_baseUrl] { RunWait(baseUrl); });
    wait.join();

    const bool isCompleted = m_taskState == TaskCompleted;
    path = isCompleted ? m_ffdcPath : std::string();
    return isCompleted;
}

void KEMFfdcRedfishImpl::RunWait(const std::string& baseUrl) noexcept {
    // An exception that left the thread would end the host's process.
    try {
        WaitForTask(baseUrl);
    } catch (const std::exception& failure) {
        m_taskState = TaskError;
        LogBrokenWait(failure.what());
    } catch (...) {
        m_taskState = TaskError;
        LogBrokenWait("Unknown exception");
    }
}

void KEMFfdcRedfishImpl::WaitForTask(const std::string& baseUrl) {
    if (!m_restClient) return;

    std::int32_t polls = 0;
    std::int32_t errors = 0;  // never reset by a good answer
    while (true) {
        const Rest::Response response = m_restClient->Get(baseUrl + m_taskUri);
        ++polls;
        if (Rest::Failed(response)) {
            LogRestError(kWarning, response);
            ++errors;
        } else if (HasEnded(response)) {
            return;
        }
        // Deliberate: the last poll too is followed by the pause.
        Clock::SleepUntil(Clock::Now() + std::chrono::seconds(m_trialInterval));
        if (errors >= kMaxFailedPolls) {
            LOG_LINE(kFailure)
                << "Connection error occurred while trying to GET the state of the task: \""
                << m_taskUri << "\" from KTC via Redfish. ";
            return;
        }
        if (polls >= m_trialCount) return;
    }
}

bool KEMFfdcRedfishImpl::HasEnded(const Rest::Response& response) {
    m_taskState = ParseTaskState(response);
    switch (m_taskState) {
        case TaskCompleted:
            LOG_LINE(kMilestone) << "The task \"" << m_taskUri
                                 << "\" is completed! Its FFDC file is available now. ";
            FindFFDCPath(response);
            return true;
        case TaskNew:
            LOG_LINE(kMilestone) << "The task \"" << m_taskUri << "\" is newing, please wait... ";
            return false;
        case TaskStarting:
            LOG_LINE(kMilestone) << "The task \"" << m_taskUri << "\" is starting, please wait... ";
            return false;
        case TaskRunning:
            LOG_LINE(kMilestone) << "The task \"" << m_taskUri << "\" is running, please wait... ";
            return false;
        case TaskKilled:
            LOG_LINE(kFailure) << "The task \"" << m_taskUri << "\" is killed. ";
            return true;
        default:
            LOG_LINE(kFailure) << "The task \"" << m_taskUri
                               << "\" encounters exception or other unexpected error. ";
            return true;
    }
}

TaskStateCode KEMFfdcRedfishImpl::ParseTaskState(const Rest::Response& response) {
    if (Rest::Failed(response)) {
        LogRestError(kFailure, response);
        return TaskError;
    }
    try {
        const Json task = ReadJson(response.body);
        if (FindMember(task, "error") != nullptr) {
            LOG_LINE(kFailure) << "GET request received error response. ";
            return TaskError;
        }
        const Json* state = FindMember(task, "TaskState");
        if (state == nullptr) {
            LOG_LINE(kFailure)
                << "The successful GET request's response has no property \"TaskState\"! ";
            return TaskError;
        }
        return StateNamed(Text(*state));
    } catch (const boost::property_tree::ptree_error& failure) {
        LogNotJson(failure);
        return TaskError;
    }
}

void KEMFfdcRedfishImpl::FindFFDCPath(const Rest::Response& response) {
    m_ffdcPath.clear();
    if (Rest::Failed(response)) {
        LogRestError(kFailure, response);
        return;
    }
    if (!m_uploading.filestore_uri_.empty()) {
        m_ffdcPath = m_uploading.filestore_uri_;
        LogDumpedTo(m_ffdcPath);
    } else if (!ReadArchivePath(response.body)) {
        return;
    }
    if (m_ffdcPath.empty()) {
        LOG_LINE(kFailure) << "Could not find FFDC log's path in sftp or internal.";
    }
}

bool KEMFfdcRedfishImpl::ReadArchivePath(const std::string& body) {
    Json task;
    try {
        task = ReadJson(body);
    } catch (const boost::property_tree::ptree_error& failure) {
        LogNotJson(failure);
        return false;
    }
    const Json* place = &task;
    for (const auto& [name, found] : kWayToPath) {
        place = FindMember(*place, name);
        if (place == nullptr) break;
        LOG_LINE(kTrace) << found;
    }
    if (place != nullptr) place = FindMember(*place, "Path");
    if (place == nullptr) {
        LOG_LINE(kFailure) << "Could not find FFDC log's path in Redfish response. ";
        return true;
    }
    m_ffdcPath = Text(*place);
    LogDumpedTo(m_ffdcPath);
    return true;
}

int KEMFfdcRedfishImpl::DownloadFFDC(const std::string& ffdcPath, const std::string& localPath) {
    if (ffdcPath.empty() || localPath.empty()) return kMissing;

    const int session = RequestSession();
    if (session != kSuccess) {
        LOG_LINE(kFailure) << "Call KEMFfdcRedfishImpl::RequestSession() failed, result is "
                           << session;
        return session;
    }
    if (!Contains(m_authToken, "X-Auth-Token:")) {
        LOG_LINE(kFailure) << "Invalid auth token";
        return kMissing;
    }
    const std::unique_ptr<Uri> uri = FormUri(m_connection, ffdcPath);
    if (!uri) return kRefused;

    const std::error_code error = file_client::download(*uri, localPath, DownloadHeaders());
    if (error) {
        LOG_LINE(kFailure) << "Failed to download ffdc log, error is " << error << " "
                           << error.message();
        return kRefused;
    }
    return kSuccess;
}

curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>
KEMFfdcRedfishImpl::DownloadHeaders() const {
    return curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>(
        {"Accept:application/json", "Content-Type:application/json", m_authToken});
}

int KEMFfdcRedfishImpl::RequestSession() {
    m_authToken.clear();
    if (!m_restClient) return kNoClient;

    const std::string url = m_baseUrl + (m_useTaskService ? kSessions : kOlderSessions);
    const boost::json::object account = {{"UserName", m_connection.userid},
                                         {"Password", m_connection.password}};
    Rest::Response response;
    if (!Post(url, boost::json::serialize(account), response)) return kRefused;
    SaveXAuthToken(response.headers);
    return kSuccess;
}

void KEMFfdcRedfishImpl::SaveXAuthToken(const std::map<std::string, std::string>& headers) {
    const auto token = headers.find(kTokenHeader);
    if (token == headers.end()) {
        LOG_LINE(kFailure) << "Failed to get X-Auth-Token.";
        return;
    }
    m_authToken = std::string(kTokenHeader) + ":" + token->second;
    LOG_LINE(kMilestone) << "SaveXAuthToken() completed, token is: " << m_authToken;
}

}  // namespace Varnex
