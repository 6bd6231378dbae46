// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_USBLANCFG_H
#define VARNEX_PLATFORM_USBLANCFG_H

#include <memory>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// One BMC at the other end of a network interface that it shows to this host over USB.
struct UsbLanNode {
    std::string address;    // of the BMC: IPv4, or IPv6 without brackets, link-local with a scope
    std::string interface;  // of the host, for instance "usb0"
};

using UsbLanNodeList = std::vector<UsbLanNode>;

// What an implementation that configures the interface leaves behind. A value of 0 leaves
// everything as it was found.
enum UsbLanRestoreMode : int { kUsbLanLeaveAsFound = 0 };

// The USB network interface between this host and its BMC. An implementer guarantees that the
// instance lives as long as the process and that any number of threads may query it.
//
// Our implementation only looks. The firmware says in SMBIOS structures of type 42 (DSP0134, and
// DSP0270 for what they hold) which USB device it is and which address the BMC has; the interface
// is looked up below /sys/class/net. Reading the table is root's privilege. The environment
// variables VARNEX_DMI_TABLE (a file with a bare structure table) and VARNEX_NET_CLASS (a folder
// as /sys/class/net) put others in their place, except in a set-user-ID program.
class UsbLanCfg {
public:
    // The one instance. Our implementation takes every value and changes no interface for any;
    // `configure` asks an implementation that can to set the interface up.
    static UsbLanCfg& GetInstance(UsbLanRestoreMode restoreMode, bool configure);

    // Replaces `nodes` by the BMCs that are reachable now, in the order of the firmware's table.
    // 0: done, with at least one. 1: the table cannot be read or is broken. 2: the firmware
    // describes no such interface, or none with an address. 3: this host has none of the
    // interfaces. Failures leave `nodes` alone, and one level-1 record says why. `refresh` asks an
    // implementation that remembers to look again; ours always looks.
    int QueryUsbLanState(UsbLanNodeList& nodes, bool refresh);

    UsbLanCfg(const UsbLanCfg&) = delete;
    UsbLanCfg& operator=(const UsbLanCfg&) = delete;

private:
    UsbLanCfg();
    ~UsbLanCfg();

    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
