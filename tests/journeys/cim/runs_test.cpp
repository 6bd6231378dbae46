// SPDX-License-Identifier: Apache-2.0
#include <boost/filesystem/operations.hpp>

#include "journeys/JourneyTest.h"
#include "support/Peer.h"

using testing::IsEmpty;
using Varnex::KEMFfdc;

namespace {

class CimJourney : public JourneyTest {
protected:
    CimJourney() : store({"/usr/bin/python3", VARNEX_SFTP_STORE, folder}) {
        const std::string port = std::to_string(std::stoi(store.Line()));
        Name(port, "{STORE}");
        uri = {"sftp://127.0.0.1:" + port + "/", "store", "store-secret"};
    }

    // The server over TLS, at the port that the scenario's CIM service took.
    void StartCim(const std::string& scenario = "") {
        Start(scenario);
        conn.port = static_cast<std::uint16_t>(bmc->Number("/cim/https_port"));
        conn.connection_type = 1;
        conn.connection_case = 2;
        Name(std::to_string(conn.port), "{PORT}");
    }

    std::size_t FilesInStore() const {
        std::size_t count = 0;
        for (const auto& entry : boost::filesystem::directory_iterator(folder)) {
            EXPECT_GT(boost::filesystem::file_size(entry.path()), 0U);
            ++count;
        }
        return count;
    }

    Peer store;
};

}  // namespace

TEST_F(CimJourney, TheBmcUploadsAnArchiveForEachObject) {
    StartCim();
    KEMFfdc ffdc(conn, uri, true);
    EXPECT_EQ(0, ffdc.Connect());

    EXPECT_EQ(0, ffdc.Apply());

    ffdc.Disconnect();
    ExpectLog("cim/export");
    ExpectRequests("cim/export");
    EXPECT_GT(FilesInStore(), 0U);
    EXPECT_THAT(clock.Slept(), IsEmpty());
    ExpectNowhereInLog("secret");
}

TEST_F(CimJourney, PlainConnectionToANodesOwnNamespace) {
    StartCim("cim:\n  namespaces: [root/cimv2, zor/kem2/cimv2]\n");
    conn.port = static_cast<std::uint16_t>(bmc->Number("/cim/port"));
    conn.connection_type = 0;
    conn.connection_case = 3;
    conn.node = 2;
    KEMFfdc ffdc(conn, uri, false);
    EXPECT_EQ(0, ffdc.Connect());

    EXPECT_EQ(0, ffdc.Apply());

    EXPECT_GT(FilesInStore(), 0U);
}

TEST_F(CimJourney, WrongPasswordShowsAtTheFirstEnumerationAs1WithoutReconnecting) {
    StartCim();
    conn.password = "wrong";
    KEMFfdc ffdc(conn, uri, true);
    EXPECT_EQ(0, ffdc.Connect());

    EXPECT_EQ(1, ffdc.Apply());

    ExpectLog("cim/wrong_password");
    EXPECT_EQ(0U, FilesInStore());
}

TEST_F(CimJourney, RefusedPortCostsThreeAttemptsAnd30SecondsOfSleep) {
    StartCim();
    conn.port = static_cast<std::uint16_t>(FreePort());
    KEMFfdc ffdc(conn, uri, true);

    EXPECT_EQ(1, ffdc.Connect());

    EXPECT_EQ(std::chrono::seconds(30), clock.SleptInAll());
    EXPECT_EQ("Failed to connect remote cimserver with the reason: Cannot connect to 127.0.0.1:" +
                  std::to_string(conn.port) + ". Connection failed.",
              log.Lines().back().text);
}
