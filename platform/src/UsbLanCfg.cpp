// SPDX-License-Identifier: Apache-2.0
#include "UsbLanCfg.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "Log.h"
#include "host_interface.h"
#include "ipmi_watchers.h"
#include "shared/FileDescriptor.h"

// Nothing is kept: every query looks.
struct UsbLanCfg::Impl {};

namespace {

using Varnex::UsbLanLookup;

constexpr char kLogSource[] = "platform/src/UsbLanCfg";

constexpr std::size_t kLargestTable = 1 << 20;  // bytes; real ones have some kilobytes
constexpr std::size_t kLargestAttribute = 4096;

std::string Place(const char* variable, const char* usual) {
    const char* other = secure_getenv(variable);
    return other != nullptr && *other != '\0' ? other : usual;
}

// The whole file, or the error number; EFBIG for more than `largest` bytes.
int ReadFile(const std::string& path, std::size_t largest, std::string& text) {
    const shared::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) return errno;
    text.resize(largest + 1);
    std::size_t size = 0;
    ssize_t got = 0;
    while (size < text.size() && (got = read(file.Get(), &text[size], text.size() - size)) > 0) {
        size += static_cast<std::size_t>(got);
    }
    const int error = got < 0 ? errno : size > largest ? EFBIG : 0;
    text.resize(size);
    return error;
}

// The first line of an attribute of a device; empty where there is none.
std::string Attribute(const std::string& path) {
    std::string text;
    if (ReadFile(path, kLargestAttribute, text) != 0) return {};
    return text.substr(0, text.find('\n'));
}

// The names of the host's interfaces, sorted.
std::vector<std::string> Interfaces(const std::string& root) {
    std::vector<std::string> names;
    DIR* folder = opendir(root.c_str());
    if (folder == nullptr) return names;
    while (const dirent* entry = readdir(folder)) {
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    return names;
}

std::string Hexadecimal(std::uint16_t number) {
    char text[8];
    (void)std::snprintf(text, sizeof text, "%04x", unsigned{number});
    return text;
}

std::string MacText(const std::array<std::uint8_t, 6>& mac) {
    char text[18];
    (void)std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", unsigned{mac[0]},
                        unsigned{mac[1]}, unsigned{mac[2]}, unsigned{mac[3]}, unsigned{mac[4]},
                        unsigned{mac[5]});
    return text;
}

bool HasMac(const std::string& interface, const UsbHostInterface& wanted) {
    constexpr std::array<std::uint8_t, 6> unknown{};
    return wanted.mac != unknown && Attribute(interface + "/address") == MacText(wanted.mac);
}

// `device` is the USB interface; the device that it belongs to is the folder above.
bool IsDevice(const std::string& interface, const UsbHostInterface& wanted) {
    const std::string device = interface + "/device/../";
    return Attribute(device + "idVendor") == Hexadecimal(wanted.vendor) &&
           Attribute(device + "idProduct") == Hexadecimal(wanted.product);
}

std::string Below(const std::string& folder, const std::string& name) {
    return folder + "/" + name;
}

// The address decides; firmware that tells a wrong one is seen, so the device is the second try.
std::string FindInterface(const std::string& root, const UsbHostInterface& wanted) {
    const std::vector<std::string> names = Interfaces(root);
    for (const auto matches : {HasMac, IsDevice}) {
        for (const std::string& name : names) {
            if (matches(Below(root, name), wanted)) return name;
        }
    }
    return {};
}

bool IsLinkLocal(const std::string& address) {
    in6_addr binary{};
    return inet_pton(AF_INET6, address.c_str(), &binary) == 1 && IN6_IS_ADDR_LINKLOCAL(&binary);
}

UsbLanLookup ReadTable(std::vector<UsbHostInterface>& interfaces, std::string& why) {
    const std::string path = Place("VARNEX_DMI_TABLE", "/sys/firmware/dmi/tables/DMI");
    std::string table;
    if (const int error = ReadFile(path, kLargestTable, table); error != 0) {
        why = "The firmware's table " + path +
              " cannot be read: " + std::generic_category().message(error);
        return UsbLanLookup::kNoTable;
    }
    const std::vector<std::uint8_t> bytes(table.begin(), table.end());
    bool whole = false;
    interfaces = ReadUsbHostInterfaces(bytes.data(), bytes.size(), whole);
    if (!interfaces.empty()) return UsbLanLookup::kFound;
    why = "The firmware's table " + path +
          (whole ? " describes no network interface to the BMC over USB" : " is broken");
    return whole ? UsbLanLookup::kNoneDescribed : UsbLanLookup::kNoTable;
}

std::optional<UsbLanNode> FindNode(const std::string& root, const UsbHostInterface& described) {
    UsbLanNode node{described.address, FindInterface(root, described)};
    if (node.interface.empty()) {
        Log(2, kLogSource, __LINE__).Stream()
            << "The USB network interface " << Hexadecimal(described.vendor) << ":"
            << Hexadecimal(described.product) << " to the BMC at " << described.address
            << " is not there";
        return std::nullopt;
    }
    if (IsLinkLocal(node.address)) node.address += "%" + node.interface;
    if (Attribute(Below(root, node.interface) + "/operstate") == "down") {
        Log(2, kLogSource, __LINE__).Stream()
            << "The USB network interface " << node.interface << " to the BMC at " << node.address
            << " is down";
    }
    return node;
}

UsbLanLookup LookUp(UsbLanNodeList& nodes, std::string& why) {
    std::vector<UsbHostInterface> described;
    const UsbLanLookup table = ReadTable(described, why);
    if (table != UsbLanLookup::kFound) return table;
    described.erase(std::remove_if(described.begin(), described.end(),
                                   [](const auto& one) { return one.address.empty(); }),
                    described.end());
    if (described.empty()) {
        why =
            "The firmware's table does not tell the address of the BMC behind the USB network interface";
        return UsbLanLookup::kNoneDescribed;
    }

    const std::string root = Place("VARNEX_NET_CLASS", "/sys/class/net");
    UsbLanNodeList found;
    for (const UsbHostInterface& one : described) {
        if (std::optional<UsbLanNode> node = FindNode(root, one)) found.push_back(*node);
    }
    if (found.empty()) {
        why = "This host has no USB network interface to its BMC in " + root;
        return UsbLanLookup::kNoInterface;
    }
    nodes = std::move(found);
    return UsbLanLookup::kFound;
}

}  // namespace

UsbLanCfg::UsbLanCfg() = default;
UsbLanCfg::~UsbLanCfg() = default;

UsbLanCfg& UsbLanCfg::GetInstance(UsbLanRestoreMode, bool) {
    static UsbLanCfg instance;
    return instance;
}

int UsbLanCfg::QueryUsbLanState(UsbLanNodeList& nodes, bool) {
    std::string why;
    const UsbLanLookup result = LookUp(nodes, why);
    if (result != UsbLanLookup::kFound) Log(1, kLogSource, __LINE__).Stream() << why;
    ipmi_watchers::UsbLanLookedUp({result, why});
    return static_cast<int>(result);
}
