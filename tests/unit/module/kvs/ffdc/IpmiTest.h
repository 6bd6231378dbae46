// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_IPMITEST_H
#define VARNEX_TESTS_IPMITEST_H

#include <gmock/gmock.h>
#include <stdlib.h>

#include <boost/filesystem/operations.hpp>
#include <memory>
#include <string>
#include <vector>

#include "fakes/FakeClock.h"
#include "fakes/FakeFiles.h"
#include "fakes/FakeIpmi.h"
#include "fakes/FakeLog.h"
#include "fakes/Journal.h"
#include "module/kvs/ffdc/ffdcipmi_impl.h"

// An IPMI channel between a scripted BMC and a scripted platform. It is 2026-03-07 08:09:05, and
// the output path is a fresh folder.
class IpmiTest : public testing::Test {
protected:
    static constexpr char kChannel[] = "src/module/kvs/ffdc/ffdcipmi_impl";
    static constexpr std::uint8_t kCollect = 0x49;
    static constexpr std::uint8_t kPoll = 0x4D;
    static constexpr std::uint8_t kCredential = 0x79;

    IpmiTest() {
        conn.host = "10.0.0.5";
        conn.userid = "admin";
        conn.password = "secret";
        conn.port = 623;
        conn.node = 2;
        conn.ciphersuite = 17;
        conn.connection_case = 1;
        std::tm now{};
        now.tm_year = 126;
        now.tm_mon = 2;
        now.tm_mday = 7;
        now.tm_hour = 8;
        now.tm_min = 9;
        now.tm_sec = 5;
        clock.SetLocalTime(now);
        char name[] = "/tmp/varnex-ipmi-XXXXXX";
        folder = mkdtemp(name);
        outputPath = folder + "/";
        runFolder = outputPath + "KEMFFDC20260307080905";
    }

    ~IpmiTest() override {
        made.reset();
        boost::filesystem::remove_all(folder);
    }

    // A channel as it is when it was made. Log and journal start afterwards.
    Varnex::KEMFfdcIpmiImpl& Channel(int mode) {
        made = std::make_unique<Varnex::KEMFfdcIpmiImpl>(conn, outputPath, mode);
        log.Clear();
        fakes::Journal::Take();
        return *made;
    }

    Varnex::KEMFfdcIpmiImpl& ConnectedChannel(int mode) {
        Varnex::KEMFfdcIpmiImpl& channel = Channel(mode);
        EXPECT_EQ(0, channel.Connect());
        log.Clear();
        fakes::Journal::Take();
        return channel;
    }

    // A BMC that has gathered by the first poll, with an account for either way.
    void BmcIsReady() {
        bmc.Answer(kCollect, 0, {});
        bmc.Answer(kPoll, 0, {1});
        bmc.Answer(kCredential, 0, {4, 'r', 'o', 'o', 't', 3, 'a', 'b', 'c'});
        bmc.AccountIs("inband", "xyz");
    }

    bool Logged(const std::string& text) const {
        for (const fakes::LogLine& line : log.Lines()) {
            if (line.text == text) return true;
        }
        return false;
    }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeIpmi bmc;
    fakes::FakeFiles files;
    Varnex::VarnexConnection::ConnectionInfo conn;
    std::string folder;
    std::string outputPath;
    std::string runFolder;
    std::unique_ptr<Varnex::KEMFfdcIpmiImpl> made;
};

#endif
