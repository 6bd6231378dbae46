// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Preflight.h"

#include <cstdio>
#include <list>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "IpmiClient.h"
#include "KEMAccount.h"
#include "LogSink.h"
#include "Transfer.h"
#include "Uri.h"
#include "cli/ipmi/CompletionCodes.h"
#include "cli/ipmi/Options.h"
#include "file_client.h"

namespace Kemffdc::Ipmi {
namespace {

constexpr std::uint8_t kNetFnApp = 0x06;
constexpr std::uint8_t kGetDeviceId = 0x01;
constexpr std::size_t kShortestDeviceId = 11;

constexpr char kNothing[] = "no answer";

constexpr std::uint16_t kSftpPort = 115;
constexpr int kAccountOverSession = 2;  // the mode that has no account before the BMC has gathered

constexpr char kFolder[] = "/download/ffdc/kem_dump/";  // of the modes that have one

struct Account {
    std::string user;
    Secret password;
};

// In the library's order.
std::vector<Account> AccountsOf(const Options& options, const Secret& password) {
    std::vector<Account> accounts;
    if (Own(options).mode == kAccountOverSession) return accounts;
    constexpr std::uint16_t kAnyNode = 0;  // as the library's connection is given
    XM_WIDGETS::KEMAccount inBand;
    if (XM_WIDGETS::GetKEMAccountViaKCS(inBand, kAnyNode) == 0) {
        Varnex::HideInLog(inBand.password, inBand.user);
        accounts.push_back({inBand.user, Secret(inBand.password)});
    }
    if (!options.user.empty()) accounts.push_back({options.user, Secret(password.Reveal())});
    return accounts;
}

// A folder that is not there, or may not be listed, yet: the login went well.
FileService Judged(const std::error_code& error) {
    using Varnex::TransferFault;
    if (!error || error == TransferFault::kNotThere || error == TransferFault::kNotPermitted) {
        return {};
    }
    FileService found;
    found.state = error == TransferFault::kUntrusted      ? FileService::State::kUntrusted
                  : error == TransferFault::kLoginRefused ? FileService::State::kNoLogin
                                                          : FileService::State::kUnusable;
    found.reason = error.message();
    if (!found.reason.empty() && found.reason.back() == '.') found.reason.pop_back();
    found.reason += " (" + std::to_string(error.value()) + ")";
    return found;
}

// Without a user the platform connects, judges the host key, and ends there.
FileService ListAs(const std::string& host, const std::string& user, const std::string& password) {
    try {
        std::list<std::string> names;
        return Judged(file_client::ls_directory(
            Uri("sftp", host, kSftpPort, user, password, kFolder), names));
    } catch (const std::invalid_argument& failure) {
        return {FileService::State::kUnusable, failure.what()};
    }
}

}  // namespace

bool ReadDeviceId(const std::vector<std::uint8_t>& data, BmcFacts& facts) {
    if (data.size() < kShortestDeviceId) return false;
    char text[32];
    // The minor firmware revision and the IPMI version are binary coded decimal.
    (void)std::snprintf(text, sizeof text, "%u.%02x", data[2] & 0x7FU, unsigned{data[3]});
    facts.firmware = text;
    (void)std::snprintf(text, sizeof text, "IPMI %u.%u", data[4] & 0x0FU, data[4] >> 4U);
    facts.serviceVersion = text;
    const unsigned manufacturer =
        unsigned{data[6]} | unsigned{data[7]} << 8U | (data[8] & 0x0FU) << 16U;
    facts.vendor = "enterprise number " + std::to_string(manufacturer);
    facts.product =
        "product number " + std::to_string(unsigned{data[9]} | unsigned{data[10]} << 8U);
    return true;
}

std::string AskDeviceId(const Options& options, const Secret& password, BmcFacts& facts) {
    const auto client =
        !Own(options).inBand
            ? std::make_unique<IpmiClient>(options.host, options.user, password.Reveal(),
                                           std::to_string(options.port), Own(options).cipherSuite)
            : std::make_unique<IpmiClient>(0);
    std::vector<std::uint8_t> data;
    std::uint8_t completionCode = 0;
    if (client->connect() != 0) return kNothing;
    const int sent = client->send({kGetDeviceId, {}, kNetFnApp}, data, completionCode);
    client->disconnect();
    if (sent != 0) return kNothing;
    if (completionCode != 0) return WordsFor(completionCode);
    ReadDeviceId(data, facts);
    return "";
}

FileService LookAtFileService(const std::string& host, const Options& options,
                              const Secret& password) {
    const std::vector<Account> accounts = AccountsOf(options, password);
    if (accounts.empty()) {
        const FileService found = ListAs(host, "", "");
        return found.state == FileService::State::kNoLogin ? FileService() : found;
    }
    FileService found;
    for (const Account& account : accounts) {
        found = ListAs(host, account.user, account.password.Reveal());
        if (found.state == FileService::State::kReady) break;
    }
    return found;
}

}  // namespace Kemffdc::Ipmi
