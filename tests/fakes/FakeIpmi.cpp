// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeIpmi.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <map>
#include <memory>

#include "Ipmanip.h"
#include "KEMAccount.h"
#include "fakes/Journal.h"

namespace {

struct Reply {
    int result;
    std::uint8_t completionCode;
    std::vector<std::uint8_t> data;
};

struct Bmc {
    std::deque<int> connectResults;
    std::map<std::uint8_t, std::deque<Reply>> replies;
    int accountResult = 1;
    XM_WIDGETS::KEMAccount account;
    int usbLanResult = 1;
    UsbLanNodeList usbLanNodes;
};

std::unique_ptr<Bmc> g_bmc;

std::string Hex(std::uint8_t byte) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", byte);
    return text;
}

}  // namespace

struct IpmiClient::Impl {};

IpmiClient::IpmiClient(const std::string& host, const std::string& userid,
                       const std::string& password, const std::string& portText,
                       std::uint16_t cipherSuite) {
    fakes::Journal::Append("lan " + host + " " + userid + " " + password + " " + portText + " " +
                           std::to_string(cipherSuite));
}

IpmiClient::IpmiClient(int interfaceNumber) {
    fakes::Journal::Append("kcs " + std::to_string(interfaceNumber));
}

IpmiClient::~IpmiClient() { fakes::Journal::Append("destroy"); }

int IpmiClient::connect() {
    fakes::Journal::Append("connect");
    if (g_bmc->connectResults.empty()) return 0;
    const int result = g_bmc->connectResults.front();
    g_bmc->connectResults.pop_front();
    return result;
}

void IpmiClient::disconnect() { fakes::Journal::Append("disconnect"); }

int IpmiClient::send(const IPMICOMMAND& command, std::vector<std::uint8_t>& response,
                     std::uint8_t& completionCode) {
    std::string entry = "send " + Hex(command.netfn) + " " + Hex(command.command);
    for (const std::uint8_t byte : command.data) entry += " " + Hex(byte);
    fakes::Journal::Append(entry);

    std::deque<Reply>& replies = g_bmc->replies[command.command];
    if (replies.empty()) {
        ADD_FAILURE() << "no answer for " << entry;
        return 1;
    }
    const Reply reply = replies.front();
    if (replies.size() > 1) replies.pop_front();
    if (reply.result == 0) {
        response = reply.data;
        completionCode = reply.completionCode;
    }
    return reply.result;
}

int XM_WIDGETS::GetKEMAccountViaKCS(KEMAccount& account, std::uint16_t node) {
    fakes::Journal::Append("account of node " + std::to_string(node));
    if (g_bmc->accountResult == 0) account = g_bmc->account;
    return g_bmc->accountResult;
}

struct UsbLanCfg::Impl {};
UsbLanCfg::UsbLanCfg() = default;
UsbLanCfg::~UsbLanCfg() = default;

UsbLanCfg& UsbLanCfg::GetInstance(UsbLanRestoreMode restoreMode, bool configure) {
    fakes::Journal::Append("usb lan instance " + std::to_string(restoreMode) +
                           (configure ? " true" : " false"));
    static UsbLanCfg instance;
    return instance;
}

int UsbLanCfg::QueryUsbLanState(UsbLanNodeList& nodes, bool refresh) {
    fakes::Journal::Append(std::string("usb lan query ") + (refresh ? "true" : "false"));
    nodes = g_bmc->usbLanNodes;
    return g_bmc->usbLanResult;
}

bool Ipmanip::is_ipv6(const std::string& host) { return host.find(':') != std::string::npos; }

namespace fakes {

FakeIpmi::FakeIpmi() {
    g_bmc = std::make_unique<Bmc>();
    Journal::Take();
}

FakeIpmi::~FakeIpmi() { g_bmc.reset(); }

void FakeIpmi::NextConnect(int result) { g_bmc->connectResults.push_back(result); }

void FakeIpmi::Answer(std::uint8_t command, std::uint8_t completionCode,
                      const std::vector<std::uint8_t>& data) {
    g_bmc->replies[command].push_back({0, completionCode, data});
}

void FakeIpmi::SendFails(std::uint8_t command) { g_bmc->replies[command].push_back({1, 0, {}}); }

void FakeIpmi::AccountIs(const std::string& user, const std::string& password) {
    g_bmc->accountResult = 0;
    g_bmc->account = {user, password};
}

void FakeIpmi::UsbLanIs(int result, const UsbLanNodeList& nodes) {
    g_bmc->usbLanResult = result;
    g_bmc->usbLanNodes = nodes;
}

}  // namespace fakes
