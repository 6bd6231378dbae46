// SPDX-License-Identifier: Apache-2.0
#include "host_interface.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

// DSP0134, sections 6.1.2 and 7.43.
constexpr std::size_t kHeaderSize = 4;  // type, length, handle
constexpr std::uint8_t kManagementHostInterface = 42;
constexpr std::uint8_t kEndOfTable = 127;
constexpr std::uint8_t kNetworkInterface = 0x40;

// DSP0270, sections 8.3 and 8.5.
constexpr std::uint8_t kUsb = 0x02;
constexpr std::uint8_t kUsbVersion2 = 0x04;
constexpr std::uint8_t kRedfishOverIp = 0x04;
constexpr std::size_t kServiceFormat = 51;
constexpr std::size_t kServiceAddress = 52;
constexpr std::uint8_t kIpv4 = 0x01;
constexpr std::uint8_t kIpv6 = 0x02;

// Bytes that know their end: what lies outside reads as nothing.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    std::size_t Size() const { return m_size; }
    bool Holds(std::size_t offset, std::size_t size) const {
        return offset <= m_size && size <= m_size - offset;
    }
    std::uint8_t At(std::size_t offset) const { return Holds(offset, 1) ? m_data[offset] : 0; }
    std::uint16_t WordAt(std::size_t offset) const {
        return static_cast<std::uint16_t>(At(offset) | At(offset + 1) << 8);
    }
    Bytes Piece(std::size_t offset, std::size_t size) const {
        return Holds(offset, size) ? Bytes(m_data + offset, size) : Bytes(m_data, 0);
    }
    const std::uint8_t* Data() const { return m_data; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

// The strings behind a structure end with an empty one: two NULs, also where there are none.
std::size_t EndOfStrings(const Bytes& table, std::size_t from) {
    for (std::size_t at = from; table.Holds(at, 2); ++at) {
        if (table.At(at) == 0 && table.At(at + 1) == 0) return at + 2;
    }
    return table.Size();
}

bool ReadDevice(const Bytes& device, UsbHostInterface& found) {
    if (device.At(0) == kUsb && device.Size() >= 5) {
        found.vendor = device.WordAt(1);
        found.product = device.WordAt(3);
        return true;
    }
    if (device.At(0) == kUsbVersion2 && device.Size() >= 13) {  // with its own length at 1
        found.vendor = device.WordAt(2);
        found.product = device.WordAt(4);
        std::copy_n(device.Data() + 7, found.mac.size(), found.mac.begin());
        return true;
    }
    return false;
}

std::string AddressText(int family, const std::uint8_t* address, std::size_t size) {
    const bool unset = std::all_of(address, address + size, [](auto byte) { return byte == 0; });
    char text[INET6_ADDRSTRLEN] = "";
    if (!unset) inet_ntop(family, address, text, sizeof text);
    return text;
}

std::string ServiceAddress(const Bytes& protocol) {
    const Bytes address = protocol.Piece(kServiceAddress, 16);
    if (address.Size() == 0) return {};
    if (protocol.At(kServiceFormat) == kIpv4) return AddressText(AF_INET, address.Data(), 4);
    if (protocol.At(kServiceFormat) == kIpv6) return AddressText(AF_INET6, address.Data(), 16);
    return {};
}

// The first address among the protocol records that begin at `at` with their number.
std::string FindAddress(const Bytes& structure, std::size_t at) {
    const std::uint8_t count = structure.At(at++);
    for (std::uint8_t n = 0; n < count && structure.Holds(at, 2); ++n) {
        const Bytes record = structure.Piece(at + 2, structure.At(at + 1));
        if (structure.At(at) == kRedfishOverIp) {
            std::string address = ServiceAddress(record);
            if (!address.empty()) return address;
        }
        at += 2u + structure.At(at + 1);
    }
    return {};
}

bool ReadInterface(const Bytes& structure, UsbHostInterface& found) {
    if (structure.At(4) != kNetworkInterface) return false;
    const std::size_t size = structure.At(5);
    if (!ReadDevice(structure.Piece(6, size), found)) return false;
    found.address = FindAddress(structure, 6 + size);
    return true;
}

}  // namespace

std::vector<UsbHostInterface> ReadUsbHostInterfaces(const std::uint8_t* data, std::size_t size,
                                                    bool& whole) {
    const Bytes table(data, size);
    std::vector<UsbHostInterface> interfaces;
    whole = false;
    std::size_t at = 0;
    while (table.Holds(at, kHeaderSize)) {
        const std::uint8_t type = table.At(at);
        const std::size_t length = table.At(at + 1);
        if (length < kHeaderSize || !table.Holds(at, length)) return interfaces;
        UsbHostInterface found;
        if (type == kManagementHostInterface && ReadInterface(table.Piece(at, length), found)) {
            interfaces.push_back(std::move(found));
        }
        at = EndOfStrings(table, at + length);
        if (type == kEndOfTable) break;  // firmware leaves garbage behind it
    }
    whole = at > 0;
    return interfaces;
}
