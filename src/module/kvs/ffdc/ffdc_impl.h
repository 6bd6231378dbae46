// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_FFDC_FFDC_IMPL_H
#define VARNEX_FFDC_FFDC_IMPL_H

#include <map>
#include <memory>
#include <string>

#include "varnex/ConnectionInfo.h"
#include "varnex/KEMFfdcUploadingUri.h"

namespace Varnex {

class CimClientHolder;

// The CIM channel of KEMFfdc: the BMC exports its data objects one by one, uploading each archive
// to a file store by itself.
//
// Blocks its caller; one thread at a time.
class KEMFfdcImpl {
public:
    KEMFfdcImpl(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
                bool initializationNeeded);
    ~KEMFfdcImpl();

    KEMFfdcImpl(const KEMFfdcImpl&) = delete;
    KEMFfdcImpl& operator=(const KEMFfdcImpl&) = delete;

    // 0 connected, 1 not connected. An earlier connection is abandoned, not closed.
    int Connect();
    int GetConnectStatus();
    void Disconnect();
    int ResetConn(const VarnexConnection::ConnectionInfo& conn);

    // 0 every object was exported; 1 no connection; 2 an export failed; 4, 5, 6 the BMC's own
    // codes 3, 5, 6, and 4 also for a URI that is neither SFTP nor TFTP.
    int Apply();

private:
    std::map<std::string, std::string> m_properties;  // of one data object
    VarnexConnection::ConnectionInfo m_connection;
    KEMFfdcUploadingUri uploading_uri_;
    std::unique_ptr<CimClientHolder> m_cimConnection;  // null unless Connect() succeeded
    bool m_initializationNeeded;
};

}  // namespace Varnex

#endif
