// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_IPMIEVENTS_H
#define VARNEX_PLATFORM_IPMIEVENTS_H

#include <cstdint>
#include <string>
#include <system_error>

#include "IpmiClient.h"

#pragma GCC visibility push(default)

namespace Varnex {

// The failures of IpmiClient as error codes: category "varnex.ipmi", the numbers of IpmiResult. So
// kIpmiRefused compares equal to std::errc::connection_refused, kIpmiNoAnswer to timed_out,
// kIpmiNoDevice to no_such_device, kIpmiNoPermission to permission_denied, kIpmiNotConnected to
// not_connected, kIpmiBadArgument to invalid_argument. kIpmiDone is no error.
const std::error_category& IpmiCategory() noexcept;

inline std::error_code IpmiError(int result) { return {result, IpmiCategory()}; }

// What connect() of an IpmiClient has come to, after the last of the host's addresses.
struct IpmiConnection {
    bool inBand;                 // through a device of this machine, else over the LAN
    std::error_code error;       // none: connected
    const std::string& reason;   // of the error, for people, without the password
    const std::string& address;  // of the BMC, numeric, the last that was tried; in band empty
};

// What send() has come to. The data of request and answer, which may hold a password, are not told.
struct IpmiExchange {
    bool inBand;
    std::uint8_t netfn;
    std::uint8_t command;
    std::error_code error;        // none: the BMC has answered
    std::uint8_t completionCode;  // of the answer (IPMI v2.0, table 5-2); 0: done
    const std::string& reason;    // of the error
};

// What XM_WIDGETS::GetKEMAccountViaKCS has returned. What its client did was told before.
enum class AccountLookup : int {
    kFound = 0,
    kNoInterface = 1,  // no way to the BMC
    kNoAnswer = 2,
    kRefused = 3,   // the BMC has answered with a completion code
    kBadAnswer = 4  // with lengths that do not fit
};

struct AccountLookupResult {
    AccountLookup result;
    std::uint8_t completionCode;  // of kRefused
    const std::string& reason;    // for people; empty where it was found
};

// What UsbLanCfg::QueryUsbLanState has returned.
enum class UsbLanLookup : int {
    kFound = 0,
    kNoTable = 1,        // the firmware's table cannot be read or is broken
    kNoneDescribed = 2,  // it describes no interface to the BMC, or none with an address
    kNoInterface = 3     // this host does not have it
};

struct UsbLanLookupResult {
    UsbLanLookup result;
    const std::string& reason;  // for people; empty where one was found
};

// Watches the IPMI of the whole process: LAN and in band, and what is found out in band about the
// BMC of this machine. Called on the thread that does it, by several threads at once, after the
// record about it was logged. Must not throw, nor call CloseIpmiSessions. What a watcher itself
// does over IPMI is not told to watchers.
class IpmiWatcher {
public:
    virtual ~IpmiWatcher() = default;

    virtual void Connected(const IpmiConnection& connection) { (void)connection; }
    virtual void Exchanged(const IpmiExchange& exchange) { (void)exchange; }

    // A connection that was open has ended: by disconnect(), by a new connect(), with its client,
    // because the BMC fell silent, or by CloseIpmiSessions.
    virtual void Disconnected(bool inBand) { (void)inBand; }

    virtual void AccountLookedUp(const AccountLookupResult& account) { (void)account; }
    virtual void UsbLanLookedUp(const UsbLanLookupResult& usbLan) { (void)usbLan; }
};

// Adds and removes a watcher; the caller keeps owning it. Once RemoveIpmiWatcher has returned, no
// thread is inside the watcher any more; not to be called from within it.
void AddIpmiWatcher(IpmiWatcher* watcher);
void RemoveIpmiWatcher(IpmiWatcher* watcher);

}  // namespace Varnex

#pragma GCC visibility pop

#endif
