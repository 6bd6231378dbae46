// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_KEMFFDCUPLOADINGURI_H
#define VARNEX_KEMFFDCUPLOADINGURI_H

#include <string>

namespace Varnex {

// The file store to which the BMC uploads its archive by itself. It is the BMC that connects
// there, so the URI must be reachable from the BMC's network.
//
// Redfish: all three empty means that the archive stays on the BMC, to be fetched with
// KEMFfdc::DownloadFFDC. When any is set, all three are sent to the BMC; a non-empty URI is then
// reported as the archive's place once the task has completed.
struct KEMFfdcUploadingUri {
    std::string filestore_uri_;   // whole URI (RFC 3986) of the target: sftp://... or tftp://...
    std::string filestore_user_;  // account on the file store
    std::string filestore_password_;  // its password; never logged
};

}  // namespace Varnex

#endif
