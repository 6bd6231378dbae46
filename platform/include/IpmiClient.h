// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_IPMICLIENT_H
#define VARNEX_PLATFORM_IPMICLIENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// One IPMI request to the BMC itself (LUN 0), as IPMI v2.0 section 5 names its parts.
struct IPMICOMMAND {
    std::uint8_t command;
    std::vector<std::uint8_t> data;
    std::uint8_t netfn;  // even: a request
};

// A way to a BMC. An implementer guarantees:
//   - every operation returns 0 for success and something else for failure, and for each failure
//     one level-1 record says why, in words an operator can act upon, without the password;
//   - a dead BMC costs half a minute, never minutes; nothing else blocks;
//   - objects share nothing that is visible: any number of threads, each with its own object;
//   - connect() on a connected object starts afresh; disconnect() may be called at any time;
//   - the destructor ends what is still open.
// One object belongs to one thread at a time.
class IpmiClientInterface {
public:
    virtual ~IpmiClientInterface() = default;

    virtual int connect() = 0;
    virtual void disconnect() = 0;

    // Sends `command` and waits for the answer. 0: the BMC answered, with `completionCode` and the
    // data that follow it in `response` (any completion code, and data may be empty); otherwise
    // both are left as they were. A session that was lost stays lost until the next connect().
    virtual int send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                     std::uint8_t& completionCode) = 0;
};

// What our implementation returns; a host's own may return any other number for a failure.
enum IpmiResult : int {
    kIpmiDone = 0,
    kIpmiNoModule = 1,     // libvarnexplatform-ipmi.so is missing or of another version
    kIpmiBadArgument = 2,  // port, cipher suite, host, user or password cannot be used
    kIpmiUnknownHost = 3,  // no address for the name
    kIpmiRefused = 4,      // the host is there and nothing listens on that UDP port
    kIpmiNoAnswer = 5,     // silence for the whole session time-out
    kIpmiWrongPassword = 6,
    kIpmiUnknownUser = 7,
    kIpmiNoCipherSuite = 8,  // the BMC does not offer the cipher suite
    kIpmiNoPrivilege = 9,    // the user may not act as administrator
    kIpmiNoDevice = 10,      // no IPMI device of that number
    kIpmiNoPermission = 11,  // the device may not be opened by this process's user
    kIpmiNotConnected = 12,  // send() before connect(), after disconnect() or a lost session
    kIpmiFailed = 13         // anything else; the record has the library's own words
};

// IPMI over LAN (RMCP+, IPMI v2.0 section 13) as administrator, or in band over the KCS interface
// through the kernel's device. Our implementation loads libvarnexplatform-ipmi.so at the first
// connect(), from the folder varnex-ffdc/1 beside the platform library and from nowhere else.
//
// How long it blocks: LAN: up to the session time-out, for each address of the host and for each
// request, from the last sign of life on; the integer IPMI_SESSION_TIMEOUT of GlobalConfig.h,
// seconds, 1 to 300, default 30, read at every connect(). A refused port is noticed at once. In
// band: as long as the kernel's driver takes to answer for a BMC that does not (completion code
// 0xC3, some seconds), at the most a minute.
//
// A request whose answer is late, or lost, is sent again: after 1.5 s twice, after 3 s twice, and
// so on, whatever the time-out is, so the BMC may execute it more than once. The answer to any of
// its copies is taken, an answer that belongs to another request is not.
class IpmiClient : public IpmiClientInterface {
public:
    // `host`: a name, an IPv4 address, or an IPv6 address, bare or in brackets, with or without a
    // scope (%eth0). `portText`: a UDP port in decimal; empty or "0" is 623. `cipherSuite`: 0 to
    // 3, 6 to 8, 11, 12, 15 to 17. Nothing is checked before connect().
    IpmiClient(const std::string& host, const std::string& userid, const std::string& password,
               const std::string& portText, std::uint16_t cipherSuite);

    // /dev/ipmi<interfaceNumber>, or the same number below /dev/ipmi/ or /dev/ipmidev/.
    explicit IpmiClient(int interfaceNumber);

    ~IpmiClient() override;

    IpmiClient(const IpmiClient&) = delete;
    IpmiClient& operator=(const IpmiClient&) = delete;

    int connect() override;
    void disconnect() override;
    int send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
             std::uint8_t& completionCode) override;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
