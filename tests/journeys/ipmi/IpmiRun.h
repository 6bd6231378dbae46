// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_IPMI_RUNS_IPMIRUN_H
#define VARNEX_TESTS_IPMI_RUNS_IPMIRUN_H

#include <gmock/gmock.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fakes/FakeClock.h"
#include "platform-ipmi/CapturedLog.h"
#include "support/EmulatedBmc.h"
#include "varnex/KEMFfdc.h"

// Whole runs of the IPMI channel through the public class: the libraries as hosts load them, with
// only the Clock played; emulated BMCs with IPMI over UDP and SFTP on port 115. The host's own
// device is the emulated KCS interface of a BMC.
class IpmiRun : public testing::Test {
protected:
    IpmiRun();
    ~IpmiRun() override;

    // A BMC that hands out the account ffdc, "Gather-17" after three polls. `sftp`: the members of
    // that section, flow style.
    std::unique_ptr<EmulatedBmc> StartBmc(const std::string& sftp = "{}",
                                          const std::string& address = "127.0.0.1");

    // From here on /dev/ipmi0 is that BMC's.
    static void PutInto(const EmulatedBmc& bmc);

    static Varnex::VarnexConnection::ConnectionInfo OverLan(const EmulatedBmc& bmc,
                                                            std::uint16_t cipherSuite = 17);

    // A fresh folder for the runs of one object, with its separator.
    std::string OutputPath();

    // Connects, applies, disconnects. The result is Apply's, or -100 where Connect failed.
    struct Outcome {
        int result;
        std::string path;
    };
    static Outcome Run(const Varnex::VarnexConnection::ConnectionInfo& conn,
                       const std::string& outputPath, int mode);

    // Lines of the library's own sources of level 1 and 2; those of the platform.
    std::vector<std::string> Complaints() const;
    std::vector<std::string> PlatformComplaints() const;

    fakes::FakeClock clock;
    CapturedLog log;
    std::string folder;  // of this test, removed at the end
};

// Names and contents of the files in a folder; those of a folder in it are "a folder".
using Files = std::map<std::string, std::string>;
Files FilesIn(const std::string& folder);
std::string ContentOf(const std::string& file);

// What the BMC holds in /download/ffdc/ or /download/ffdc/kem_dump/, of names with that ending.
Files FilesOf(const EmulatedBmc& bmc, const std::string& remoteFolder,
              const std::string& ending = "");

// The BMC's record: "USER SUITE" per opened session, "login USER yes|no", "list PATH", "open PATH".
std::vector<std::string> SessionsOf(const EmulatedBmc& bmc);
std::vector<std::string> SftpRequestsOf(const EmulatedBmc& bmc);

#endif
