// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "CapturedLog.h"
#include "IpmiBmc.h"
#include "IpmiClient.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Bytes = std::vector<std::uint8_t>;

const IPMICOMMAND kPoll{0x4D, {0x01}, 0x3A};

class IpmiClientInBand : public testing::Test {
protected:
    void DeviceIs(const std::string& what) { setenv("EMULATED_KCS", what.c_str(), 1); }
    void DeviceFails(int error) { DeviceIs("errno:" + std::to_string(error)); }

    CapturedLog log;
    Bytes response;
    std::uint8_t code = 0xCD;
};

TEST_F(IpmiClientInBand, RequestReachesTheBmcAndItsAnswerComesBack) {
    const IpmiBmc bmc("answers: {poll: [{data: \"00\"}, {code: 0xC1}, {data: \"\"}]}");
    DeviceIs(bmc.Kcs());
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), 0);
    EXPECT_EQ(client.send(kPoll, response, code), 0);
    EXPECT_EQ(response, Bytes{0x00});
    EXPECT_EQ(code, 0x00);
    EXPECT_EQ(client.send(kPoll, response, code), 0);
    EXPECT_EQ(code, 0xC1);
    EXPECT_EQ(client.send(kPoll, response, code), 0);
    EXPECT_THAT(response, IsEmpty());
    client.disconnect();
    EXPECT_EQ(client.send(kPoll, response, code), kIpmiNotConnected);

    EXPECT_THAT(
        bmc.Requests("\"interface\": \"kcs\", \"netfn\": 58, \"command\": 77, \"data\": \"01\""),
        SizeIs(3));
}

TEST_F(IpmiClientInBand, CanConnectAgainAfterADisconnect) {
    const IpmiBmc bmc;
    DeviceIs(bmc.Kcs());
    IpmiClient client(0);

    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(client.connect(), 0);
        EXPECT_EQ(client.send(kPoll, response, code), 0);
    }
}

TEST_F(IpmiClientInBand, NoDeviceSaysWhatLoadsOne) {
    DeviceFails(ENOENT);
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiNoDevice);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI through /dev/ipmi0: no such device; load the kernel modules ipmi_si and ipmi_devintf"));
}

TEST_F(IpmiClientInBand, DeviceWithoutHardwareBehindItCountsAsNone) {
    DeviceFails(ENXIO);
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiNoDevice);
}

TEST_F(IpmiClientInBand, NumberSelectsTheDevice) {
    const IpmiBmc bmc;
    DeviceIs(bmc.Kcs());
    IpmiClient client(3);

    EXPECT_EQ(client.connect(), kIpmiNoDevice);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI through /dev/ipmi3: no such device; load the kernel modules ipmi_si and ipmi_devintf"));
}

TEST_F(IpmiClientInBand, NoPermissionSaysSo) {
    DeviceFails(EACCES);
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiNoPermission);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            "1 platform/src/IpmiClient: IPMI through /dev/ipmi0: no permission; run as root or give this user access to the device"));
}

TEST_F(IpmiClientInBand, OtherErrorsOfTheDeviceAreShown) {
    DeviceFails(EBUSY);
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiFailed);

    EXPECT_THAT(
        log.Lines(),
        ElementsAre("1 platform/src/IpmiClient: IPMI through /dev/ipmi0: Device or resource busy"));
}

TEST_F(IpmiClientInBand, MachineWithoutTheDeviceSaysSo) {
    if (access("/dev/ipmi0", F_OK) == 0) GTEST_SKIP() << "this machine has /dev/ipmi0";
    DeviceIs("");
    IpmiClient client(0);

    EXPECT_EQ(client.connect(), kIpmiNoDevice);
}

}  // namespace
