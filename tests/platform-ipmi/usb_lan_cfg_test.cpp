// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "CapturedLog.h"
#include "UsbLanCfg.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::uint8_t Byte(std::size_t number) { return static_cast<std::uint8_t>(number); }

// Structures as DSP0134 and DSP0270 lay them out.

Bytes Structure(std::uint8_t type, const Bytes& content, const std::string& strings = "") {
    Bytes bytes = {type, Byte(4 + content.size()), 0x2A, 0x00};
    bytes = bytes + content + Bytes(strings.begin(), strings.end());
    bytes.push_back(0);
    if (strings.empty()) bytes.push_back(0);
    return bytes;
}

Bytes HostInterface(const Bytes& device, const std::vector<Bytes>& protocols) {
    Bytes content = Bytes{0x40, Byte(device.size())} + device + Bytes{Byte(protocols.size())};
    for (const Bytes& protocol : protocols) content = content + protocol;
    return Structure(42, content);
}

const Bytes kUsb = {0x02, 0x6B, 0x04, 0x02, 0xFF, 0x04, 0x03, '1', 0x00};  // 046b:ff02
const Bytes kUsbVersion2 = {0x04, 0x0D, 0x6B, 0x04, 0x02, 0xFF, 0x00,
                            0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

Bytes RedfishOverIp(std::uint8_t format, const Bytes& address) {
    Bytes data(16, 0x77);                                                   // UUID of the service
    data = data + Bytes{0x01, format} + Bytes(16, 0xA9) + Bytes(16, 0xFF);  // the host's side
    data = data + Bytes{0x01, format} + address + Bytes(16 - address.size(), 0x00);
    data = data + Bytes(16, 0xFF) + Bytes{0xBB, 0x01, 0, 0, 0, 0, 3, 'b', 'm', 'c'};
    return Bytes{0x04, Byte(data.size())} + data;
}

const Bytes kIpv4 = {169, 254, 0, 17};
const Bytes kLinkLocal = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const Bytes kEnd = Structure(127, {});

class UsbLanCfgQuery : public testing::Test {
protected:
    UsbLanCfgQuery() {
        std::string name = (std::filesystem::temp_directory_path() / "usb-lan-XXXXXX").string();
        m_folder = mkdtemp(name.data());
        std::filesystem::create_directories(m_folder / "net");
        setenv("VARNEX_DMI_TABLE", (m_folder / "DMI").c_str(), 1);
        setenv("VARNEX_NET_CLASS", (m_folder / "net").c_str(), 1);
        AddInterface("eth0", "52:54:00:00:00:01", "", "", "up");
        AddInterface("lo", "00:00:00:00:00:00", "", "", "unknown");
    }
    ~UsbLanCfgQuery() override { std::filesystem::remove_all(m_folder); }

    void TableIs(const Bytes& table) {
        std::ofstream file(m_folder / "DMI", std::ios::binary);
        file.write(reinterpret_cast<const char*>(table.data()),
                   static_cast<std::streamsize>(table.size()));
    }

    // As the kernel shows one: `device` is a link to the USB interface, below the USB device.
    void AddInterface(const std::string& name, const std::string& mac, const std::string& vendor,
                      const std::string& product, const std::string& state) {
        const auto interface = m_folder / "net" / name;
        std::filesystem::create_directories(interface);
        std::ofstream(interface / "address") << mac << "\n";
        std::ofstream(interface / "operstate") << state << "\n";
        if (vendor.empty()) return;
        const auto device = m_folder / "usb" / name;
        std::filesystem::create_directories(device / "1-1:1.0");
        std::ofstream(device / "idVendor") << vendor << "\n";
        std::ofstream(device / "idProduct") << product << "\n";
        std::filesystem::create_directory_symlink(device / "1-1:1.0", interface / "device");
    }

    int Query() {
        return UsbLanCfg::GetInstance(kUsbLanLeaveAsFound, false).QueryUsbLanState(nodes, false);
    }

    std::vector<std::string> Found() const {
        std::vector<std::string> texts;
        for (const UsbLanNode& node : nodes) texts.push_back(node.address + " " + node.interface);
        return texts;
    }

    CapturedLog log;
    UsbLanNodeList nodes;
    std::filesystem::path m_folder;
};

TEST_F(UsbLanCfgQuery, Ipv4AddressBehindAUsbInterfaceIsFound) {
    TableIs(Structure(0, Bytes(20), std::string("Vendor\0Version\0", 15)) +
            HostInterface(kUsb, {RedfishOverIp(1, kIpv4)}) + kEnd);
    AddInterface("usb0", "02:11:22:33:44:55", "046b", "ff02", "up");

    EXPECT_EQ(Query(), 0);

    EXPECT_THAT(Found(), ElementsAre("169.254.0.17 usb0"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(UsbLanCfgQuery, LinkLocalIpv6AddressComesWithTheInterfaceAsItsScope) {
    TableIs(HostInterface(kUsbVersion2, {RedfishOverIp(2, kLinkLocal)}) + kEnd);
    AddInterface("enx021122334455", "02:11:22:33:44:55", "1234", "5678", "up");

    EXPECT_EQ(Query(), 0);

    EXPECT_THAT(Found(), ElementsAre("fe80::1%enx021122334455 enx021122334455"));
}

TEST_F(UsbLanCfgQuery, InterfaceWithAnotherMacThanToldIsFoundByItsDevice) {
    TableIs(HostInterface(kUsbVersion2, {RedfishOverIp(1, kIpv4)}) + kEnd);
    AddInterface("usb0", "02:99:99:99:99:99", "046b", "ff02", "up");

    EXPECT_EQ(Query(), 0);

    EXPECT_THAT(Found(), ElementsAre("169.254.0.17 usb0"));
}

TEST_F(UsbLanCfgQuery, SeveralNodesComeInTheTablesOrder) {
    TableIs(HostInterface(kUsbVersion2, {RedfishOverIp(2, kLinkLocal)}) +
            HostInterface(kUsb, {Bytes{0x02, 0x01, 0x00}, RedfishOverIp(1, kIpv4)}) + kEnd);
    AddInterface("a0", "02:00:00:00:00:01", "046b", "ff02", "up");
    AddInterface("z0", "02:11:22:33:44:55", "9999", "0001", "up");

    EXPECT_EQ(Query(), 0);

    EXPECT_THAT(Found(), ElementsAre("fe80::1%z0 z0", "169.254.0.17 a0"));
}

TEST_F(UsbLanCfgQuery, InterfaceThatIsDownIsFoundWithAWarning) {
    TableIs(HostInterface(kUsb, {RedfishOverIp(1, kIpv4)}) + kEnd);
    AddInterface("usb0", "02:11:22:33:44:55", "046b", "ff02", "down");

    EXPECT_EQ(Query(), 0);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "2 platform/src/UsbLanCfg: The USB network interface usb0 to the BMC at 169.254.0.17 is down"));
}

TEST_F(UsbLanCfgQuery, MissingInterfaceFailsAndLeavesTheNodesAlone) {
    nodes = {{"192.0.2.1", "old"}};
    TableIs(HostInterface(kUsb, {RedfishOverIp(1, kIpv4)}) + kEnd);

    EXPECT_EQ(Query(), 3);

    EXPECT_THAT(Found(), ElementsAre("192.0.2.1 old"));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "2 platform/src/UsbLanCfg: The USB network interface 046b:ff02 to the BMC at 169.254.0.17 is not there",
            "1 platform/src/UsbLanCfg: This host has no USB network interface to its BMC in " +
                (m_folder / "net").string()));
}

TEST_F(UsbLanCfgQuery, TableThatCannotBeReadFails) {
    EXPECT_EQ(Query(), 1);

    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/UsbLanCfg: The firmware's table " +
                                         (m_folder / "DMI").string() +
                                         " cannot be read: No such file or directory"));
}

TEST_F(UsbLanCfgQuery, TableOfMoreThanAMebibyteIsNotRead) {
    TableIs(Bytes(1024 * 1024 + 1));

    EXPECT_EQ(Query(), 1);

    EXPECT_THAT(log.Lines(),
                ElementsAre("1 platform/src/UsbLanCfg: The firmware's table " +
                            (m_folder / "DMI").string() + " cannot be read: File too large"));
}

TEST_F(UsbLanCfgQuery, TableWithoutAUsbInterfaceToTheBmcFails) {
    const Bytes kcs = Structure(42, {0x02, 0x00, 0x00, 0x00});
    const Bytes pci = HostInterface({0x03, 1, 2, 3, 4, 5, 6, 7, 8}, {RedfishOverIp(1, kIpv4)});
    TableIs(Structure(1, Bytes(23)) + kcs + pci + kEnd +
            HostInterface(kUsb, {RedfishOverIp(1, kIpv4)}));

    EXPECT_EQ(Query(), 2);

    EXPECT_THAT(log.Lines(), ElementsAre("1 platform/src/UsbLanCfg: The firmware's table " +
                                         (m_folder / "DMI").string() +
                                         " describes no network interface to the BMC over USB"));
}

TEST_F(UsbLanCfgQuery, AddressThatIsNotToldFails) {
    AddInterface("usb0", "02:11:22:33:44:55", "046b", "ff02", "up");
    for (const Bytes& protocol :
         {RedfishOverIp(0, kIpv4), RedfishOverIp(1, Bytes(4)), RedfishOverIp(2, Bytes(16)),
          Bytes{0x04, 0x00}, Bytes{0x04, 67} + Bytes(67, 0x01),
          Bytes{0x02, 91} + Bytes(91, 0x01)}) {
        TableIs(HostInterface(kUsb, {protocol}) + kEnd);
        EXPECT_EQ(Query(), 2);
    }
    EXPECT_EQ(
        log.Lines().front(),
        "1 platform/src/UsbLanCfg: The firmware's table does not tell the address of the BMC behind the USB network interface");
}

TEST_F(UsbLanCfgQuery, BrokenTablesFailWithoutReadingOutside) {
    struct {
        Bytes table;
        const char* why;
    } const rows[] = {
        {{}, "empty"},
        {{42}, "a piece of a header"},
        {{42, 0, 0, 0, 0, 0}, "length zero"},
        {{42, 3, 0, 0, 0, 0}, "length less than the header"},
        {{42, 255, 0, 0, 0x40, 0xFF}, "length beyond the table"},
        {{1, 27, 0}, "cut in the header"},
    };
    for (const auto& row : rows) {
        TableIs(row.table);
        EXPECT_EQ(Query(), 1) << row.why;
    }
    EXPECT_THAT(log.Lines().back(), testing::HasSubstr(" is broken"));
}

TEST_F(UsbLanCfgQuery, LengthsInsideAStructureThatOverrunAreNoAddress) {
    AddInterface("usb0", "02:11:22:33:44:55", "046b", "ff02", "up");
    const Bytes good = HostInterface(kUsb, {RedfishOverIp(1, kIpv4)});
    constexpr std::size_t deviceLength = 5, count = 15, protocolLength = 17;
    struct {
        std::size_t at;
        std::uint8_t value;
        const char* why;
    } const rows[] = {
        {deviceLength, 255, "device longer than the structure"},
        {deviceLength, 0, "no device"},
        {deviceLength, 4, "device shorter than its kind"},
        {count, 0, "no protocols"},
        {protocolLength, 255, "protocol longer than the structure"},
        {protocolLength, 0, "protocol without content"},
    };
    for (const auto& row : rows) {
        Bytes table = good;
        table[row.at] = row.value;
        TableIs(table + kEnd);
        EXPECT_EQ(Query(), 2) << row.why;
    }
}

TEST_F(UsbLanCfgQuery, TableCutAnywhereIsNeverReadBeyondItsEnd) {
    AddInterface("usb0", "02:11:22:33:44:55", "046b", "ff02", "up");
    const Bytes whole = HostInterface(kUsbVersion2, {RedfishOverIp(1, kIpv4)});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        TableIs(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(Query(), size < whole.size() - 2 ? 1 : 0) << size;
    }
}

TEST_F(UsbLanCfgQuery, BytesByChanceAreNeverReadBeyondTheirEnd) {
    std::mt19937 random(20240301);
    const Bytes good =
        Structure(1, Bytes(23)) + HostInterface(kUsb, {RedfishOverIp(1, kIpv4)}) + kEnd;
    for (int n = 0; n < 2000; ++n) {
        Bytes table = good;
        for (int changes = 0; changes < 4; ++changes) {
            table[random() % table.size()] = Byte(random() & 0xFF);
        }
        TableIs(table);
        EXPECT_THAT(Query(), testing::AnyOf(1, 2, 3));
    }
}

}  // namespace
