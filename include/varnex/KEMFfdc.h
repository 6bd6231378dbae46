// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_KEMFFDC_H
#define VARNEX_KEMFFDC_H

#include <string>

#include "BMCLogOption.h"
#include "ConnectionInfo.h"
#include "KEMFfdcUploadingUri.h"
#include "LogMessageCallBack.h"

#define VARNEX_FFDC_API __attribute__((visibility("default")))

namespace Varnex {

class KEMFfdcImpl;
class KEMFfdcIpmiImpl;
class KEMFfdcRedfishImpl;

// Service data (FFDC, first failure data capture) of one server's BMC.
//
// The constructor decides, for the object's whole life, how the BMC is reached:
//
//   (conn, uri, bool)           CIM-XML: the BMC uploads its archives to `uri` by itself
//   (conn, outputPath, mode)    OEM IPMI commands, over the LAN or in band; the files are then
//                               fetched by SFTP into a new folder under `outputPath`
//   (conn, uri, BMCLogOption)   Redfish over HTTPS: the BMC gathers as a task; the archive is then
//                               downloaded, or left by the BMC at `uri`
//
// Mind the third argument: a bare integer after a `uri` converts to bool and means CIM.
//
// Order of use: construct, Connect, Apply; then GetFFDCPath (IPMI), or IsFFDCLogExist and
// DownloadFFDC (Redfish); Disconnect, destroy.
//
// Calls block until the work is done; none takes a time-out of its own. One object belongs to one
// thread at a time; objects do not share state, so many threads may each have their own.
//
// An operation that the object's channel does not offer returns -1 or false, or does nothing. So
// does every operation of an object whose channel could not be allocated.
class VARNEX_FFDC_API KEMFfdc {
public:
    // CIM. Copies its arguments and makes no connection. `initializationNeeded` is handed to the
    // BMC as it is.
    KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
            bool initializationNeeded);

    // IPMI. Copies its arguments and makes no connection. `outputPath` is put before the name of
    // the run's folder as it stands, so a folder needs its separator at the end. `mode`:
    //
    //   2      the account for SFTP comes over the open session; /download/ffdc/, every file
    //   3      the account comes in band; /download/ffdc/kem_dump/, the .tzz files alone
    //   other  as 3, but every file
    //
    // Connect and Apply need more than the 128 KiB that some C libraries give a thread: call them
    // on one with at least 256 KiB of stack.
    KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const std::string& outputPath, int mode);

    // Redfish. Copies its arguments and already asks the BMC for its Redfish version: one GET, of
    // up to 60 s, repeated every 5 s for up to 180 s while the BMC answers 503. A BMC that cannot
    // be reached is no error here; Connect tells.
    //
    // Throws std::runtime_error when libcurl cannot be initialised, std::bad_alloc.
    KEMFfdc(const VarnexConnection::ConnectionInfo& conn, const KEMFfdcUploadingUri& uri,
            BMCLogOption option);

    // Closes what is open on this side. Sends nothing to the BMC.
    ~KEMFfdc();

    KEMFfdc(const KEMFfdc&) = delete;
    KEMFfdc& operator=(const KEMFfdc&) = delete;

    // Makes the BMC gather its archive. 0 on success, else the channel's code
    // (docs/result-codes.md).
    //
    // CIM: one call to the BMC for each data object, up to 20 minutes each; returns at the first
    // that fails. 1: no connection, or it was lost. 2: an export failed. 4: the BMC answered 3, or
    // the URI is neither SFTP nor TFTP. 5, 6: the BMC's own answers.
    //
    // IPMI: blocks for up to 15 minutes while the BMC gathers, then for the downloads. 1: no
    // account, or no listing. 6: no host. 7: the folder could not be made. 8: an archive could not
    // be downloaded; 0 does not mean that every file could.
    //
    // Redfish: returns as soon as the BMC has accepted the export; IsFFDCLogExist waits for the
    // outcome. 2: the request failed, or there is no connection. Throws
    // boost::property_tree::json_parser_error when the BMC accepts the export but answers with
    // something that is not JSON.
    int Apply();

    // 0: connected, 1: not connected.
    //
    // CIM: up to three attempts of up to 40 minutes each, with 10 s after each that failed.
    // Credentials are not checked: a wrong password shows in Apply. A connection type that is
    // neither 0 nor 1 counts as connected.
    //
    // IPMI: opens a session; an earlier one is neither closed nor released.
    //
    // Redfish: not connected means that no connection could be made or that the BMC asked for
    // other credentials. Everything else counts as connected, a time-out or a failed TLS handshake
    // included: who needs to be sure looks at the next step's result.
    int Connect();

    // Makes a fresh connection attempt, exactly like Connect, and returns its result.
    int GetConnectStatus();

    // Drops the connection.
    //
    // Redfish: Apply and Connect fail until ResetConn has made a new one. Sends nothing: a session
    // that DownloadFFDC opened on the BMC stays until the BMC ends it.
    void Disconnect();

    // Replaces the connection data and connects again; same result as Connect. From then on the
    // Redfish channel no longer follows redirects.
    int ResetConn(const VarnexConnection::ConnectionInfo& conn);

    // Redfish: downloads `ffdcPath`, as IsFFDCLogExist gave it, to the file `localPath`, whose
    // folder must exist. The file appears under its name only when it is complete. Opens a new
    // Redfish session (DMTF DSP0266) for it.
    //
    // 0: downloaded. 1: no connection. 2: the session, the URI or the download failed. 4: an
    // argument is empty, or the BMC gave no session token.
    int DownloadFFDC(const std::string& ffdcPath, const std::string& localPath);

    // Redfish: waits for the export's task, as many polls as SetTrialCount says, and tells whether
    // the task has completed. Then `path` is where the archive lies (on the BMC, or the export URI
    // when there is one; empty when the BMC did not say), else it is empty.
    //
    // An earlier completion is remembered: a later wait that learns nothing new reports it again.
    bool IsFFDCLogExist(std::string& path);

    // IPMI only: the local folder of the last run. Empty on every other object.
    const std::string GetFFDCPath();

    // IPMI only, ignored by every other object: "In progress" and then "." for every poll of the
    // BMC go to `callBack`, which stays the host's and outlives its use here. Null: to nobody, the
    // default.
    void SetLogCallBack(LogMessageCallBack* callBack);

    // Redfish: how many times IsFFDCLogExist asks for the task's state. 0, the default, and 1
    // ask once.
    void SetTrialCount(int count);

    // Redfish: seconds between two questions, and after the last. Default 5.
    void SetTrialInterval(int seconds);

private:
    // Layout is ABI: three owning pointers, at most one of them set, and nothing else.
    KEMFfdcImpl* impl_ptr_;
    KEMFfdcIpmiImpl* implIpmi_ptr_;
    KEMFfdcRedfishImpl* implRedfish_ptr_;
};

}  // namespace Varnex

#endif
