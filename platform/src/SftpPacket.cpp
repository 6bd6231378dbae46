// SPDX-License-Identifier: Apache-2.0
#include "SftpPacket.h"

#include <curl/curl.h>

#include "SftpFailure.h"

namespace {

constexpr std::uint32_t kHasSize = 1;
constexpr std::uint32_t kHasOwner = 2;
constexpr std::uint32_t kHasMode = 4;
constexpr std::uint32_t kHasTimes = 8;
constexpr std::uint32_t kHasMore = 0x80000000;

const char* StatusText(std::uint32_t status) {
    switch (status) {
        case sftp::kOk:
            return "No error";
        case sftp::kEof:
            return "End of file";
        case sftp::kNoSuchFile:
            return "No such file or directory";
        case sftp::kPermissionDenied:
            return "Permission denied";
        case 4:
            return "Operation failed";
        case 5:
            return "Bad message from SFTP server";
        case 8:
            return "Operation not supported by SFTP server";
        default:
            return "Unknown error";
    }
}

int NumberOf(std::uint32_t status) {
    if (status == sftp::kNoSuchFile) return CURLE_REMOTE_FILE_NOT_FOUND;
    return status == sftp::kPermissionDenied ? CURLE_REMOTE_ACCESS_DENIED : CURLE_SSH;
}

}  // namespace

SftpWriter& SftpWriter::Number(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        m_bytes += static_cast<char>(value >> shift & 0xFF);
    return *this;
}

SftpWriter& SftpWriter::Long(std::uint64_t value) {
    return Number(static_cast<std::uint32_t>(value >> 32))
        .Number(static_cast<std::uint32_t>(value & 0xFFFFFFFF));
}

SftpWriter& SftpWriter::Text(std::string_view text) {
    Number(static_cast<std::uint32_t>(text.size()));
    m_bytes += text;
    return *this;
}

std::string_view SftpReader::Take(std::size_t size) {
    if (size > m_rest.size()) throw SftpNonsense("a packet that ends in the middle");
    const std::string_view taken = m_rest.substr(0, size);
    m_rest.remove_prefix(size);
    return taken;
}

std::uint32_t SftpReader::Number() {
    std::uint32_t value = 0;
    for (const char c : Take(4)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

std::uint64_t SftpReader::Long() {
    const std::uint64_t high = Number();
    return high << 32 | Number();
}

std::string_view SftpReader::Text() { return Take(Number()); }

SftpAttributes SftpReader::Attributes() {
    SftpAttributes attributes;
    const std::uint32_t flags = Number();
    attributes.hasSize = (flags & kHasSize) != 0;
    if (attributes.hasSize) attributes.size = Long();
    if ((flags & kHasOwner) != 0) (void)Long();
    attributes.hasMode = (flags & kHasMode) != 0;
    if (attributes.hasMode) attributes.mode = Number();
    if ((flags & kHasTimes) != 0) (void)Long();
    if ((flags & kHasMore) == 0) return attributes;
    for (std::uint32_t left = Number(); left > 0; --left) {
        (void)Text();
        (void)Text();
    }
    return attributes;
}

std::size_t ReadSftpPacket(std::string_view bytes, bool hasNumber, SftpPacket& packet) {
    constexpr std::size_t kHead = 4;
    if (bytes.size() < kHead) return 0;
    const std::size_t size = kHead + SftpReader(bytes).Number();
    const std::size_t least = hasNumber ? kHead + 5 : kHead + 1;
    if (size < least || size > sftp::kLongestPacket) throw SftpNonsense("no SFTP packets");
    if (bytes.size() < size) return 0;
    packet.type = static_cast<unsigned char>(bytes[kHead]);
    SftpReader rest(bytes.substr(kHead + 1, size - kHead - 1));
    packet.number = hasNumber ? rest.Number() : 0;
    packet.body = bytes.substr(least, size - least);
    return size;
}

SftpFailure SftpStatusFailure(const SftpPacket& packet, const std::string& what) {
    if (packet.type != sftp::kStatus) return SftpNonsense("an answer to another question");
    const std::uint32_t status = SftpReader(packet.body).Number();
    return {NumberOf(status), what + ": " + StatusText(status)};
}

SftpFailure SftpNonsense(const std::string& what) {
    return {CURLE_SSH, "The SFTP server sends " + what, true};
}
