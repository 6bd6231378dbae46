// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKEIPMI_H
#define VARNEX_TESTS_FAKEIPMI_H

#include <cstdint>
#include <string>
#include <vector>

#include "IpmiClient.h"
#include "UsbLanCfg.h"

namespace fakes {

// The ways to a BMC over IPMI, over the LAN and in band, as a script. The journal gets one entry
// for each step:
//
//   "lan HOST USER PASSWORD PORT SUITE"  "kcs NUMBER"   a client was made
//   "connect"  "disconnect"  "destroy"
//   "send 3A 49 01"                                     NetFn, command and data in hexadecimal
//   "account of node N"                                 the account was asked for in band
//   "usb lan instance MODE CONFIGURE"  "usb lan query REFRESH"
class FakeIpmi {
public:
    FakeIpmi();
    ~FakeIpmi();
    FakeIpmi(const FakeIpmi&) = delete;
    FakeIpmi& operator=(const FakeIpmi&) = delete;

    // The next connect() returns this; without it 0. Queued in order.
    void NextConnect(int result);

    // Answers to requests with this command, in order; the last repeats. A command without any
    // fails the test.
    void Answer(std::uint8_t command, std::uint8_t completionCode,
                const std::vector<std::uint8_t>& data);
    void SendFails(std::uint8_t command);

    // What the in-band account request gives; without it result 1.
    void AccountIs(const std::string& user, const std::string& password);

    // What the USB interface shows; without it result 1 and no node.
    void UsbLanIs(int result, const UsbLanNodeList& nodes);
};

}  // namespace fakes

#endif
