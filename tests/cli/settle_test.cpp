// SPDX-License-Identifier: Apache-2.0
#include "cli/Settle.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "cli/cim/Options.h"
#include "cli/command_line.h"
#include "cli/ipmi/Options.h"
#include "cli/redfish/Options.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Options;
using Kemffdc::Origin;
using Kemffdc::Parsed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A user with a configuration file, on a machine with another one.
class Settle : public testing::Test {
protected:
    Settle() {
        m_surroundings.userFile = m_folder / "user.conf";
        m_surroundings.systemFile = m_folder / "system.conf";
        m_surroundings.home = "/home/op";
        m_surroundings.variable = [this](const char* name) -> const char* {
            const auto found = m_variables.find(name);
            return found == m_variables.end() ? nullptr : found->second.c_str();
        };
    }

    void User(const std::string& text) { m_folder.Write("user.conf", text); }
    void System(const std::string& text) { m_folder.Write("system.conf", text); }

    Parsed Parse(const std::vector<std::string>& arguments) const {
        return ::Parse(arguments, m_surroundings);
    }
    Options Accepted(const std::vector<std::string>& arguments) const {
        return ::Accepted(arguments, m_surroundings);
    }

    TempFolder m_folder;
    std::map<std::string, std::string> m_variables;
    Kemffdc::Surroundings m_surroundings;
};

TEST_F(Settle, TheLineComesBeforeTheEnvironmentTheUserTheMachineAndTheDefault) {
    System("defaults: {via: redfish, ca_file: /system, user: system, tries: 7, port: 1}\n");
    User("defaults: {ca_file: /user, user: user, interval: 9, port: 2}\n");
    m_variables["VARNEX_CA_FILE"] = "/environment";

    const Options options = Accepted({"collect", "bmc", "--port", "3"});
    EXPECT_EQ(options.port, 3) << "line before all";
    EXPECT_EQ(options.caFile, "/environment") << "environment before files";
    EXPECT_EQ(options.user, "user") << "user before machine";
    EXPECT_EQ(options.via, "redfish") << "machine alone";
    EXPECT_EQ(Kemffdc::Redfish::Own(options).tries, 7);
    EXPECT_EQ(Kemffdc::Redfish::Own(options).interval, 9);
    EXPECT_EQ(options.deadline, 7200) << "nobody";
    EXPECT_EQ(Accepted({"collect", "bmc", "--ca-file", "/line"}).caFile, "/line");
}

TEST_F(Settle, TheUsersDefaultsComeBeforeTheMachinesSections) {
    System("hosts: {bmc: {user: machine}}\n");
    User("defaults: {via: redfish, user: mine}\n");
    EXPECT_EQ(Accepted({"check", "bmc"}).user, "mine");
}

TEST_F(Settle, SaysWhoHasSetWhat) {
    User("defaults:\n  via: redfish\nhosts:\n  \"bm*\":\n    user: lab\n");
    m_variables["VARNEX_CA_FILE"] = "/ca";
    const Options options = Accepted({"check", "bmc", "--port", "8443"});

    const auto& settings = options.settings;
    EXPECT_EQ(settings.at("--port").origin, Origin::kCommandLine);
    EXPECT_EQ(settings.at("--ca-file").origin, Origin::kEnvironment);
    EXPECT_EQ(settings.at("--ca-file").place, "VARNEX_CA_FILE");
    EXPECT_EQ(settings.at("--user").origin, Origin::kUserFile);
    EXPECT_EQ(settings.at("--user").place, m_surroundings.userFile + ":5");
    EXPECT_EQ(settings.at("--user").section, "bm*");
    EXPECT_EQ(settings.at("--via").section, "defaults");
    EXPECT_EQ(settings.count("--deadline"), 0U);
    ASSERT_EQ(options.configFiles.size(), 2U);
    EXPECT_TRUE(options.configFiles[0].exists);
    EXPECT_FALSE(options.configFiles[1].exists);
}

TEST_F(Settle, WhatDoesNotFitTheChannelOrTheCommandIsIgnoredFromFiles) {
    User("defaults: {cipher_suite: 3, node: 2, tries: 9, plain: true, export: {user: up}}\n");
    const Options ipmi = Accepted({"check", "--via", "ipmi", "bmc"});
    EXPECT_EQ(Kemffdc::Ipmi::Own(ipmi).cipherSuite, 3);
    EXPECT_EQ(Kemffdc::Cim::Own(ipmi).node, std::nullopt);
    EXPECT_EQ(ipmi.ignored.count("--node"), 1U);
    EXPECT_EQ(ipmi.settings.count("--node"), 0U);
    EXPECT_EQ(ipmi.port, 623);
    EXPECT_EQ(Kemffdc::Redfish::Own(Accepted({"check", "--via", "redfish", "bmc"})).tries, 120)
        << "of collect alone";
    EXPECT_EQ(Accepted({"check", "--via", "cim", "bmc"}).port, 5988);
    EXPECT_THAT(Parse({"check", "--via", "ipmi", "bmc", "--node", "1"}).err,
                HasSubstr("--node is an option of --via cim."));
}

TEST_F(Settle, TheChannelMayComeFromAFileAndIsCheckedThere) {
    User("hosts: {a: {via: ipmi}, b: {via: redfish}}\n");
    EXPECT_EQ(Accepted({"check", "a"}).via, "ipmi");
    EXPECT_EQ(Accepted({"check", "b"}).port, 443);
    EXPECT_EQ(Accepted({"check", "b", "--via", "ipmi"}).port, 623);
    EXPECT_EQ(Accepted({"check", "c"}).via, "auto");

    User("hosts:\n  a:\n    via: pigeon\n");
    EXPECT_EQ(Parse({"check", "other", "--via", "ipmi"}).err,
              "kemffdc: " + m_surroundings.userFile +
                  ":3: hosts.\"a\".via: \"pigeon\" is none of auto, redfish, cim, ipmi and kcs.\n");
}

TEST_F(Settle, AHostIsLookedForAsItsNameOrAddressIs) {
    User("defaults: {via: redfish}\nhosts: {\"fe80::*\": {user: six}, \"*\": {interval: 1}}\n");
    EXPECT_EQ(Accepted({"check", "[FE80::1%eth0]"}).user, "six");
    EXPECT_EQ(Accepted({"check", "bmc"}).user, "admin");
}

TEST_F(Settle, APasswordCountsWhereItIsSaidLast) {
    System("defaults: {via: redfish, password_file: /machine}\n");
    User("hosts:\n  a: {password_command: [pass, show, \"{host}\"]}\n  b: {password_file: ~/b}\n");
    const Options a = Accepted({"check", "a"});
    EXPECT_THAT(a.passwordCommand, ElementsAre("pass", "show", "{host}"));
    EXPECT_EQ(a.passwordFile, "");
    EXPECT_EQ(Accepted({"check", "b"}).passwordFile, "/home/op/b");
    EXPECT_EQ(Accepted({"check", "c"}).passwordFile, "/machine");

    const Options line = Accepted({"check", "a", "--password-file", "-"});
    EXPECT_EQ(line.passwordFile, "-");
    EXPECT_THAT(line.passwordCommand, IsEmpty());

    m_variables["KEMFFDC_PASSWORD"] = "hunter2";
    for (const char* host : {"a", "b", "c"}) {
        const Options options = Accepted({"check", host});
        EXPECT_THAT(options.passwordCommand, IsEmpty()) << host;
        EXPECT_EQ(options.passwordFile, "") << host;
        EXPECT_EQ(options.settings.at("--password-file").place, "KEMFFDC_PASSWORD");
    }
    EXPECT_EQ(Accepted({"check", "a", "--password-file", "/line"}).passwordFile, "/line");
}

TEST_F(Settle, AFileStoreFromAFileYieldsToAnOutputFolderOnTheLine) {
    User(
        "defaults:\n  via: redfish\n"
        "  export: {uri: \"sftp://s/in\", user: up, password_command: [pass]}\n");
    const Options sent = Accepted({"collect", "bmc"});
    EXPECT_EQ(sent.exportUri, "sftp://s/in");
    EXPECT_THAT(sent.exportPasswordCommand, ElementsAre("pass"));
    const Options kept = Accepted({"collect", "bmc", "--output", "/x"});
    EXPECT_EQ(kept.exportUri, "");
    EXPECT_EQ(kept.exportUser, "");
    EXPECT_THAT(kept.exportPasswordCommand, IsEmpty());
    EXPECT_EQ(kept.ignored.count("--export-uri"), 1U);
    EXPECT_EQ(Accepted({"collect", "bmc", "--export-uri", "sftp://other/"}).exportUser, "up");
}

TEST_F(Settle, InBandAUserAloneIsNotMeantAndAPasswordIs) {
    User("defaults: {via: kcs, user: lan}\n");
    const Options alone = Accepted({"collect", "--mode", "3"});
    EXPECT_FALSE(alone.needsPassword);
    EXPECT_EQ(alone.user, "");
    User("defaults: {via: kcs, user: lan, password_file: /p, mode: 3}\n");
    const Options both = Accepted({"collect"});
    EXPECT_TRUE(both.needsPassword);
    EXPECT_EQ(both.user, "lan");
    EXPECT_FALSE(Accepted({"check"}).needsPassword);
}

TEST_F(Settle, WhatIsWrongInAFileIsToldWithItsPlaceAndWithoutAHint) {
    User("defaults:\n  via: redfish\n  port: 99999\n");
    EXPECT_EQ(Parse({"check", "bmc", "--port", "443"}).err,
              "kemffdc: " + m_surroundings.userFile +
                  ":3: defaults.port: \"99999\" is no number from 1 to 65535.\n");
    User("defaults:\n  via: redfish\n  user: \"a:b\"\n");
    EXPECT_EQ(Parse({"check", "bmc"}).err,
              "kemffdc: " + m_surroundings.userFile + ":3: --user must not hold a colon.\n");
    User("defaults:\n  export: {uri: \"sftp://up:hunter2@s/\"}\n");
    const Parsed secret = Parse({"check", "bmc", "--via", "redfish"});
    EXPECT_THAT(secret.err, HasSubstr(":2: defaults.export.uri must not hold a password"));
    EXPECT_THAT(secret.err, Not(HasSubstr("hunter2")));
    User("defaults: {json: true}\n");
    EXPECT_THAT(Parse({"check", "bmc"}).err, HasSubstr("defaults.json: unknown member."));
}

TEST_F(Settle, AFileThatCannotBeReadEndsWithEight) {
    ASSERT_EQ(mkdir(m_surroundings.systemFile.c_str(), 0700), 0);
    const Parsed parsed = Parse({"check", "bmc", "--via", "redfish"});
    EXPECT_EQ(parsed.exitCode, 8);
    EXPECT_EQ(parsed.err, "kemffdc: The configuration file " + m_surroundings.systemFile +
                              " is not a plain file.\n");
}

TEST_F(Settle, HelpNeedsNoFile) {
    User("defaults: [\n");
    EXPECT_EQ(Parse({"check", "--help"}).exitCode, 0);
    EXPECT_EQ(Parse({"help", "check"}).exitCode, 0);
}

}  // namespace
