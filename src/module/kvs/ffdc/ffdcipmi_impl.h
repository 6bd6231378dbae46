// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_FFDC_FFDCIPMI_IMPL_H
#define VARNEX_FFDC_FFDCIPMI_IMPL_H

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "IpmiClient.h"
#include "Uri.h"
#include "varnex/ConnectionInfo.h"
#include "varnex/LogMessageCallBack.h"

namespace Varnex {

// One of the OEM requests that gather service data, and what is logged about it.
struct OemRequest {
    std::uint8_t command;
    const char* entry;
    const char* sendFailed;
    const char* refused;  // by a completion code other than 0
    const char* exit;
};

// The IPMI channel of KEMFfdc: OEM commands make the BMC gather its files, which are then fetched
// over SFTP into a folder of their own.
//
// Blocks its caller, up to 15 minutes for the BMC's gathering; one thread at a time.
class KEMFfdcIpmiImpl {
public:
    KEMFfdcIpmiImpl(const VarnexConnection::ConnectionInfo& conn, const std::string& outputPath,
                    int mode);
    ~KEMFfdcIpmiImpl();

    KEMFfdcIpmiImpl(const KEMFfdcIpmiImpl&) = delete;
    KEMFfdcIpmiImpl& operator=(const KEMFfdcIpmiImpl&) = delete;

    // 0 connected, 1 not connected. An earlier client is replaced, not closed.
    int Connect();
    int GetConnectStatus();
    void Disconnect();
    int ResetConn(const VarnexConnection::ConnectionInfo& conn);

    // 0 done, with at most one kind of archive missing; 1 no account, no connection or no listing;
    // 6 no host; 7 no run folder; 8 an archive could not be downloaded.
    int Apply();

    std::string GetFFDCPath() const;
    void SetLogCallBack(LogMessageCallBack* callBack);

    // The steps of Apply().

    bool CollectFiles();

    // 1 the BMC has finished, 0 it still gathers, -1 it could not be asked or did not answer.
    int IsCollectionFinished();

    // An account of the BMC's SFTP service. False leaves both as they are.
    bool GetCredential(std::string& user, std::string& password);

private:
    struct Account {
        std::string user;
        std::string password;
    };

    bool Exchange(const OemRequest& request, std::vector<std::uint8_t>& response);
    void NameRunFolder();
    bool MakeRunFolder() const;
    void WaitForCollection();
    bool ObtainAccount(Account& account, Account& fallback);
    bool ResolveHost(std::string& host) const;
    int FetchFiles(const std::string& host, const Account& account, const Account& fallback);
    bool ListFiles(Uri& remote, const Account& fallback, std::list<std::string>& names);
    int DownloadFiles(Uri& remote, const std::list<std::string>& names);
    bool Download(Uri& remote, const std::string& name) const;
    int NotListed(const std::string& reason);
    const char* RemoteFolder() const;

    VarnexConnection::ConnectionInfo m_connection;
    std::unique_ptr<IpmiClient> m_client;  // null until Connect(); kept by Disconnect()
    std::string strOutputPath_;
    LogMessageCallBack* m_logCallBack = nullptr;  // the host's; null: no progress texts
    std::string m_strFFDCOutputPath;              // folder of the last run
    int m_mode;
};

}  // namespace Varnex

#endif
