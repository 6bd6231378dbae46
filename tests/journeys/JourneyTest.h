// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_JOURNEYTEST_H
#define VARNEX_TESTS_JOURNEYTEST_H

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "fakes/FakeClock.h"
#include "fakes/FakeLog.h"
#include "support/EmulatedBmc.h"
#include "varnex/KEMFfdc.h"

// A whole run through the public class: our platform with only Log and Clock played, an emulated
// BMC at the other end. Its log is compared with a text file beside the test, LEVEL SOURCE TEXT a
// line, its requests with another.
class JourneyTest : public testing::Test {
protected:
    JourneyTest();
    ~JourneyTest() override;

    // Starts the BMC and points `conn` at its Redfish service.
    void Start(const std::string& scenario, const std::vector<std::string>& arguments = {});

    // `text` as it stands in expected files: what differs from run to run has a name in braces.
    void Name(const std::string& text, const std::string& name);

    // Compares with <name>.log and <name>.requests.
    void ExpectLog(const std::string& name);
    void ExpectRequests(const std::string& name);

    // No line of the log holds `secret`.
    void ExpectNowhereInLog(const std::string& secret);

    // Both files hold the same bytes.
    static void ExpectSameBytes(const std::string& file, const std::string& other);

    fakes::FakeLog log;
    fakes::FakeClock clock;
    std::string folder;  // fresh, for the files of the run
    std::unique_ptr<EmulatedBmc> bmc;
    Varnex::VarnexConnection::ConnectionInfo conn;
    Varnex::KEMFfdcUploadingUri uri;

private:
    std::string Named(std::string text) const;
    void NameTokens();

    std::vector<std::pair<std::string, std::string>> m_names;
};

#endif
