// SPDX-License-Identifier: Apache-2.0
#include "module/kvs/ffdc/ffdcipmi_impl.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <new>

#include "Clock.h"
#include "Ipmanip.h"
#include "KEMAccount.h"
#include "UsbLanCfg.h"
#include "common/log_line.h"
#include "file_client.h"
#include "module/kvs/ffdc/ffdc_common.h"

namespace Varnex {

namespace {

namespace fs = boost::filesystem;

constexpr char kLogSource[] = "src/module/kvs/ffdc/ffdcipmi_impl";

enum : int {
    kSuccess = 0,
    kNotConnected = 1,
    kUnreachable = 1,
    kNoHost = 6,
    kNoRunFolder = 7,
    kArchiveMissing = 8
};
enum : int { kFinished = 1, kGathering = 0, kNoAnswer = -1 };

constexpr std::int32_t kOverLan = 1;

// The mode that asks the open session for the account; the others ask in band.
constexpr int kAccountOverSession = 2;
constexpr int kProcessorArchivesOnly = 3;

constexpr std::uint8_t kNetFnOem = 0x3A;
constexpr std::uint8_t kRequestData = 0x01;
constexpr std::uint8_t kCollectionFinished = 0x01;

constexpr OemRequest kCollect = {0x49, "Entering KEMFfdcIpmiImpl::CollectFiles.",
                                 "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command.",
                                 "KEMFfdcIpmiImpl::CollectFiles(): Error sending IPMI command #2.",
                                 "Exiting KEMFfdcIpmiImpl::CollectFiles()."};

constexpr OemRequest kPoll = {
    0x4D, "Entering TKEMFFDC::IsCollectionFinished().",  // Deliberate: another class's name.
    "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command.",
    "KEMFfdcIpmiImpl::IsCollectionFinished(): Error sending IPMI command #2.",
    "Exiting KEMFfdcIpmiImpl::IsCollectionFinished()."};

constexpr OemRequest kCredential = {
    0x79, "Entering KEMFfdcIpmiImpl::GetCredential.",
    "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command.",
    "KEMFfdcIpmiImpl::GetCredential(): Error sending IPMI command #2.",
    "Exiting KEMFfdcIpmiImpl::GetCredential()."};

constexpr std::chrono::seconds kPollInterval{5};
constexpr std::chrono::seconds kLongestCollection{900};

constexpr std::uint16_t kSftpPort = 115;  // of the BMC's file service, whatever the connection says

using NoOption = curlcpp::option_traits<void*, static_cast<CURLoption>(0)>;

std::string TimeStamp() {
    const std::tm now = Clock::LocalTime();
    char stamp[6 * 12];
    std::snprintf(stamp, sizeof stamp, "%04d%02d%02d%02d%02d%02d", now.tm_year + 1900,
                  now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    return stamp;
}

bool IsAbsent(const std::string& folder) {
    boost::system::error_code ignored;
    const fs::file_type type = fs::status(folder, ignored).type();
    return type == fs::file_not_found || type == fs::status_error;
}

// Reads a text preceded by its length. False when it would reach beyond the data.
bool TakeText(const std::vector<std::uint8_t>& data, std::size_t& position, std::string& text) {
    if (position >= data.size()) return false;
    const std::size_t begin = position + 1;
    const std::size_t end = begin + data[position];
    if (end > data.size()) return false;
    text.clear();
    for (std::size_t i = begin; i < end; ++i) text += static_cast<char>(data[i]);
    position = end;
    return true;
}

}  // namespace

KEMFfdcIpmiImpl::KEMFfdcIpmiImpl(const VarnexConnection::ConnectionInfo& conn,
                                 const std::string& outputPath, int mode)
    : m_connection(conn), strOutputPath_(outputPath), m_mode(mode) {
    LOG_LINE(kTrace) << "Calling constructor of KEMFfdcIpmiImpl";
    LOG_LINE(kTrace) << "KEMFfdcIpmiImpl ConnectionInfo:";
    LOG_LINE(kTrace) << "host=" << m_connection.host;
    LOG_LINE(kTrace) << "port=" << m_connection.port;
    LOG_LINE(kTrace) << "userid=" << m_connection.userid;
    LOG_LINE(kTrace) << "password=xxxxx";
    LOG_LINE(kTrace) << "node=" << m_connection.node;
    LOG_LINE(kTrace) << "ciphersuite=" << m_connection.ciphersuite;
    LOG_LINE(kTrace) << "connection_type=" << m_connection.connection_type;
    LOG_LINE(kTrace) << "connection_case=" << m_connection.connection_case;
    LOG_LINE(kTrace) << "KEMFfdcIpmiImpl strOutputPath_ = " << strOutputPath_;
    LOG_LINE(kTrace) << "connection_ipversion=" << m_connection.connection_ipversion;
}

KEMFfdcIpmiImpl::~KEMFfdcIpmiImpl() { LOG_LINE(kTrace) << "Calling destructor of KEMFfdcIpmiImpl"; }

int KEMFfdcIpmiImpl::Connect() {
    LOG_LINE(kTrace) << "Enter KEMFfdcIpmiImpl::Connect";
    const std::string port = std::to_string(m_connection.port);
    std::unique_ptr<IpmiClient> fresh;
    if (m_connection.connection_case == kOverLan) {
        LOG_LINE(kTrace) << "Connect in IPMI LAN";
        fresh = std::make_unique<IpmiClient>(m_connection.host, m_connection.userid,
                                             m_connection.password, port, m_connection.ciphersuite);
    } else {
        LOG_LINE(kTrace) << "Connect in IPMI KCS";
        fresh = std::make_unique<IpmiClient>(0);
    }
    (void)m_client.release();  // replaced, not closed: the earlier Connect()'s session lives on
    m_client = std::move(fresh);
    if (m_client->connect() != 0) return kNotConnected;
    LOG_LINE(kTrace) << "KEMFfdcIpmiImpl::Connect Success ";
    return kSuccess;
}

int KEMFfdcIpmiImpl::GetConnectStatus() { return Connect(); }

void KEMFfdcIpmiImpl::Disconnect() {
    if (m_client) m_client->disconnect();
}

int KEMFfdcIpmiImpl::ResetConn(const VarnexConnection::ConnectionInfo& conn) {
    m_connection = conn;
    return Connect();
}

std::string KEMFfdcIpmiImpl::GetFFDCPath() const { return m_strFFDCOutputPath; }

void KEMFfdcIpmiImpl::SetLogCallBack(LogMessageCallBack* callBack) { m_logCallBack = callBack; }

int KEMFfdcIpmiImpl::Apply() {
    if (!CollectFiles()) {
        LOG_LINE(kTrace) << "Failed collecting BMC FFDC data for node: .";  // the run goes on
    }
    NameRunFolder();
    if (!MakeRunFolder()) return kNoRunFolder;
    WaitForCollection();  // its outcome does not decide the run

    Account account;
    Account fallback;
    if (!ObtainAccount(account, fallback)) return kUnreachable;

    std::string host;
    if (!ResolveHost(host)) return kNoHost;  // unlike the later exits, leaves the session open
    try {
        return FetchFiles(host, account, fallback);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& failure) {
        return NotListed(failure.what());  // the host or a name cannot stand in a URI
    }
}

void KEMFfdcIpmiImpl::NameRunFolder() {
    // No separator in between: the caller's path ends with its own.
    m_strFFDCOutputPath = strOutputPath_ + "KEMFFDC" + TimeStamp();
    LOG_LINE(kTrace) << "KEMFfdcIpmiImpl m_strFFDCOutputPath_ = " << m_strFFDCOutputPath;
}

bool KEMFfdcIpmiImpl::MakeRunFolder() const {
    if (!IsAbsent(m_strFFDCOutputPath)) {
        LOG_LINE(kMilestone) << "m_strFFDCOutputPath " << m_strFFDCOutputPath << " already exist";
        return true;
    }
    LOG_LINE(kMilestone) << "Create m_strFFDCOutputPath " << m_strFFDCOutputPath;
    boost::system::error_code ignored;  // what counts is whether the folder is there afterwards
    fs::create_directories(m_strFFDCOutputPath, ignored);
    if (IsAbsent(m_strFFDCOutputPath)) {
        LOG_LINE(kFailure) << "Failed to create FFDC output path " << m_strFFDCOutputPath;
        return false;
    }
    LOG_LINE(kMilestone) << "Create m_strFFDCOutputPath " << m_strFFDCOutputPath
                         << " successfully.";
    return true;
}

void KEMFfdcIpmiImpl::WaitForCollection() {
    if (m_logCallBack != nullptr) m_logCallBack->LogMessage("In progress");

    int state = kNoAnswer;
    std::chrono::seconds waited{0};
    while (true) {
        if (m_logCallBack != nullptr) {  // read afresh: the host may set one meanwhile
            m_logCallBack->LogMessage(".");
            std::cout.flush();
            std::fflush(stdout);
        }
        Clock::SleepFor(kPollInterval);
        waited += kPollInterval;
        if (state != kFinished) state = IsCollectionFinished();

        if (state == kNoAnswer) {
            LOG_LINE(kTrace) << "KEMFfdcIpmiImpl Apply Error invoking IsCollectionFinished()";
            return;
        }
        if (state == kFinished) {
            LOG_LINE(kTrace) << "KEMFfdcIpmiImpl Apply  invoking IsCollectionFinished() successful";
            return;
        }
        if (waited >= kLongestCollection) {
            LOG_LINE(kTrace)
                << "Timeout getting BMC FFDC, please try to run Orlan again to fix the problem";
            return;
        }
    }
}

bool KEMFfdcIpmiImpl::ObtainAccount(Account& account, Account& fallback) {
    if (m_mode == kAccountOverSession) {
        if (GetCredential(account.user, account.password)) return true;
        LOG_LINE(kFailure) << "Failed getting BMC credential ";
        Disconnect();
        return false;
    }
    Disconnect();  // the in-band request needs the interface for itself
    XM_WIDGETS::KEMAccount inBand;
    if (XM_WIDGETS::GetKEMAccountViaKCS(inBand, m_connection.node) == 0) {
        account = {inBand.user, inBand.password};
    }
    fallback = {m_connection.userid, m_connection.password};
    if (Connect() != kSuccess) {
        LOG_LINE(kTrace) << "Failed to connect ipmi KCS.";
        Disconnect();
        return false;
    }
    return true;
}

bool KEMFfdcIpmiImpl::ResolveHost(std::string& host) const {
    host = m_connection.host;
    if (host.empty()) {
        UsbLanNodeList nodes;
        UsbLanCfg& usbLan = UsbLanCfg::GetInstance(kUsbLanLeaveAsFound, false);
        if (usbLan.QueryUsbLanState(nodes, false) != 0 || nodes.empty()) return false;
        host = nodes.front().address;
    }
    if (Ipmanip::is_ipv6(host)) host = "[" + host + "]";
    return true;
}

int KEMFfdcIpmiImpl::FetchFiles(const std::string& host, const Account& account,
                                const Account& fallback) {
    Uri remote("sftp", host, kSftpPort, account.user, account.password, RemoteFolder());
    std::list<std::string> names;
    if (!ListFiles(remote, fallback, names)) return kUnreachable;
    LOG_LINE(kFailure) << "remote ffdc size = " << names.size();
    return DownloadFiles(remote, names);
}

bool KEMFfdcIpmiImpl::ListFiles(Uri& remote, const Account& fallback,
                                std::list<std::string>& names) {
    std::error_code error = file_client::ls_directory(remote, names);
    if (error && m_mode != kAccountOverSession) {
        remote.set_auth(fallback.user, fallback.password);
        names.clear();
        error = file_client::ls_directory(remote, names);
    }
    if (!error) return true;
    NotListed(std::to_string(error.value()) + " " + error.message());
    return false;
}

int KEMFfdcIpmiImpl::NotListed(const std::string& reason) {
    Disconnect();
    LOG_LINE(kFailure) << "Failed getting BMC FFDC data files, error is " << reason;
    return kUnreachable;
}

int KEMFfdcIpmiImpl::DownloadFiles(Uri& remote, const std::list<std::string>& names) {
    const bool isArchiveVital = m_mode == kAccountOverSession || m_mode == kProcessorArchivesOnly;
    bool isTgzMissing = false;
    bool isTzzMissing = false;
    for (const std::string& name : names) {
        LOG_LINE(kTrace) << "Getting file " << name;
        if (m_mode == kProcessorArchivesOnly && !boost::algorithm::iends_with(name, ".tzz")) {
            continue;
        }
        if (Download(remote, name)) continue;
        if (isArchiveVital && boost::algorithm::iends_with(name, ".tgz")) {
            Disconnect();
            return kArchiveMissing;
        }
        // Deliberate: unlike above, letter case counts here.
        isTgzMissing = isTgzMissing || boost::algorithm::ends_with(name, ".tgz");
        isTzzMissing = isTzzMissing || boost::algorithm::ends_with(name, ".tzz");
    }
    Disconnect();
    if (isTgzMissing && isTzzMissing) return kArchiveMissing;
    LOG_LINE(kTrace) << "Exiting KEMFfdcIpmiImpl::Apply().";
    return kSuccess;
}

bool KEMFfdcIpmiImpl::Download(Uri& remote, const std::string& name) const {
    remote.set_path(Uri::join_path(RemoteFolder(), name));
    const fs::path target = fs::path(m_strFFDCOutputPath) / name;
    const std::error_code error = file_client::download(remote, target.string(), NoOption(nullptr));
    if (!error) return true;
    LOG_LINE(kFailure) << "Failed to download file \"" << name << "\", error is " << error.value()
                       << " " << error.message();
    return false;
}

const char* KEMFfdcIpmiImpl::RemoteFolder() const {
    return m_mode == kAccountOverSession ? "/download/ffdc/" : "/download/ffdc/kem_dump/";
}

bool KEMFfdcIpmiImpl::CollectFiles() {
    std::vector<std::uint8_t> response;  // its content is of no interest
    return Exchange(kCollect, response);
}

int KEMFfdcIpmiImpl::IsCollectionFinished() {
    std::vector<std::uint8_t> response;
    if (!Exchange(kPoll, response) || response.empty()) return kNoAnswer;
    return response[0] == kCollectionFinished ? kFinished : kGathering;
}

bool KEMFfdcIpmiImpl::GetCredential(std::string& user, std::string& password) {
    std::vector<std::uint8_t> response;
    if (!Exchange(kCredential, response)) return false;

    std::size_t position = 0;
    Account account;
    if (!TakeText(response, position, account.user) ||
        !TakeText(response, position, account.password)) {
        LOG_LINE(kFailure) << "the size of response_date is 0, return false";
        return false;
    }
    user = account.user;
    password = account.password;
    LOG_LINE(kTrace) << "user name=" << user << ",password=xxxxx";
    LOG_LINE(kTrace) << "Exiting TKEMFFDC::GetCredential().";  // Deliberate: another class's name.
    return true;
}

bool KEMFfdcIpmiImpl::Exchange(const OemRequest& request, std::vector<std::uint8_t>& response) {
    LOG_LINE(kTrace) << request.entry;
    const IPMICOMMAND command = {request.command, {kRequestData}, kNetFnOem};
    std::uint8_t completionCode = 0;
    if (!m_client || m_client->send(command, response, completionCode) != 0) {
        LOG_LINE(kTrace) << request.sendFailed;
        return false;
    }
    if (completionCode != 0) {
        LOG_LINE(kTrace) << request.refused;
        return false;
    }
    LOG_LINE(kTrace) << request.exit;
    return true;
}

}  // namespace Varnex
