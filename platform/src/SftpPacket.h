// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPPACKET_H
#define VARNEX_PLATFORM_SRC_SFTPPACKET_H

#include <cstdint>
#include <string>
#include <string_view>

// The packets of SFTP, version 3 (draft-ietf-secsh-filexfer-02).
namespace sftp {

enum Type : std::uint8_t {
    kInit = 1,
    kVersion = 2,
    kOpen = 3,
    kClose = 4,
    kRead = 5,
    kFstat = 8,
    kOpenDir = 11,
    kReadDir = 12,
    kStat = 17,
    kStatus = 101,
    kHandle = 102,
    kData = 103,
    kName = 104,
    kAttributes = 105,
    kExtended = 200,
    kExtendedReply = 201,
};

enum Status : std::uint32_t { kOk = 0, kEof = 1, kNoSuchFile = 2, kPermissionDenied = 3 };

constexpr std::size_t kLongestPacket = 256UL * 1024 + 1024;  // bytes, with its head

}  // namespace sftp

struct SftpPacket {
    std::uint8_t type = 0;
    std::uint32_t number = 0;  // of the request that it answers
    std::string_view body;
};

// Writes the fields of a packet.
class SftpWriter {
public:
    SftpWriter& Number(std::uint32_t value);
    SftpWriter& Long(std::uint64_t value);
    SftpWriter& Text(std::string_view text);
    const std::string& Bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

struct SftpAttributes {
    bool hasSize = false;
    std::uint64_t size = 0;
    bool hasMode = false;
    std::uint32_t mode = 0;
};

// Reads the fields of a packet; throws SftpFailure where it ends too early.
class SftpReader {
public:
    explicit SftpReader(std::string_view bytes) : m_rest(bytes) {}

    std::uint32_t Number();
    std::uint64_t Long();
    std::string_view Text();
    SftpAttributes Attributes();
    bool AtEnd() const { return m_rest.empty(); }

private:
    std::string_view Take(std::size_t size);
    std::string_view m_rest;
};

// One packet at the beginning of `bytes`: its size with its head, 0 where it is not whole yet.
// Throws SftpFailure for one that is too long or too short. `hasNumber`: all but the greeting have
// one.
std::size_t ReadSftpPacket(std::string_view bytes, bool hasNumber, SftpPacket& packet);

// What to throw for a status: what was tried, and why it did not go.
struct SftpFailure SftpStatusFailure(const SftpPacket& packet, const std::string& what);

// What to throw for a packet that answers nothing that was asked.
struct SftpFailure SftpNonsense(const std::string& what);

#endif
