// SPDX-License-Identifier: Apache-2.0
#include "IpmiEvents.h"

#include "Lasting.h"
#include "Listeners.h"
#include "ipmi_watchers.h"

namespace {

using Varnex::IpmiWatcher;

class Category : public std::error_category {
public:
    const char* name() const noexcept override { return "varnex.ipmi"; }

    std::string message(int result) const override {
        switch (result) {
            case kIpmiDone:
                return "done";
            case kIpmiNoModule:
                return "the module that speaks IPMI cannot be loaded";
            case kIpmiBadArgument:
                return "port, cipher suite, host, user or password cannot be used";
            case kIpmiUnknownHost:
                return "no address for the name";
            case kIpmiRefused:
                return "nothing listens on that UDP port";
            case kIpmiNoAnswer:
                return "no answer";
            case kIpmiWrongPassword:
                return "wrong password";
            case kIpmiUnknownUser:
                return "unknown user";
            case kIpmiNoCipherSuite:
                return "the BMC does not offer the cipher suite";
            case kIpmiNoPrivilege:
                return "the user may not act as administrator";
            case kIpmiNoDevice:
                return "no such IPMI device";
            case kIpmiNoPermission:
                return "no permission for the IPMI device";
            case kIpmiNotConnected:
                return "not connected";
            default:
                return "IPMI failed";
        }
    }

    std::error_condition default_error_condition(int result) const noexcept override {
        switch (result) {
            case kIpmiBadArgument:
                return std::errc::invalid_argument;
            case kIpmiRefused:
                return std::errc::connection_refused;
            case kIpmiNoAnswer:
                return std::errc::timed_out;
            case kIpmiNoDevice:
                return std::errc::no_such_device;
            case kIpmiNoPermission:
                return std::errc::permission_denied;
            case kIpmiNotConnected:
                return std::errc::not_connected;
            default:
                return {result, *this};
        }
    }
};

// Never destroyed: a thread may still speak IPMI while the process ends.
Listeners<IpmiWatcher>& Watchers() {
    static auto& watchers = *new Listeners<IpmiWatcher>;
    return watchers;
}

}  // namespace

const std::error_category& Varnex::IpmiCategory() noexcept {
    static const Lasting<Category> lasting;  // a code holds a pointer to it
    return lasting.value;
}

void Varnex::AddIpmiWatcher(IpmiWatcher* watcher) { Watchers().Add(watcher); }

void Varnex::RemoveIpmiWatcher(IpmiWatcher* watcher) { Watchers().Remove(watcher); }

void ipmi_watchers::Connected(const Varnex::IpmiConnection& connection) noexcept {
    Watchers().Tell([&](IpmiWatcher& watcher) { watcher.Connected(connection); });
}

void ipmi_watchers::Exchanged(const Varnex::IpmiExchange& exchange) noexcept {
    Watchers().Tell([&](IpmiWatcher& watcher) { watcher.Exchanged(exchange); });
}

void ipmi_watchers::Disconnected(bool inBand) noexcept {
    Watchers().Tell([&](IpmiWatcher& watcher) { watcher.Disconnected(inBand); });
}

void ipmi_watchers::AccountLookedUp(const Varnex::AccountLookupResult& account) noexcept {
    Watchers().Tell([&](IpmiWatcher& watcher) { watcher.AccountLookedUp(account); });
}

void ipmi_watchers::UsbLanLookedUp(const Varnex::UsbLanLookupResult& usbLan) noexcept {
    Watchers().Tell([&](IpmiWatcher& watcher) { watcher.UsbLanLookedUp(usbLan); });
}
