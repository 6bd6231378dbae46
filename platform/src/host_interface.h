// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_HOST_INTERFACE_H
#define VARNEX_PLATFORM_HOST_INTERFACE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A network interface over USB between host and BMC, as the firmware describes it.
struct UsbHostInterface {
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::array<std::uint8_t, 6> mac{};  // of the host's side; all zero: not told
    std::string address;                // of the BMC's service; empty: not told
};

// All of them in a table of SMBIOS structures (DSP0134: type 42; DSP0270 for its content), in the
// table's order. Structures that contradict themselves are passed over. `whole` says whether the
// table could be read up to its end: nothing after a wrong length can be found again.
std::vector<UsbHostInterface> ReadUsbHostInterfaces(const std::uint8_t* table, std::size_t size,
                                                    bool& whole);

#endif
