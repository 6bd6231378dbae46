// SPDX-License-Identifier: Apache-2.0
//
// Any bytes of an SFTP server: packets, and in them names, attributes and refusals.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "LogSink.h"
#include "SftpFailure.h"
#include "SftpNames.h"
#include "SftpPacket.h"
#include "Support.h"

namespace {

void Read(const SftpPacket& packet, SftpNames& names) {
    try {
        if (packet.type == sftp::kName) names.Add(packet.body);
        if (packet.type == sftp::kAttributes) (void)SftpReader(packet.body).Attributes();
        if (packet.type == sftp::kData)
            Require(SftpReader(packet.body).Text().size() < packet.body.size());
        Require(SftpStatusFailure(packet, "What").number != 0);
    } catch (const SftpFailure& failure) {
        Require(failure.number != 0 && !failure.text.empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Varnex::SetLogLevel(0);
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    SftpNames names;
    try {
        SftpPacket packet;
        for (bool numbered = false;; numbered = true) {
            const std::size_t taken = ReadSftpPacket(rest, numbered, packet);
            if (taken == 0) break;
            Require(taken <= rest.size());
            Read(packet, names);
            rest.remove_prefix(taken);
        }
    } catch (const SftpFailure&) {
    }
    for (const std::string& name : names.All()) {
        Require(!name.empty() && name != "." && name != ".." &&
                name.find('/') == std::string::npos && name.find('\n') == std::string::npos &&
                name.find('\0') == std::string::npos);
    }
    return 0;
}
